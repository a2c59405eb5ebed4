#include "shared/portable_executable.h"

#include <algorithm>

#include "support/byte_reader.h"

namespace vlm::tools {
namespace {

constexpr std::uint16_t IMAGE_DOS_SIGNATURE = 0x5A4D;  // "MZ"
constexpr std::size_t e_lfanew = 0x3C;                 // where the DOS header names the place of the next signature
constexpr std::uint32_t IMAGE_NT_SIGNATURE = 0x4550;   // "PE"
constexpr std::uint16_t IMAGE_FILE_MACHINE_AMD64 = 0x8664;
constexpr std::uint16_t IMAGE_NT_OPTIONAL_HDR64_MAGIC = 0x20B;

struct FileHeader {
  std::uint16_t Machine;
  std::uint16_t NumberOfSections;
  std::uint32_t TimeDateStamp;
  std::uint32_t PointerToSymbolTable;
  std::uint32_t NumberOfSymbols;
  std::uint16_t SizeOfOptionalHeader;
  std::uint16_t Characteristics;
};
static_assert(sizeof(FileHeader) == 20);

/// As far as it is needed here.
struct OptionalHeader {
  std::uint16_t Magic;
  std::uint8_t MajorLinkerVersion;
  std::uint8_t MinorLinkerVersion;
  std::uint32_t SizeOfCode;
  std::uint32_t SizeOfInitializedData;
  std::uint32_t SizeOfUninitializedData;
  std::uint32_t AddressOfEntryPoint;
  std::uint32_t BaseOfCode;
  std::uint64_t ImageBase;
};
static_assert(sizeof(OptionalHeader) == 32 && offsetof(OptionalHeader, ImageBase) == 24);

struct SectionHeader {
  char Name[8];  // NUL-padded
  std::uint32_t VirtualSize;
  std::uint32_t VirtualAddress;
  std::uint32_t SizeOfRawData;  // rounded up in the file
  std::uint32_t PointerToRawData;
  std::uint32_t PointerToRelocations;
  std::uint32_t PointerToLinenumbers;
  std::uint16_t NumberOfRelocations;
  std::uint16_t NumberOfLinenumbers;
  std::uint32_t Characteristics;
};
static_assert(sizeof(SectionHeader) == 40);

}  // namespace

Result<PortableExecutable> PortableExecutable::open(std::span<const std::byte> file) {
  if (ByteReader(file).read<std::uint16_t>() != IMAGE_DOS_SIGNATURE) {
    return fault("it does not begin with \"MZ\", so it is no Windows library");
  }
  ByteReader in(file, ByteReader(file, e_lfanew).read<std::uint32_t>());
  const auto signature = in.read<std::uint32_t>();
  const auto header = in.read<FileHeader>();
  const std::size_t optional_at = in.offset();
  const auto optional = in.read<OptionalHeader>();
  if (!in.ok() || signature != IMAGE_NT_SIGNATURE || header.Machine != IMAGE_FILE_MACHINE_AMD64 ||
      optional.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) {
    return fault("it is no 64-bit Windows library");
  }
  PortableExecutable opened;
  ByteReader table(file, optional_at + header.SizeOfOptionalHeader);
  for (unsigned i = 0; i < header.NumberOfSections; ++i) {
    const std::size_t name_at = table.offset();
    const auto section = table.read<SectionHeader>();
    if (!table.ok()) return fault("its table of %u sections is cut after %u", header.NumberOfSections, i);
    const std::uint32_t size = std::min(section.VirtualSize, section.SizeOfRawData);
    if (size == 0) continue;
    if (!range_fits(section.PointerToRawData, size, file.size())) {
      return fault("section %u takes %u bytes at %u of a file of %zu", i, size, section.PointerToRawData, file.size());
    }
    const auto* name = reinterpret_cast<const char*>(file.data() + name_at);
    const std::string_view padded(name, sizeof section.Name);
    opened.sections_.push_back({padded.substr(0, padded.find('\0')), optional.ImageBase + section.VirtualAddress,
                                file.subspan(section.PointerToRawData, size)});
  }
  return opened;
}

std::span<const std::byte> PortableExecutable::section(std::string_view name) const {
  const auto found = std::ranges::find(sections_, name, &Section::name);
  return found == sections_.end() ? std::span<const std::byte>() : found->bytes;
}

std::span<const std::byte> PortableExecutable::bytes_at(std::uint64_t address) const {
  for (const Section& section : sections_) {
    const std::uint64_t offset = address - section.address;
    if (offset < section.bytes.size()) return section.bytes.subspan(offset);
  }
  return {};
}

}  // namespace vlm::tools
