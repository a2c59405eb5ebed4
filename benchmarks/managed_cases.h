// The cases of internal calls and their goals, for game code and for the peer that is made of the same calls.
#pragma once

extern "C" {
extern const char* const case_names[] = {
    "internal call, (int, int) to int | 0.50",
    "internal call, Vector3 to Vector3 | 0.50",
    "internal call, 10 mixed arguments | 0.50",
    nullptr,
};
}
