#include "cxx/frames.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include "diag/log.h"
#include "macho/image.h"
#include "macho/queries.h"

namespace vlm {
namespace {

// Lists by hash; frames are only ever put in front. Two threads may both decode an address: either frame will do.
constexpr unsigned bucket_bits = 14;
constinit std::atomic<const Frame*> buckets[1 << bucket_bits] = {};

// By place in the image list; null until an address of the image was asked for. An image without usable unwind
// information has a section that knows nothing.
constinit std::atomic<const UnwindSection*> sections[max_images] = {};

std::atomic<const Frame*>& bucket_of(std::uint64_t address) {
  return buckets[address * 0x9E3779B97F4A7C15 >> (64 - bucket_bits)];
}

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
  void* block = std::malloc(sizeof(Frame) + clauses * sizeof(CatchClause));
  if (block == nullptr) fatal_error("out of memory while an exception is thrown");
  auto* frame = new (block) Frame{.return_address = return_address,
                                  .shape = shape,
                                  .has_cleanup = pad && pad->has_cleanup,
                                  .clause_count = static_cast<std::uint32_t>(clauses),
                                  .landing_pad = pad ? pad->address : 0,
                                  .next = nullptr,
                                  .clauses = {}};
  if (pad) std::ranges::copy(pad->clauses, frame->clauses);

  std::atomic<const Frame*>& bucket = bucket_of(return_address);
  frame->next = bucket.load(std::memory_order_relaxed);
  while (!bucket.compare_exchange_weak(frame->next, frame, std::memory_order_release, std::memory_order_relaxed)) {
  }
  return frame;
}

}  // namespace

const Frame* find_frame(std::uint64_t return_address) {
  for (const Frame* frame = bucket_of(return_address).load(std::memory_order_acquire); frame != nullptr;
       frame = frame->next) {
    if (frame->return_address == return_address) return frame;
  }
  const auto images = image_list();
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (!images[i]->contains(return_address - 1)) continue;
    return decode(*images[i], section_of(*images[i], sections[i]), return_address);
  }
  return nullptr;
}

std::optional<FrameShape> find_shape(std::uint64_t instruction) {
  for (const MachImage* image : image_list()) {
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
