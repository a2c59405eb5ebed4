#include "cxx/frames.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include "diag/log.h"
#include "macho/image.h"
#include "macho/queries.h"
#include "support/record_counts.h"

namespace vlm {

constinit std::atomic<const Frame*> frame_lists[1 << frame_list_bits] = {};

namespace {

// By place in the image list; null until an address of the image was asked for. An image without usable unwind
// information has a section that knows nothing.
constinit std::atomic<const UnwindSection*> sections[max_images] = {};

const UnwindSection* open_section(const MachImage& image) {
  auto section = std::make_unique<UnwindSection>();
  if (const MachSection* found = macho_find_section(image, "__TEXT", "__unwind_info")) {
    if (const auto opened = UnwindSection::open({reinterpret_cast<const std::byte*>(found->addr), found->size})) {
      *section = *opened;
    } else {
      log_message(0, "[eh] %s: %s", image.path, opened.error().text.c_str());
    }
  }
  return section.release();
}

const UnwindSection& section_of(const MachImage& image, std::atomic<const UnwindSection*>& place) {
  const UnwindSection* section = place.load(std::memory_order_acquire);
  if (section != nullptr) return *section;
  const UnwindSection* opened = open_section(image);
  if (place.compare_exchange_strong(section, opened, std::memory_order_acq_rel)) return *opened;
  delete opened;  // another thread was faster
  return *section;
}

/// True when the pointer to the function's personality routine holds one. It is never called: all game code has the
/// one of C++, which this unwinder stands for.
bool has_personality(const MachImage& image, std::uint32_t slot) {
  if (slot == 0 || !image.contains(image.base + slot, sizeof(std::uint64_t))) return false;
  return *reinterpret_cast<const std::uint64_t*>(image.base + slot) != 0;
}

FrameShape shape_of(const MachImage& image, const UnwindEntry& entry) {
  const std::uint64_t function = image.base + entry.function;
  std::span<const std::byte> code;
  if (image.contains(function)) {
    code = {reinterpret_cast<const std::byte*>(function), image.base + image.extent() - function};
  }
  const auto layout = decode_compact(entry.encoding, code);
  return {function, entry.encoding, layout.has_value(), layout.value_or(FrameLayout{})};
}

const Frame* decode(const MachImage& image, const UnwindSection& section, std::uint64_t return_address) {
  const std::uint64_t instruction = return_address - 1;  // the call: what follows may belong to another function
  const auto found = section.find(static_cast<std::uint32_t>(instruction - image.base));
  if (!found) log_message(0, "[eh] %s: %s", image.path, found.error().text.c_str());
  if (!found || !*found) return nullptr;
  const UnwindEntry& entry = **found;

  const FrameShape shape = shape_of(image, entry);
  std::optional<LandingPad> pad;
  if (shape.supported && entry.lsda != 0 && has_personality(image, entry.personality)) {
    auto read = find_landing_pad(image, image.base + entry.lsda, shape.function, instruction);
    if (!read) fatal_error("%s", read.error().text.c_str());
    pad = std::move(*read);
  }

  const std::size_t clauses = pad ? pad->clauses.size() : 0;
  void* block = _aligned_malloc(sizeof(Frame) + clauses * sizeof(CatchClause), alignof(Frame));
  if (block == nullptr) fatal_error("out of memory while an exception is thrown");
  auto* frame = new (block) Frame{.return_address = return_address,
                                  .next = nullptr,
                                  .landing_pad = pad ? pad->address : 0,
                                  .layout = shape.layout,
                                  .clause_count = static_cast<std::uint32_t>(clauses),
                                  .has_cleanup = pad && pad->has_cleanup,
                                  .supported = shape.supported,
                                  .function = shape.function,
                                  .encoding = entry.encoding,
                                  .clauses = {}};
  if (pad) std::ranges::copy(pad->clauses, frame->clauses);
  ++record_counts.frames;

  std::atomic<const Frame*>& list = frame_list(return_address);
  frame->next = list.load(std::memory_order_relaxed);
  while (!list.compare_exchange_weak(frame->next, frame, std::memory_order_release, std::memory_order_relaxed)) {
  }
  return frame;
}

}  // namespace

const Frame* decode_frame(std::uint64_t return_address) {
  const auto images = macho_images();
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (!images[i]->contains(return_address - 1)) continue;
    return decode(*images[i], section_of(*images[i], sections[i]), return_address);
  }
  return nullptr;
}

std::optional<FrameShape> find_shape(std::uint64_t instruction) {
  for (const MachImage* image : macho_images()) {
    if (!image->contains(instruction)) continue;
    const MachSection* const found = macho_find_section(*image, "__TEXT", "__unwind_info");
    if (found == nullptr) return std::nullopt;
    const auto section = UnwindSection::open({reinterpret_cast<const std::byte*>(found->addr), found->size});
    if (!section) return std::nullopt;
    const auto entry = section->find(static_cast<std::uint32_t>(instruction - image->base));
    if (!entry || !*entry) return std::nullopt;
    return shape_of(*image, **entry);
  }
  return std::nullopt;
}

}  // namespace vlm
