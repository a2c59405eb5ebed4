// An index of an image's symbols by address: with one, macho_symbol_for_address() is a binary search.
#pragma once

#include "macho/image.h"

namespace vlm {

/// Makes the image's index if it has none yet. Any thread, also in the middle of a crash: takes its memory from the
/// system, not from the heap; without memory the image has no index, and look-ups walk the symbol table.
void macho_index_symbols(const MachImage& image);

}  // namespace vlm
