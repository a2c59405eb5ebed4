#include "cxx/lsda.h"

#include <span>

#include "support/byte_reader.h"

namespace vlm {
namespace {

enum PointerEncoding : std::uint8_t {
  DW_EH_PE_absptr = 0x0,
  DW_EH_PE_uleb128 = 0x1,
  DW_EH_PE_udata2 = 0x2,
  DW_EH_PE_udata4 = 0x3,
  DW_EH_PE_udata8 = 0x4,
  DW_EH_PE_sleb128 = 0x9,
  DW_EH_PE_sdata2 = 0xA,
  DW_EH_PE_sdata4 = 0xB,
  DW_EH_PE_sdata8 = 0xC,
  DW_EH_PE_pcrel = 0x10,
  DW_EH_PE_indirect = 0x80,
  DW_EH_PE_omit = 0xFF,
};
constexpr std::uint8_t format_mask = 0x0F;
constexpr std::uint8_t application_mask = 0x70;

/// A chain longer than this is one that goes in circles.
constexpr int max_actions = 4096;

/// Bytes of a type table's entry.
std::uint64_t entry_size(std::uint8_t encoding) {
  switch (encoding & format_mask) {
    case DW_EH_PE_udata2:
    case DW_EH_PE_sdata2: return 2;
    case DW_EH_PE_udata4:
    case DW_EH_PE_sdata4: return 4;
    default: return 8;
  }
}

template <class T>
std::uint64_t read_signed(ByteReader& in) {
  return static_cast<std::uint64_t>(std::int64_t{in.read<T>()});
}

class LsdaReader {
 public:
  explicit LsdaReader(const MachImage& image)
      : base_(image.base), bytes_(reinterpret_cast<const std::byte*>(image.base), image.extent()) {}

  ByteReader at(std::uint64_t address) const { return ByteReader(bytes_, address - base_); }

  /// An encoded pointer. A cut one leaves `in` failed.
  Result<std::uint64_t> pointer(ByteReader& in, std::uint8_t encoding) const {
    if (encoding == DW_EH_PE_omit) return 0;
    const std::uint64_t place = base_ + in.offset();
    std::uint64_t value = 0;
    switch (encoding & format_mask) {
      case DW_EH_PE_absptr:
      case DW_EH_PE_udata8:
      case DW_EH_PE_sdata8: value = in.read<std::uint64_t>(); break;
      case DW_EH_PE_uleb128: value = in.uleb128(); break;
      case DW_EH_PE_sleb128: value = static_cast<std::uint64_t>(in.sleb128()); break;
      case DW_EH_PE_udata2: value = in.read<std::uint16_t>(); break;
      case DW_EH_PE_udata4: value = in.read<std::uint32_t>(); break;
      case DW_EH_PE_sdata2: value = read_signed<std::int16_t>(in); break;
      case DW_EH_PE_sdata4: value = read_signed<std::int32_t>(in); break;
      default: return fault("[eh] unsupported pointer encoding 0x%x", encoding);
    }
    if (value == 0) return 0;
    if ((encoding & application_mask) == DW_EH_PE_pcrel) value += place;
    if ((encoding & DW_EH_PE_indirect) != 0) {
      ByteReader slot = at(value);
      value = slot.read<std::uint64_t>();
      if (!slot.ok()) in.skip(~std::uint64_t{0});  // a pointer outside the image is as good as a cut one
    }
    return value;
  }

  std::span<const std::byte> bytes() const { return bytes_; }

 private:
  std::uint64_t base_;
  std::span<const std::byte> bytes_;
};

}  // namespace

Result<std::optional<LandingPad>> find_landing_pad(const MachImage& image, std::uint64_t lsda, std::uint64_t function,
                                                   std::uint64_t instruction) {
  const LsdaReader reader(image);
  const auto damaged = [&](const char* what) {
    return fault("[eh] the exception table at 0x%llx of the function at 0x%llx is damaged: %s",
                 static_cast<unsigned long long>(lsda - image.base),
                 static_cast<unsigned long long>(function - image.base), what);
  };
  if (!image.contains(lsda)) return damaged("outside the image");
  ByteReader in = reader.at(lsda);

  std::uint64_t landing_pads = function;
  if (const auto encoding = in.read<std::uint8_t>(); encoding != DW_EH_PE_omit) {
    const auto start = reader.pointer(in, encoding);
    if (!start) return std::unexpected(start.error());
    landing_pads = *start;
  }
  const auto type_encoding = in.read<std::uint8_t>();
  std::uint64_t types_end = 0;
  if (type_encoding != DW_EH_PE_omit) {
    const std::uint64_t offset = in.uleb128();
    types_end = image.base + in.offset() + offset;
  }
  const auto site_encoding = in.read<std::uint8_t>();
  const std::uint64_t sites_size = in.uleb128();
  if (!in.ok() || sites_size > in.left()) return damaged("its call sites leave the image");
  const std::size_t sites_end = in.offset() + sites_size;

  std::uint64_t landing_pad = 0;
  std::uint64_t action = 0;
  for (ByteReader sites(reader.bytes().first(sites_end), in.offset());;) {
    if (sites.at_end()) return std::nullopt;
    const auto start = reader.pointer(sites, site_encoding);
    if (!start) return std::unexpected(start.error());
    const std::uint64_t length = *reader.pointer(sites, site_encoding);
    landing_pad = *reader.pointer(sites, site_encoding);
    action = sites.uleb128();
    if (!sites.ok()) return damaged("a call site is cut");
    const std::uint64_t offset = instruction - function;
    if (offset < *start) return std::nullopt;
    if (offset - *start < length) break;
  }
  if (landing_pad == 0) return std::nullopt;
  LandingPad pad{landing_pads + landing_pad, action == 0, {}};
  if (!image.contains(pad.address)) return damaged("a landing pad is outside the image");
  if (action == 0) return pad;

  std::uint64_t at = sites_end + action - 1;
  for (int actions = 0;; ++actions) {
    if (actions == max_actions) return damaged("a chain of actions has no end");
    if (at >= reader.bytes().size()) return damaged("an action is outside the image");
    ByteReader record(reader.bytes(), at);
    const std::int64_t filter = record.sleb128();
    const std::uint64_t displacement_at = record.offset();
    const std::int64_t displacement = record.sleb128();
    if (filter == 0) {
      pad.has_cleanup = true;
    } else if (filter > 0) {
      ByteReader entry = reader.at(types_end - static_cast<std::uint64_t>(filter) * entry_size(type_encoding));
      const auto type = reader.pointer(entry, type_encoding);
      if (!type) return std::unexpected(type.error());
      if (type_encoding != DW_EH_PE_omit && !entry.ok()) return damaged("a type is outside the image");
      pad.clauses.push_back({filter, *type});
    }  // below 0: an exception specification, which does not stop an exception
    if (displacement == 0) break;
    at = displacement_at + static_cast<std::uint64_t>(displacement);
  }
  if (!pad.has_cleanup && pad.clauses.empty()) return std::nullopt;
  return pad;
}

}  // namespace vlm
