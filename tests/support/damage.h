// Damaged input for the loader: a sound image with one to three things changed, chosen by a seed, the same ones in
// every run. What an image's code would do is left sound: a loader cannot promise
// anything about code.
#pragma once

#include <cstdint>

#include "support/macho_builder.h"

namespace vlm::test {

/// Any part of an image that the loader reads: load commands, opcode streams, export trie, symbols, Objective-C
/// categories. It has no code to run.
Bytes damaged_image(std::uint64_t seed);

}  // namespace vlm::test
