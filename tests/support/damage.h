// Damaged input for the loader: sound images and unwind information with one to three things changed, chosen by a
// seed, the same ones in every run. What an image's code would do is left sound: a loader cannot promise
// anything about code.
#pragma once

#include <cstdint>

#include "support/macho_builder.h"

namespace vlm::test {

/// Any part of an image that the loader reads: load commands, opcode streams, export trie, symbols, Objective-C
/// categories. It has no code to run.
Bytes damaged_image(std::uint64_t seed);

/// Changes the unwind information of a whole image whose code throws. Nothing is caught: personality routines, and with
/// them the tables of handlers, are taken out.
void damage_unwind_information(Bytes& image, std::uint64_t seed);

}  // namespace vlm::test
