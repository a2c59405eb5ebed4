// Measures the cases of an image as game code, in the real library. The peer, made of native_peer.cpp and the same
// cases, is a native program: ./bench runs the two in turn and puts their lines together.
//
//   guest_bench IMAGE
#include "case_report.h"
#include "game.h"
#include "support/leave.h"

using namespace vlm::bench;

int main(int, char** arguments) {
  start_game(arguments[1]);
  report_cases(static_cast<const char* const*>(symbol_of_game("case_names")),
               function_of_game<void(std::int64_t, std::int64_t)>("run_case"));
  vlm::test::leave(0);
}
