// Runs game code in the real library.
//
//   host [--report FILE] [--check CASE ...]   a check: cases of the list, each in a process of its own, and a report
//   host [--in FOLDER] CASE                   one case, in this process
//   host [--in FOLDER] PROGRAM ...            a program with other words, as cases start it
//   host [--in FOLDER] IMAGE ...              the program "guest" with this image
//
// FOLDER is where the library lies. Paths count from this program's folder.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT
#include <doctest/doctest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "check/check.h"
#include "shared/console.h"
#include "shared/exit_status.h"
#include "support/game.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm;
using namespace vlm::test;

namespace {

struct HostCase {
  check::Case check;
  const char* words[6];  // a program of this one and its arguments; one or none is empty, the rest is null
};
constexpr HostCase cases[] = {
#include "host_cases.inc"
};
constexpr const char* benchmarks[] = {
#include "host_benchmarks.inc"
};

constexpr char usage[] =
    "usage: check [--report FILE] [--check CASE ...]\n"
    "\n"
    "Runs game code in the library on this machine and writes what came of it into a report, check_report.txt beside\n"
    "this program if no other file is named: send that. It takes some minutes, in which windows come and go.\n";

/// The library lies there, and perhaps a stand-in for XInput, which it is to find before the system's own.
void use_folder(const std::string& folder) {
  if (folder.empty()) return;
  library_path = folder + "/GameAssembly.dll";
  LoadLibraryW((tools::path_of(folder) / "xinput1_4.dll").make_preferred().c_str());
}

int run(std::vector<std::string> words) {
  if (words[0].ends_with(".dylib")) words.insert(words.begin(), "guest");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  for (const auto* program = HostProgram::first; program != nullptr; program = program->next) {
    if (words[0] == program->name) return program->run(static_cast<int>(words.size()), arguments.data());
  }
  std::printf("there is no %s; programs:", words[0].c_str());
  for (const auto* each = HostProgram::first; each != nullptr; each = each->next) std::printf(" %s", each->name);
  std::puts("");
  return tools::EXIT_STATUS_USAGE;
}

/// What people start.
int check_machine(std::span<const std::string> words) {
  check::Options options;
  while (words.size() >= 2 && words[0] == "--report") {
    options.report = words[1].c_str();
    words = words.subspan(2);
  }
  if (words.size() >= 2 && words[0] == "--check") {
    options.names.assign(words.begin() + 1, words.end());
  } else if (!words.empty()) {
    std::fputs(usage, words[0] == "--help" ? stdout : stderr);
    return words[0] == "--help" ? tools::EXIT_STATUS_DONE : tools::EXIT_STATUS_USAGE;
  }
  std::vector<check::Case> checks;
  for (const HostCase& each : cases) checks.push_back(each.check);
  const int status = check::run_check(checks, benchmarks, options);
  tools::wait_before_the_window_closes();
  return status;
}

}  // namespace

int vlm::test::run_suite(const char* suite) {
  doctest::Context context;
  context.setOption("test-suite", suite);
  context.setOption("no-intro", true);
  return context.run();
}

int main(int argc, char** argv) {
  std::vector<std::string> words = tools::program_arguments(argc, argv);
  if (words.empty() || (words[0].starts_with("--") && words[0] != "--in")) return check_machine(words);
  SetCurrentDirectoryW(program_folder().c_str());
  if (words.size() >= 3 && words[0] == "--in") {
    use_folder(words[1]);
    words.erase(words.begin(), words.begin() + 2);
  }
  const auto* const found = std::ranges::find(cases, words[0], [](const HostCase& each) { return each.check.name; });
  if (words.size() > 1 || found == std::end(cases)) return run(std::move(words));
  if (library_path == default_library) use_folder(found->check.folder);
  words.clear();
  for (const char* const* word = found->words; *word != nullptr && **word != '\0'; ++word) words.emplace_back(*word);
  return run(std::move(words));
}
