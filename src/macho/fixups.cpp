#include "macho/fixups.h"

#include <cstring>
#include <string_view>

#include "macho/commands.h"
#include "macho/format.h"
#include "macho/queries.h"
#include "support/byte_reader.h"

namespace vlm {
namespace {

using Wide = unsigned long long;  // what %llu prints, on every system

constexpr std::uint64_t pointer_size = 8;

/// The place that a stream moves through the image, and the pointers it has patched so far.
class FixupPlace {
 public:
  FixupPlace(const MachImage& image, const char* stream)
      : image_(image), stream_(stream), left_(image.extent() / pointer_size) {}

  void set(int segment, std::uint64_t offset) {
    segment_ = segment;
    offset_ = offset;
  }

  /// Modulo 2^64: a step back is a large number.
  void advance(std::uint64_t distance) { offset_ += distance; }

  /// True when `count` (not 0) pointers, `stride` bytes apart from here on, lie in the segment, and are not more than
  /// the image can still hold. The run's first byte is then at start() and the place moves behind the run.
  bool take_run(std::uint64_t count, std::uint64_t stride) {
    if (segment_ >= image_.segment_count) return false;
    const MachSegment& segment = image_.segments[segment_];
    if (!segment.mapped() || !run_fits(segment.vmsize, count, stride) || count > left_) return false;
    start_ = segment.vmaddr - image_.vm_min + offset_;
    left_ -= count;
    offset_ += count * stride;
    return true;
  }

  std::size_t start() const { return start_; }  ///< bytes from the image's base

  std::uint64_t patched() const { return image_.extent() / pointer_size - left_; }

  /// Why take_run() said no.
  std::unexpected<Fault> fault_of_run(std::uint64_t count, std::uint64_t stride, const ByteReader& in) const {
    if (segment_ >= image_.segment_count) return fault("bad segment index %d", segment_);
    const MachSegment& segment = image_.segments[segment_];
    if (segment.mapped() && run_fits(segment.vmsize, count, stride)) {
      return damaged(fault("%s stream, before offset %zu: more than %llu pointers, all that the image has room for",
                           stream_, in.offset(), Wide{image_.extent() / pointer_size}));
    }
    return damaged(fault("%s stream, before offset %zu: %llu pointers from 0x%llx, 0x%llx bytes apart, are not inside "
                         "segment %d (%s, 0x%llx bytes%s)",
                         stream_, in.offset(), Wide{count}, Wide{offset_}, Wide{stride}, segment_, segment.name,
                         Wide{segment.vmsize}, segment.mapped() ? "" : ", not mapped"));
  }

  std::unexpected<Fault> damaged(const std::unexpected<Fault>& why) const {
    return std::unexpected(Fault{damaged_text(image_.path, why.error().text)});
  }

 private:
  /// Places only ever differ by less than the segment's size, so the stride's sign tells the direction.
  bool run_fits(std::uint64_t vmsize, std::uint64_t count, std::uint64_t stride) const {
    if (!range_fits(offset_, pointer_size, vmsize)) return false;
    const std::uint64_t steps = count - 1;
    if (steps == 0 || stride == 0) return true;
    if (static_cast<std::int64_t>(stride) > 0) return steps <= (vmsize - pointer_size - offset_) / stride;
    return steps <= offset_ / (0 - stride);
  }

  const MachImage& image_;
  const char* stream_;
  int segment_ = 0;
  std::uint64_t offset_ = 0;  // in the segment; may be anything until a run is taken
  std::uint64_t left_;        // pointers that may still be patched
  std::size_t start_ = 0;
};

/// What the link editor wrote for the symbol of the next binds.
struct Import {
  std::string_view name;  // NUL-terminated, in the stream; data() is null until a name was read
  std::uint32_t flags = 0;
  std::int32_t ordinal = 0;  // positive: dylib_names[ordinal - 1]; 0: the image itself; negative: flat
};

const char* last_component(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

/// Finds addresses for imports, remembering the last one: binds of one symbol come in a row.
class ImportResolver {
 public:
  ImportResolver(const MachImage& image, const SymbolSources& sources) : image_(image), sources_(sources) {}

  /// False when the stream has asked for more than a sane image ever needs.
  bool resolve(const Import& import) {
    if (import.name.data() == cached_name_ && import.ordinal == cached_ordinal_) return true;
    work_ += resolution_work + import.name.size();
    if (work_ > max_work) return false;
    value_ = look_up(import);
    cached_name_ = import.name.data();
    cached_ordinal_ = import.ordinal;
    return true;
  }

  std::uint64_t value() const { return value_; }

 private:
  // Resolving walks tries and copies names, so a stream that never repeats itself over a trie made to be slow could
  // keep start-up busy for hours. Counted in bytes; it ends after seconds, having had room for millions of imports.
  static constexpr std::uint64_t max_work = std::uint64_t{1} << 32;
  static constexpr std::uint64_t resolution_work = 1024;

  std::uint64_t look_up(const Import& import) {
    const char* library = "flat";
    if (import.ordinal == 0) {
      if (const std::uint64_t own = macho_find_export(image_, import.name, &work_)) return own;
      library = "self";
    } else if (import.ordinal > 0 && import.ordinal <= image_.dylib_count) {
      const char* install_name = image_.dylib_names[import.ordinal - 1];
      if (const std::uint64_t address = look_up_in_images(install_name, import.name)) return address;
      library = last_component(install_name);
    }
    if (const void* address = sources_.lookup_shim(library, import.name.data())) return value_of(address);
    if (import.flags & BIND_SYMBOL_FLAGS_WEAK_IMPORT) return 0;
    return value_of(sources_.make_missing_symbol(library, import.name.data()));
  }

  std::uint64_t look_up_in_images(const char* install_name, std::string_view name) {
    for (const MachImage* other : sources_.images) {
      const char* slash = std::strrchr(other->path, '/');
      if (other == &image_ || slash == nullptr || std::strstr(install_name, slash + 1) == nullptr) continue;
      if (const std::uint64_t address = macho_find_export(*other, name, &work_)) return address;
    }
    return 0;
  }

  static std::uint64_t value_of(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

  const MachImage& image_;
  const SymbolSources& sources_;
  const char* cached_name_ = nullptr;
  std::int32_t cached_ordinal_ = 0x7FFFFFFF;
  std::uint64_t value_ = 0;
  std::uint64_t work_ = 0;
};

}  // namespace

Result<std::uint64_t> macho_rebase(const MachImage& image, std::span<std::byte> memory) {
  if (image.rebase_size == 0) return 0;
  ByteReader in(image.file_range(image.rebase_off, image.rebase_size));
  FixupPlace place(image, "rebase");
  const auto slide = static_cast<std::uint64_t>(image.slide);

  const auto rebase = [&](std::uint64_t count, std::uint64_t stride) {
    if (count == 0) return true;  // an empty run may stand anywhere
    if (!place.take_run(count, stride)) return false;
    for (std::size_t at = place.start(); count != 0; --count, at += stride) {
      std::uint64_t pointer;
      std::memcpy(&pointer, &memory[at], sizeof pointer);
      pointer += slide;
      std::memcpy(&memory[at], &pointer, sizeof pointer);
    }
    return true;
  };

  while (!in.at_end()) {
    const auto byte = in.read<std::uint8_t>();
    const unsigned immediate = byte & IMMEDIATE_MASK;
    std::uint64_t count = 0;
    std::uint64_t stride = pointer_size;
    switch (byte & OPCODE_MASK) {
      case REBASE_OPCODE_DONE:
        return place.patched();
      case REBASE_OPCODE_SET_TYPE_IMM:
        break;  // every rebase of a 64-bit image is of a pointer
      case REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB:
        place.set(static_cast<int>(immediate), in.uleb128());
        break;
      case REBASE_OPCODE_ADD_ADDR_ULEB:
        place.advance(in.uleb128());
        break;
      case REBASE_OPCODE_ADD_ADDR_IMM_SCALED:
        place.advance(immediate * pointer_size);
        break;
      case REBASE_OPCODE_DO_REBASE_IMM_TIMES:
        count = immediate;
        break;
      case REBASE_OPCODE_DO_REBASE_ULEB_TIMES:
        count = in.uleb128();
        break;
      case REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB:
        count = 1;
        stride = in.uleb128() + pointer_size;
        break;
      case REBASE_OPCODE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB:
        count = in.uleb128();
        stride = in.uleb128() + pointer_size;
        break;
      default:
        return fault("unknown rebase opcode 0x%02x", byte & OPCODE_MASK);
    }
    if (!rebase(count, stride)) return place.fault_of_run(count, stride, in);
  }
  return place.patched();  // DONE is only padding, so a stream may end without one
}

Result<std::uint64_t> macho_bind(const MachImage& image, std::span<std::byte> memory, std::uint32_t stream_offset,
                                 std::uint32_t stream_size, bool lazy, const SymbolSources& sources) {
  if (stream_size == 0) return 0;
  ByteReader in(image.file_range(stream_offset, stream_size));
  FixupPlace place(image, lazy ? "lazy-bind" : "bind");
  ImportResolver resolver(image, sources);
  Import import;
  std::uint64_t addend = 0;

  while (!in.at_end()) {
    const auto byte = in.read<std::uint8_t>();
    const unsigned immediate = byte & IMMEDIATE_MASK;
    std::uint64_t count = 0;
    std::uint64_t stride = pointer_size;
    switch (byte & OPCODE_MASK) {
      case BIND_OPCODE_DONE:
        if (!lazy) return place.patched();
        break;
      case BIND_OPCODE_SET_DYLIB_ORDINAL_IMM:
        import.ordinal = static_cast<std::int32_t>(immediate);
        break;
      case BIND_OPCODE_SET_DYLIB_ORDINAL_ULEB:
        import.ordinal = static_cast<std::int32_t>(in.uleb128());
        break;
      case BIND_OPCODE_SET_DYLIB_SPECIAL_IMM:
        import.ordinal = immediate == 0 ? 0 : static_cast<std::int8_t>(OPCODE_MASK | immediate);
        break;
      case BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM:
        import.flags = immediate;
        import.name = in.c_string();
        if (!in.ok()) {
          return place.damaged(fault("%s stream, offset %zu: the symbol name has no end", lazy ? "lazy-bind" : "bind",
                                     in.offset()));
        }
        break;
      case BIND_OPCODE_SET_TYPE_IMM:
        break;  // every bind of a 64-bit image is of a pointer
      case BIND_OPCODE_SET_ADDEND_SLEB:
        addend = static_cast<std::uint64_t>(in.sleb128());
        break;
      case BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB:
        place.set(static_cast<int>(immediate), in.uleb128());
        break;
      case BIND_OPCODE_ADD_ADDR_ULEB:
        place.advance(in.uleb128());
        break;
      case BIND_OPCODE_DO_BIND:
        count = 1;
        break;
      case BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB:
        count = 1;
        stride = in.uleb128() + pointer_size;
        break;
      case BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED:
        count = 1;
        stride = immediate * pointer_size + pointer_size;
        break;
      case BIND_OPCODE_DO_BIND_ULEB_TIMES_SKIPPING_ULEB:
        count = in.uleb128();
        stride = in.uleb128() + pointer_size;
        break;
      default:
        return fault("unknown bind opcode 0x%02x", byte & OPCODE_MASK);
    }
    if (count == 0) continue;

    if (!place.take_run(count, stride)) return place.fault_of_run(count, stride, in);
    if (import.name.data() == nullptr) {
      return place.damaged(fault("%s stream, before offset %zu: a bind without a symbol name",
                                 lazy ? "lazy-bind" : "bind", in.offset()));
    }
    if (!resolver.resolve(import)) {
      return place.damaged(fault("%s stream, before offset %zu: looking up its symbols takes too long",
                                 lazy ? "lazy-bind" : "bind", in.offset()));
    }
    const std::uint64_t pointer = resolver.value() + addend;
    for (std::size_t at = place.start(); count != 0; --count, at += stride) {
      std::memcpy(&memory[at], &pointer, sizeof pointer);
    }
  }
  return place.patched();
}

}  // namespace vlm
