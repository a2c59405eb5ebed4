// The row arrays of files, descriptors and directories, for the catalogue. The rows of the variadic functions among
// them are abi_block2_shims.
#pragma once

#include "binding/shim_table.h"

namespace vlm {

extern const ShimEntry descriptor_shims[13];   // descriptors.cpp
extern const ShimEntry file_status_shims[10];  // file_status.cpp
extern const ShimEntry directory_shims[12];    // directories.cpp
extern const ShimEntry mapping_shims[3];       // mapping.cpp

}  // namespace vlm
