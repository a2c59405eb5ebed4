// Measures the cases of string_cases.cpp with this machine's own libc++.
#include <chrono>

#include "string_report.h"

extern "C" {
extern const char* const string_case_names[];
void run_string_case(std::int64_t which, std::int64_t times);
}

int main() {
  vlm::bench::report_string_cases(string_case_names, run_string_case, [] {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
  });
}
