#include "macho/fixups.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "macho/commands.h"
#include "macho/format.h"
#include "support/byte_reader.h"

namespace vlm {
namespace {

using Wide = unsigned long long;  // what %llu prints, on every system

constexpr std::uint64_t pointer_size = 8;

/// The place that a stream moves through the image, and the pointers it has patched so far.
class FixupPlace {
 public:
  FixupPlace(const MachImage& image, const char* stream)
      : image_(image),
        stream_(stream),
        tables_segment_(macho_segment_of_tables(image)),
        tables_(macho_tables_range(image)),
        left_(image.extent() / pointer_size) {}

  void set(int segment, std::uint64_t offset) {
    segment_ = segment;
    offset_ = offset;
  }

  /// Modulo 2^64: a step back is a large number.
  void advance(std::uint64_t distance) { offset_ += distance; }

  /// True when `count` (not 0) pointers, `stride` bytes apart from here on, lie in the segment, are not more than the
  /// image can still hold and leave the tables alone, which are read from that memory meanwhile. The run's first byte
  /// is then at start() and the place moves behind the run.
  bool take_run(std::uint64_t count, std::uint64_t stride) {
    if (segment_ >= image_.segment_count) return false;
    const MachSegment& segment = image_.segments[segment_];
    if (!segment.mapped() || !run_fits(segment.vmsize, count, stride) || count > left_) return false;
    if (&segment == tables_segment_ && meets_tables(count, stride)) return false;
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
    if (segment.mapped() && run_fits(segment.vmsize, count, stride) && count <= left_) {
      return damaged(
          fault("%s stream, before offset %zu: %llu pointers from 0x%llx of segment %s, 0x%llx bytes apart, "
                "lie in the image's own tables",
                stream_, in.offset(), Wide{count}, Wide{offset_}, segment.name, Wide{stride}));
    }
    if (segment.mapped() && run_fits(segment.vmsize, count, stride)) {
      return damaged(fault("%s stream, before offset %zu: more than %llu pointers, all that the image has room for",
                           stream_, in.offset(), Wide{image_.extent() / pointer_size}));
    }
    return damaged(
        fault("%s stream, before offset %zu: %llu pointers from 0x%llx, 0x%llx bytes apart, are not inside "
              "segment %d (%s, 0x%llx bytes%s)",
              stream_, in.offset(), Wide{count}, Wide{offset_}, Wide{stride}, segment_, segment.name,
              Wide{segment.vmsize}, segment.mapped() ? "" : ", not mapped"));
  }

  std::unexpected<Fault> damaged(const std::unexpected<Fault>& why) const {
    return std::unexpected(Fault{macho_damaged_text(image_.path, why.error().text)});
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

  /// For a run that fits its segment.
  bool meets_tables(std::uint64_t count, std::uint64_t stride) const {
    const std::uint64_t last = offset_ + (count - 1) * stride;
    const std::uint64_t tables = tables_.offset - tables_segment_->fileoff;
    return std::min(offset_, last) < tables + tables_.size && std::max(offset_, last) + pointer_size > tables;
  }

  const MachImage& image_;
  const char* stream_;
  const MachSegment* tables_segment_;
  FileRange tables_;
  int segment_ = 0;
  std::uint64_t offset_ = 0;  // in the segment; may be anything until a run is taken
  std::uint64_t left_;        // pointers that may still be patched
  std::size_t start_ = 0;
};

/// Finds addresses for imports, remembering the last one: binds of one symbol come in a row.
class ImportResolver {
 public:
  ImportResolver(const MachImage& image, const SymbolSources& sources) : image_(image), sources_(sources) {}

  Result<std::uint64_t> resolve(const Import& import) {
    if (import.name.data() == cached_name_ && import.ordinal == cached_ordinal_) return value_;
    if (!budget_.take(import)) return fault("looking up its symbols takes too long");
    value_ = macho_resolve_import(image_, import, sources_, budget_.bytes_read()).address;
    cached_name_ = import.name.data();
    cached_ordinal_ = import.ordinal;
    return value_;
  }

 private:
  const MachImage& image_;
  const SymbolSources& sources_;
  ResolutionBudget budget_;
  const char* cached_name_ = nullptr;
  std::int32_t cached_ordinal_ = 0x7FFFFFFF;
  std::uint64_t value_ = 0;
};

constexpr const char* stream_name(BindStream stream) {
  return stream == BindStream::lazy_binds ? "lazy-bind" : stream == BindStream::weak_binds ? "weak-bind" : "bind";
}

/// An empty stream may name any offset.
std::span<const std::byte> stream_bytes(const MachImage& image, BindStream stream) {
  const auto bytes = [&](std::uint32_t offset, std::uint32_t size) {
    return size == 0 ? std::span<const std::byte>() : image.file_range(offset, size);
  };
  switch (stream) {
    case BindStream::binds: return bytes(image.bind_off, image.bind_size);
    case BindStream::weak_binds: return bytes(image.weak_bind_off, image.weak_bind_size);
    case BindStream::lazy_binds: break;
  }
  return bytes(image.lazy_bind_off, image.lazy_bind_size);
}

}  // namespace

Result<std::uint64_t> macho_walk_rebases(const MachImage& image, const std::function<void(const PointerRun&)>& visit) {
  if (image.rebase_size == 0) return 0;
  ByteReader in(image.file_range(image.rebase_off, image.rebase_size));
  FixupPlace place(image, "rebase");

  while (!in.at_end()) {
    const auto byte = in.read<std::uint8_t>();
    const unsigned immediate = byte & IMMEDIATE_MASK;
    std::uint64_t count = 0;
    std::uint64_t stride = pointer_size;
    switch (byte & OPCODE_MASK) {
      case REBASE_OPCODE_DONE: return place.patched();
      case REBASE_OPCODE_SET_TYPE_IMM: break;  // every rebase of a 64-bit image is of a pointer
      case REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB: place.set(static_cast<int>(immediate), in.uleb128()); break;
      case REBASE_OPCODE_ADD_ADDR_ULEB: place.advance(in.uleb128()); break;
      case REBASE_OPCODE_ADD_ADDR_IMM_SCALED: place.advance(immediate * pointer_size); break;
      case REBASE_OPCODE_DO_REBASE_IMM_TIMES: count = immediate; break;
      case REBASE_OPCODE_DO_REBASE_ULEB_TIMES: count = in.uleb128(); break;
      case REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB:
        count = 1;
        stride = in.uleb128() + pointer_size;
        break;
      case REBASE_OPCODE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB:
        count = in.uleb128();
        stride = in.uleb128() + pointer_size;
        break;
      default: return fault("unknown rebase opcode 0x%02x", byte & OPCODE_MASK);
    }
    if (count == 0) continue;  // an empty run may stand anywhere
    if (!place.take_run(count, stride)) return place.fault_of_run(count, stride, in);
    visit({place.start(), count, stride});
  }
  return place.patched();  // DONE is only padding, so a stream may end without one
}

Result<std::uint64_t> macho_walk_binds(const MachImage& image, BindStream stream,
                                       const std::function<Result<void>(const PointerRun&, const Import&)>& visit) {
  const auto bytes = stream_bytes(image, stream);
  if (bytes.empty()) return 0;
  const char* const name = stream_name(stream);
  ByteReader in(bytes);
  FixupPlace place(image, name);
  Import import;

  while (!in.at_end()) {
    const auto byte = in.read<std::uint8_t>();
    const unsigned immediate = byte & IMMEDIATE_MASK;
    std::uint64_t count = 0;
    std::uint64_t stride = pointer_size;
    switch (byte & OPCODE_MASK) {
      case BIND_OPCODE_DONE:
        if (stream != BindStream::lazy_binds) return place.patched();
        break;
      case BIND_OPCODE_SET_DYLIB_ORDINAL_IMM: import.ordinal = static_cast<std::int32_t>(immediate); break;
      case BIND_OPCODE_SET_DYLIB_ORDINAL_ULEB: import.ordinal = static_cast<std::int32_t>(in.uleb128()); break;
      case BIND_OPCODE_SET_DYLIB_SPECIAL_IMM:
        import.ordinal = immediate == 0 ? 0 : static_cast<std::int8_t>(OPCODE_MASK | immediate);
        break;
      case BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM:
        import.flags = immediate;
        import.name = in.c_string();
        if (!in.ok()) {
          return place.damaged(fault("%s stream, offset %zu: the symbol name has no end", name, in.offset()));
        }
        break;
      case BIND_OPCODE_SET_TYPE_IMM: break;  // every bind of a 64-bit image is of a pointer
      case BIND_OPCODE_SET_ADDEND_SLEB: import.addend = static_cast<std::uint64_t>(in.sleb128()); break;
      case BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB: place.set(static_cast<int>(immediate), in.uleb128()); break;
      case BIND_OPCODE_ADD_ADDR_ULEB: place.advance(in.uleb128()); break;
      case BIND_OPCODE_DO_BIND: count = 1; break;
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
      default: return fault("unknown bind opcode 0x%02x", byte & OPCODE_MASK);
    }
    if (count == 0) continue;

    if (!place.take_run(count, stride)) return place.fault_of_run(count, stride, in);
    if (import.name.data() == nullptr) {
      return place.damaged(fault("%s stream, before offset %zu: a bind without a symbol name", name, in.offset()));
    }
    if (const auto visited = visit({place.start(), count, stride}, import); !visited) {
      return place.damaged(fault("%s stream, before offset %zu: %s", name, in.offset(), visited.error().text.c_str()));
    }
  }
  return place.patched();
}

Result<std::uint64_t> macho_rebase(const MachImage& image, std::span<std::byte> memory) {
  const auto slide = static_cast<std::uint64_t>(image.slide);
  return macho_walk_rebases(image, [&](PointerRun run) {
    for (; run.count != 0; --run.count, run.offset += run.stride) {
      std::uint64_t pointer;
      std::memcpy(&pointer, &memory[run.offset], sizeof pointer);
      pointer += slide;
      std::memcpy(&memory[run.offset], &pointer, sizeof pointer);
    }
  });
}

Result<std::uint64_t> macho_bind(const MachImage& image, std::span<std::byte> memory, BindStream stream,
                                 const SymbolSources& sources) {
  ImportResolver resolver(image, sources);
  return macho_walk_binds(image, stream, [&](PointerRun run, const Import& import) -> Result<void> {
    const auto address = resolver.resolve(import);
    if (!address) return std::unexpected(address.error());
    const std::uint64_t pointer = *address + import.addend;
    for (; run.count != 0; --run.count, run.offset += run.stride) {
      std::memcpy(&memory[run.offset], &pointer, sizeof pointer);
    }
    return {};
  });
}

}  // namespace vlm
