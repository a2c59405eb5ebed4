// The shim rows of formatting and of what else is an entry of entries.S, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimEntry format_shims[4];      // format_shims.cpp
extern const ShimEntry abi_block1_shims[4];  // non-local jumps
extern const ShimEntry abi_block2_shims[3];  // descriptors
extern const ShimEntry abi_block6_shims[3];  // message send, NSLog

}  // namespace vlm
