// A check of this machine that anyone can run: game code in the real library, case by case, and a report to send.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace vlm::check {

/// What is run, in a process of its own in this program's folder.
struct Case {
  const char* name;         // which this program takes as its argument
  const char* program;      // another program instead, with its arguments; empty: this one
  const char* folder;       // where the library and its log lie, below this program's folder; there itself when empty
  const char* environment;  // "NAME=value NAME=value"
  const char* left_out;     // why it runs in the build alone; empty when it does not
};

struct Options {
  const char* report = nullptr;    // a file's name, UTF-8; null: check_report.txt beside this program
  std::vector<std::string> names;  // the cases to run; all, and the benchmarks, when empty
};

/// Runs the cases, then the benchmarks, and writes the report. Nothing else that they make below this program's folder
/// is left. Returns the exit status: 0 all passed, 1 not all, 64 there is no such case, or no place for the report.
///   benchmarks  programs with their arguments, which print lines "case | peer | ours | ratio | goal"
int run_check(std::span<const Case> cases, std::span<const char* const> benchmarks, const Options& options);

/// Lines about the system, the processor and what else may make a difference.
std::string describe_machine();

}  // namespace vlm::check
