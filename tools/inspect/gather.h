// From the bytes of an image file to what there is to say about it.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "inspect/facts.h"
#include "inspect/library.h"
#include "macho/image.h"
#include "tessera/gs_sites.h"

namespace vlm::inspect {

/// Everything about a file, the verdict included.
///   library  null: imports are not judged
Facts gather(
    const char* path, std::span<const std::byte> file, const Library* library,
    const tessera::Progress& progress = [](auto, auto) {});

// The parts, each in a file of its own. An image that is handed over was read by read_image(), and has an index of its
// symbols; `base` is vm_min, `slide` is 0.

Format gather_format(std::span<const std::byte> file);
Initializers gather_initializers(const MachImage& image, const Format& format);
Linkage gather_linkage(const MachImage& image, const Library* library);
Unwind gather_unwind(const MachImage& image);
ThreadStorage gather_thread_storage(const MachImage& image, const Library* library, const tessera::Progress& progress);
ObjectiveC gather_objective_c(const MachImage& image, const Format& format, const Linkage* linkage);

/// Descriptors of thread-local variables as the macOS linker lays them out, which the loader does not set up.
std::uint64_t thread_local_variables(const Format& format);

/// Imports without an implementation by when programs call them: the less, the earlier. The same for all that no
/// program is known to call early.
std::size_t call_rank(std::string_view import);

/// Sets status and reasons from everything else.
void judge(Facts& facts);

}  // namespace vlm::inspect
