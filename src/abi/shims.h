// The shim rows whose implementation is an entry of entries.S, for the catalogue.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimEntry abi_block1_shims[7];  // formatting and scanning, non-local jumps
extern const ShimEntry abi_block2_shims[3];  // descriptors
extern const ShimEntry abi_block6_shims[3];  // message send, NSLog

}  // namespace vlm
