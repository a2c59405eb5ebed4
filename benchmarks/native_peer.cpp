// Measures the cases that it is linked with, compiled for this machine and its own C++ library.
#include "case_report.h"

extern "C" {
extern const char* const case_names[];
void run_case(std::int64_t which, std::int64_t times);
}

int main() { vlm::bench::report_cases(case_names, run_case); }
