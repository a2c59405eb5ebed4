// Exceptions leave every kind of frame with the caller's registers as they were; see frame_cases.S.
#include "guest_test.h"

extern "C" {
[[noreturn]] void throw_from_case() { throw 1; }

using Case = void (*)();
extern const Case frame_cases[];
extern const Case frame_cases_end[];
bool call_case(Case function, uint64 found[6]);
}

GUEST_TEST(frames_give_back_the_registers_that_they_saved) {
  int cases = 0, failures = 0;
  for (const Case* at = frame_cases; at != frame_cases_end; ++at, ++cases) {
    uint64 found[6] = {};
    bool right = call_case(*at, found);
    for (int i = 0; i < 6; ++i) right &= found[i] == 0x100 + static_cast<uint64>(i);
    failures += !right;
  }
  CHECK(failures == 0);
  CHECK(cases == 326 + 2 * 1957);  // orders of at most 5 and at most 6 registers
}
