// Measures the cases of an image as game code, in the real library. The peer, made of native_peer.cpp and the same
// cases, is a native program: ./bench runs the two in turn and puts their lines together.
//
//   guest_bench IMAGE
#include "case_report.h"
#include "support/game.h"

using namespace vlm::bench;
using namespace vlm::test;

int main(int, char** arguments) {
  load_library(arguments[1]);
  start_game();
  report_cases(static_cast<const char* const*>(game_symbol("case_names")),
               game_function<void, std::int64_t, std::int64_t>(game_symbol("run_case")));
  leave(0);
}
