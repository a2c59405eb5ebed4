#include "check/check.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "shared/console.h"
#include "shared/exit_status.h"
#include "support/handles.h"
#include "support/hash.h"

namespace vlm::check {
namespace {

namespace fs = std::filesystem;
using tools::path_of;
using tools::utf8_of;

constexpr DWORD time_limit_ms = 300'000;
constexpr std::size_t log_limit = 100'000;  // of a log, its end

std::string read_file(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  std::erase(bytes, '\r');
  return bytes;
}

std::string end_of(const std::string& log) {
  return log.size() <= log_limit ? log : "[...]" + log.substr(log.size() - log_limit);
}

/// Everything below a folder, links as such.
std::set<fs::path> list(const fs::path& folder) {
  std::set<fs::path> paths;
  std::error_code error;  // what vanishes meanwhile is not there
  for (fs::recursive_directory_iterator each(folder, error), end; each != end; each.increment(error)) {
    paths.insert(each->path());
  }
  return paths;
}

/// Sets variables of this process, which those that it starts take over, for as long as this lives.
class Environment {
 public:
  explicit Environment(const char* text) {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
      const std::size_t equals = word.find('=');
      names_.push_back(path_of(word.substr(0, equals)).wstring());
      SetEnvironmentVariableW(names_.back().c_str(), path_of(word.substr(equals + 1)).c_str());
    }
  }
  Environment(const Environment&) = delete;
  ~Environment() {
    for (const std::wstring& name : names_) SetEnvironmentVariableW(name.c_str(), nullptr);
  }

 private:
  std::vector<std::wstring> names_;
};

/// A program and all that it starts, which end with it.
struct Outcome {
  std::string ending;  // empty: well
  std::string output;
};
Outcome run(const std::string& command, const fs::path& output) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  UniqueHandle file = own_handle(CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS,
                                             FILE_ATTRIBUTE_NORMAL, nullptr));
  UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

  const UniqueHandle nothing =
      own_handle(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ, &inherited, OPEN_EXISTING, 0, nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nothing.get();
  startup.hStdOutput = startup.hStdError = file.get();
  PROCESS_INFORMATION started{};
  std::wstring line = path_of(command).wstring();
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                      &started)) {
    return {"not started: error " + std::to_string(GetLastError()), {}};
  }
  const UniqueHandle process(started.hProcess), thread(started.hThread);
  AssignProcessToJobObject(job.get(), process.get());
  ResumeThread(thread.get());
  DWORD code = 0;
  std::string ending;
  if (WaitForSingleObject(process.get(), time_limit_ms) != WAIT_OBJECT_0) {
    ending = "stopped after " + std::to_string(time_limit_ms / 1000) + " seconds";
  } else if (GetExitCodeProcess(process.get(), &code); code != 0) {
    ending = "exit code " + std::to_string(code);
  }
  job.reset();
  WaitForSingleObject(process.get(), 5000);
  file.reset();
  return {ending, end_of(read_file(output))};
}

/// What is said while the cases run: one line that changes, or a line a case where the output is no terminal.
class Progress {
 public:
  explicit Progress(std::size_t total) : total_(total) {}

  void begin(const std::string& name) {
    ++done_;
    if (terminal_) std::printf("\r\x1b[K[%zu of %zu] %s", done_, total_, name.c_str());
    std::fflush(stdout);
  }
  void end(const std::string& name, const std::string& ending) const {
    if (!terminal_ || !ending.empty()) {
      std::printf("%s%-24s %s\n", terminal_ ? "\r\x1b[K" : "", name.c_str(),
                  ending.empty() ? "passed" : ending.c_str());
    }
    std::fflush(stdout);
  }
  void finish() const {
    if (terminal_) std::fputs("\r\x1b[K", stdout);
  }

 private:
  bool terminal_ = tools::is_terminal(stdout);
  std::size_t total_, done_ = 0;
};

/// The checker's own program and folder.
struct Place {
  fs::path folder = tools::program_folder();
  fs::path work = folder / "check.tmp";  // outputs, and what programs write to the folder for temporary files
  std::set<fs::path> before = list(folder);

  Place() {
    std::error_code error;
    fs::create_directory(work, error);
    fs::current_path(folder);
    for (const wchar_t* name : {L"TMP", L"TEMP"}) SetEnvironmentVariableW(name, work.c_str());
  }
  Place(const Place&) = delete;
  /// All that was not there is removed, except the report.
  void clean(const fs::path& report) const {
    std::error_code error;
    for (const fs::path& path : list(folder)) {
      if (!before.contains(path) && !fs::equivalent(path, report, error)) fs::remove_all(path, error);
    }
  }

  std::string command_of(const Case& each) const {
    if (*each.program != '\0') return each.program;
    return "\"" + utf8_of(executable()) + "\" " + each.name;
  }
  static fs::path executable() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
  }
};

struct Tally {
  std::string passed, failed, left_out, details;
};

void run_case(const Case& each, const Place& place, Progress& progress, Tally& tally) {
  progress.begin(each.name);
  const fs::path log = place.folder / each.folder / "PCSaveData" / "loader.log";
  std::error_code error;
  fs::remove(log, error);
  const Environment environment(each.environment);
  const Outcome outcome = run(place.command_of(each), place.work / "output.txt");
  progress.end(each.name, outcome.ending);
  if (outcome.ending.empty()) {
    tally.passed += std::string(" ") + each.name;
    return;
  }
  const std::string name = each.name;
  tally.failed += "  " + name + ": " + outcome.ending + "\n";
  tally.details += "\n==== " + name + ": what it printed\n" + outcome.output + "\n==== " + name + ": its log\n" +
                   end_of(read_file(log));
}

std::string run_benchmarks(std::span<const char* const> benchmarks, const Place& place, Progress& progress) {
  std::string rows;
  for (const char* const command : benchmarks) {
    const std::string name = std::string(command).substr(0, std::string_view(command).find('.'));
    progress.begin(name);
    const Outcome outcome = run(command, place.work / "output.txt");
    progress.end(name, outcome.ending);
    rows += outcome.output;
    if (!outcome.ending.empty()) rows += name + ": " + outcome.ending + "\n";
  }
  return rows;
}

}  // namespace

int run_check(std::span<const Case> cases, std::span<const char* const> benchmarks, const Options& options) {
  for (const std::string& name : options.names) {
    if (std::ranges::find(cases, name, &Case::name) != cases.end()) continue;
    std::fprintf(stderr, "check: there is no case '%s'; the cases are:", name.c_str());
    for (const Case& each : cases) std::fprintf(stderr, " %s", each.name);
    std::fputs("\n", stderr);
    return tools::EXIT_STATUS_USAGE;
  }
  const fs::path report =
      options.report != nullptr ? fs::absolute(path_of(options.report)) : tools::program_folder() / "check_report.txt";
  const bool all = options.names.empty();
  const auto is_wanted = [&](const Case& each) { return all || std::ranges::count(options.names, each.name) > 0; };

  const Place place;
  std::ofstream file(report);
  for (const fs::path& path : {place.work / "output.txt", report}) {
    if (std::ofstream(path)) continue;
    std::fprintf(stderr, "check: cannot write %s: copy this folder to where you may write\n", utf8_of(path).c_str());
    return tools::EXIT_STATUS_USAGE;
  }
  const std::string library = read_file(place.folder / "GameAssembly.dll");
  file << describe_machine() << "library    " << library.size() << " bytes, " << std::hex << fnv1a(library) << std::dec
       << "\nfolder     " << utf8_of(place.folder) << "\n"
       << std::flush;

  Progress progress(static_cast<std::size_t>(std::ranges::count_if(cases, is_wanted)) + (all ? benchmarks.size() : 0));
  Tally tally;
  for (const Case& each : cases) {
    if (!is_wanted(each)) continue;
    if (*each.left_out != '\0') {
      tally.left_out += std::string("  ") + each.name + ": " + each.left_out + "\n";
      progress.begin(each.name);
    } else {
      run_case(each, place, progress, tally);
    }
  }
  const std::string rows = all ? run_benchmarks(benchmarks, place, progress) : "";
  progress.finish();
  file << "\npassed    " << tally.passed << "\n";
  if (!tally.failed.empty()) file << "\nfailed\n" << tally.failed;
  if (!tally.left_out.empty()) file << "\nleft out\n" << tally.left_out;
  if (all) file << "\ncase | peer | ours | ratio | goal\n" << rows;
  file << tally.details;
  file.close();
  place.clean(report);

  std::printf("%s\nThe report is %s\n",
              tally.failed.empty() ? "Everything passed." : ("Not everything passed:\n" + tally.failed).c_str(),
              utf8_of(report).c_str());
  return tally.failed.empty() ? tools::EXIT_STATUS_DONE : tools::EXIT_STATUS_INCOMPLETE;
}

}  // namespace vlm::check
