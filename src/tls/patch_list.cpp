#include "tls/patch_list.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "support/byte_reader.h"

namespace vlm {
namespace {

constexpr std::size_t header_size = 16;
constexpr std::uint64_t trampoline_alignment = 16;
constexpr std::uint8_t jmp_rel32 = 0xE9;
constexpr std::byte nop{0x90};

// The load of the storage block in a template, "mov R, gs:[R]", from the end of the address slot.
constexpr std::size_t gs_load = 11;  // 65 REX 8B ModRM, from the slot's start
constexpr std::size_t gs_load_size = 4;
constexpr std::uint8_t gs_prefix = 0x65;
constexpr std::uint8_t mov_load = 0x8B;
constexpr std::uint8_t rex_w_and_r = 0x4C;

std::uint64_t trampoline_space(const PatchEntry& entry, bool expansion) {
  const std::uint64_t length = entry.trampoline.size() + (expansion ? expansion_growth : 0);
  return (length + trampoline_alignment - 1) & ~(trampoline_alignment - 1);
}

template <class T>
void store(std::span<std::byte> to, std::size_t offset, T value) {
  std::memcpy(to.subspan(offset, sizeof value).data(), &value, sizeof value);
}

template <class T>
void append(std::vector<std::byte>& to, const T& value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  to.insert(to.end(), bytes.begin(), bytes.end());
}

/// What stands for "mov R, gs:[R]" when the slot is in the expansion array:
///   mov R, gs:[0x1780]        65 X' 8B ModRM SIB disp32   TEB.TlsExpansionSlots; no base, so no base bit in the prefix
///   mov R, [R + offset]       X 8B ModRM disp32
std::array<std::uint8_t, gs_load_size + expansion_growth> expansion_load(std::span<const std::byte> load,
                                                                         std::uint32_t offset) {
  const auto prefix = std::to_integer<std::uint8_t>(load[1]);
  const auto r = static_cast<std::uint8_t>(std::to_integer<unsigned>(load[3]) & 7);
  std::array<std::uint8_t, gs_load_size + expansion_growth> code = {
      gs_prefix, static_cast<std::uint8_t>(prefix & rex_w_and_r),
      mov_load,  static_cast<std::uint8_t>(r * 8 + 4),
      0x25,      0x80,
      0x17,      0x00,
      0x00,      prefix,
      mov_load,  static_cast<std::uint8_t>(0x80 + r * 8 + r)};
  std::memcpy(code.data() + code.size() - sizeof offset, &offset, sizeof offset);
  return code;
}

/// Copies the template to `to`, which has the template's length and the growth of expansion mode.
void write_trampoline(const PatchEntry& entry, const PatchTarget& target, std::span<std::byte> to,
                      std::uint64_t return_address) {
  const auto from = entry.trampoline;
  if (target.expansion) {
    const std::size_t load = entry.slot + gs_load;
    const auto code =
        expansion_load(from.subspan(load, gs_load_size), static_cast<std::uint32_t>(*target.game_storage_offset));
    std::ranges::copy(from.first(load), to.begin());
    std::memcpy(to.data() + load, code.data(), code.size());
    std::ranges::copy(from.subspan(load + gs_load_size), to.subspan(load + code.size()).begin());
  } else {
    std::ranges::copy(from, to.begin());
  }
  store(to, entry.slot, reinterpret_cast<std::uint64_t>(target.game_storage_offset));
  store(to, to.size() - sizeof return_address, return_address);
}

}  // namespace

bool has_gs_load(const PatchEntry& entry) {
  if (entry.slot + gs_load + gs_load_size > entry.trampoline.size()) return false;
  const auto load = entry.trampoline.subspan(entry.slot + gs_load, gs_load_size);
  const unsigned rm = std::to_integer<unsigned>(load[3]) & 7;
  return load[0] == std::byte{gs_prefix} && load[2] == std::byte{mov_load} && rm != 4 && rm != 5;
}

PatchListReader::PatchListReader(std::span<const std::byte> blob) : blob_(blob), offset_(header_size) {
  count_ = ByteReader(blob, sizeof gs_patch_magic).read<std::uint32_t>();  // the upper half of the field is not read
}

std::optional<PatchEntry> PatchListReader::next() {
  ByteReader in(blob_, offset_);
  PatchEntry entry;
  entry.site = in.read<std::uint32_t>();
  const auto site_length = in.read<std::uint8_t>();
  const auto expected_at = in.offset();
  in.skip(site_length);
  const auto trampoline_length = in.read<std::uint16_t>();
  entry.slot = in.read<std::uint16_t>();
  const auto trampoline_at = in.offset();
  in.skip(trampoline_length);
  if (!in.ok()) return std::nullopt;
  entry.expected = blob_.subspan(expected_at, site_length);
  entry.trampoline = blob_.subspan(trampoline_at, trampoline_length);
  offset_ = in.offset();
  return entry;
}

std::optional<std::uint64_t> gs_patch_blob_size(std::span<const std::byte, gs_patch_trailer_size> trailer) {
  if (std::memcmp(trailer.data() + 8, gs_patch_end_magic, sizeof gs_patch_end_magic) != 0) return std::nullopt;
  const auto size = ByteReader(trailer).read<std::uint64_t>();
  if (size == 0 || size > max_gs_patch_blob) return std::nullopt;
  return size;
}

std::vector<std::byte> write_patch_list(std::span<const PatchEntry> entries) {
  std::vector<std::byte> list;
  append(list, gs_patch_magic);
  append(list, std::uint64_t{entries.size()});
  for (const PatchEntry& entry : entries) {
    append(list, entry.site);
    append(list, static_cast<std::uint8_t>(entry.expected.size()));
    list.insert(list.end(), entry.expected.begin(), entry.expected.end());
    append(list, static_cast<std::uint16_t>(entry.trampoline.size()));
    append(list, entry.slot);
    list.insert(list.end(), entry.trampoline.begin(), entry.trampoline.end());
  }
  append(list, std::uint64_t{list.size()});
  append(list, gs_patch_end_magic);
  return list;
}

Result<std::uint64_t> measure_patch_list(std::span<const std::byte> blob, bool expansion, const char* name) {
  if (blob.size() < header_size || std::memcmp(blob.data(), gs_patch_magic, sizeof gs_patch_magic) != 0) {
    return fault("%s is not a gs patch file", name);
  }
  std::uint64_t total = 0;
  PatchListReader reader(blob);
  for (std::uint32_t i = 0; i < reader.count(); ++i) {
    const auto entry = reader.next();
    if (!entry) return fault("%s is truncated", name);
    total += trampoline_space(*entry, expansion);
  }
  return std::max(total, trampoline_alignment);
}

Result<std::uint32_t> apply_patch_list(std::span<const std::byte> blob, const PatchTarget& target, const char* name) {
  PatchListReader reader(blob);
  std::size_t position = 0;
  for (std::uint32_t i = 0; i < reader.count(); ++i) {
    const auto entry = reader.next();
    if (!entry) return fault("%s is truncated", name);
    const std::size_t site_length = entry->expected.size();
    if (site_length < min_site_length || entry->trampoline.size() < min_trampoline_length ||
        entry->slot + sizeof(std::uint64_t) > entry->trampoline.size() ||
        !range_fits(entry->site, site_length, target.image.size())) {
      return fault("%s: bad entry %u", name, i);
    }

    const auto site = target.image.subspan(entry->site, site_length);
    if (!std::ranges::equal(site, entry->expected)) {
      const auto* found = reinterpret_cast<const unsigned char*>(site.data());
      const auto* expected = reinterpret_cast<const unsigned char*>(entry->expected.data());
      return fault(
          "gs patch site 0x%x does not match (found %02x %02x %02x %02x, expected %02x %02x %02x %02x): "
          "%s was made for a different GameAssembly.dylib",
          entry->site, found[0], found[1], found[2], found[3], expected[0], expected[1], expected[2], expected[3],
          name);
    }
    if (target.expansion && !has_gs_load(*entry)) return fault("%s: unexpected trampoline layout in entry %u", name, i);

    const auto trampoline =
        target.trampolines.subspan(position, entry->trampoline.size() + (target.expansion ? expansion_growth : 0));
    const auto site_address = reinterpret_cast<std::uint64_t>(site.data());
    const auto displacement =
        static_cast<std::int64_t>(reinterpret_cast<std::uint64_t>(trampoline.data()) - (site_address + 5));
    if (displacement != static_cast<std::int32_t>(displacement)) return fault("gs trampoline out of range");

    write_trampoline(*entry, target, trampoline, site_address + site_length);
    store(site, 0, jmp_rel32);
    store(site, 1, static_cast<std::int32_t>(displacement));
    std::ranges::fill(site.subspan(min_site_length), nop);
    position += trampoline_space(*entry, target.expansion);
  }
  return reader.count();
}

}  // namespace vlm
