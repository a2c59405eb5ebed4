// Runs game code in the real library.
//
//   host                            every case of the list, each in a process of its own
//   host [--in FOLDER] CASE         one of them, in this process
//   host [--in FOLDER] PROGRAM ...  a program with other words, as cases start it
//   host [--in FOLDER] IMAGE ...    the program "guest" with this image
//
// FOLDER is where the library lies. Paths count from this program's folder.
#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT
#include <doctest/doctest.h>

#include <algorithm>
#include <filesystem>
#include <span>
#include <vector>

#include "support/game.h"
#include "support/game_process.h"
#include "support/host_program.h"

using namespace vlm;
using namespace vlm::test;

namespace {

constexpr struct HostCase {
  const char* name;
  const char* folder;
  const char* words[4];  // a program and its arguments
} cases[] = {
#include "host_cases.inc"
};

constexpr DWORD time_limit_ms = 300'000;

std::string in_program_folder(const std::string& path) {
  return (std::filesystem::path(program_folder()) / path).make_preferred().string();
}

/// The library lies there, and what it loads from beside it.
void use_folder(const char* folder) {
  if (*folder == '\0') return;
  const std::string path = in_program_folder(folder) + "\\";
  library_path = path + "GameAssembly.dll";
  SetDllDirectoryA(path.c_str());
}

int run(std::vector<std::string> words) {
  for (std::string& word : words) {
    if (word.ends_with(".dylib")) word = in_program_folder(word);
  }
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
  return 1;
}

int run_all() {
  int failures = 0;
  for (const HostCase& each : cases) {
    const std::string name = each.name;
    const UniqueHandle process =
        start_process(L"\"" + program_path() + L"\" " + std::wstring(name.begin(), name.end()));
    DWORD code = ~0u;
    if (WaitForSingleObject(process.get(), time_limit_ms) == WAIT_OBJECT_0) GetExitCodeProcess(process.get(), &code);
    if (code != 0) TerminateProcess(process.get(), code);
    std::printf("%-20s %s\n", each.name, code == 0 ? "passed" : "FAILED");
    std::fflush(stdout);
    failures += code != 0;
  }
  return failures;
}

}  // namespace

int vlm::test::run_suite(const char* suite) {
  doctest::Context context;
  context.setOption("test-suite", suite);
  context.setOption("no-intro", true);
  return context.run();
}

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() >= 2 && words[0] == "--in") {
    use_folder(words[1].c_str());
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty()) return run_all();
  const auto* const found = std::ranges::find(cases, words[0], &HostCase::name);
  if (words.size() > 1 || found == std::end(cases)) return run(std::move(words));
  if (library_path == default_library) use_folder(found->folder);
  words.clear();
  for (const char* word : found->words) {
    if (word != nullptr && *word != '\0') words.emplace_back(word);
  }
  return run(std::move(words));
}
