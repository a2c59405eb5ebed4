// The published Mach-O structures and numbers that are read here: <mach-o/fat.h>, <mach-o/loader.h>, <mach-o/nlist.h>.
// Fields keep the format's names. Everything is little-endian except the fat header, which is big-endian.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

inline constexpr std::uint32_t FAT_MAGIC = 0xCAFEBABE;
inline constexpr std::uint32_t MH_MAGIC_64 = 0xFEEDFACF;
inline constexpr std::uint32_t CPU_TYPE_X86_64 = 0x01000007;

struct FatHeader {
  std::uint32_t magic;
  std::uint32_t nfat_arch;
};
static_assert(sizeof(FatHeader) == 8);

struct FatArch {
  std::uint32_t cputype;
  std::uint32_t cpusubtype;
  std::uint32_t offset;
  std::uint32_t size;
  std::uint32_t align;
};
static_assert(sizeof(FatArch) == 20);

struct MachHeader64 {
  std::uint32_t magic;
  std::uint32_t cputype;
  std::uint32_t cpusubtype;
  std::uint32_t filetype;
  std::uint32_t ncmds;
  std::uint32_t sizeofcmds;
  std::uint32_t flags;
  std::uint32_t reserved;
};
static_assert(sizeof(MachHeader64) == 32);

enum LoadCommandNumber : std::uint32_t {
  LC_SYMTAB = 0x2,
  LC_LOAD_DYLIB = 0xC,
  LC_ID_DYLIB = 0xD,
  LC_ROUTINES = 0x11,
  LC_SEGMENT_64 = 0x19,
  LC_ROUTINES_64 = 0x1A,
  LC_UUID = 0x1B,
  LC_DYLD_INFO = 0x22,
  LC_VERSION_MIN_MACOSX = 0x24,
  LC_FUNCTION_STARTS = 0x26,
  LC_DATA_IN_CODE = 0x29,
  LC_BUILD_VERSION = 0x32,
  LC_LOAD_WEAK_DYLIB = 0x80000018,
  LC_REEXPORT_DYLIB = 0x8000001F,
  LC_DYLD_INFO_ONLY = 0x80000022,
  LC_LOAD_UPWARD_DYLIB = 0x80000023,
  LC_DYLD_CHAINED_FIXUPS = 0x80000034,
};

struct LoadCommand {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
};
static_assert(sizeof(LoadCommand) == 8);

enum VmProtection : std::uint32_t { VM_PROT_READ = 1, VM_PROT_WRITE = 2, VM_PROT_EXECUTE = 4 };

struct SegmentCommand64 {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  char segname[16];
  std::uint64_t vmaddr;
  std::uint64_t vmsize;
  std::uint64_t fileoff;
  std::uint64_t filesize;
  std::uint32_t maxprot;
  std::uint32_t initprot;
  std::uint32_t nsects;
  std::uint32_t flags;
};
static_assert(sizeof(SegmentCommand64) == 72 && offsetof(SegmentCommand64, vmaddr) == 24);

struct Section64 {
  char sectname[16];
  char segname[16];
  std::uint64_t addr;
  std::uint64_t size;
  std::uint32_t offset;
  std::uint32_t align;
  std::uint32_t reloff;
  std::uint32_t nreloc;
  std::uint32_t flags;
  std::uint32_t reserved1;
  std::uint32_t reserved2;
  std::uint32_t reserved3;
};
static_assert(sizeof(Section64) == 80 && offsetof(Section64, addr) == 32);

/// The kind of a section is the low byte of its flags.
inline constexpr std::uint32_t SECTION_TYPE = 0x000000FF;
inline constexpr std::uint32_t S_ATTR_PURE_INSTRUCTIONS = 0x80000000;
inline constexpr std::uint32_t S_ATTR_SOME_INSTRUCTIONS = 0x00000400;

enum SectionType : std::uint32_t {
  S_MOD_INIT_FUNC_POINTERS = 0x9,
  S_THREAD_LOCAL_VARIABLES = 0x13,
  S_THREAD_LOCAL_INIT_FUNCTION_POINTERS = 0x15,
  S_INIT_FUNC_OFFSETS = 0x16,
};

struct SymtabCommand {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t symoff;
  std::uint32_t nsyms;
  std::uint32_t stroff;
  std::uint32_t strsize;
};
static_assert(sizeof(SymtabCommand) == 24);

/// Of LC_FUNCTION_STARTS, LC_DATA_IN_CODE and others whose data lies in __LINKEDIT.
struct LinkeditDataCommand {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t dataoff;
  std::uint32_t datasize;
};
static_assert(sizeof(LinkeditDataCommand) == 16);

struct DyldInfoCommand {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t rebase_off, rebase_size;
  std::uint32_t bind_off, bind_size;
  std::uint32_t weak_bind_off, weak_bind_size;
  std::uint32_t lazy_bind_off, lazy_bind_size;
  std::uint32_t export_off, export_size;
};
static_assert(sizeof(DyldInfoCommand) == 48);

struct DylibCommand {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t name;  // lc_str: offset of the install name from the command's start
  std::uint32_t timestamp;
  std::uint32_t current_version;
  std::uint32_t compatibility_version;
};
static_assert(sizeof(DylibCommand) == 24);

struct Nlist64 {
  std::uint32_t n_strx;
  std::uint8_t n_type;
  std::uint8_t n_sect;
  std::uint16_t n_desc;
  std::uint64_t n_value;
};
static_assert(sizeof(Nlist64) == 16 && offsetof(Nlist64, n_value) == 8);

enum SymbolType : std::uint8_t { N_EXT = 0x01, N_TYPE = 0x0E, N_SECT = 0x0E, N_PEXT = 0x10, N_STAB = 0xE0 };

enum ExportFlags : std::uint64_t {
  EXPORT_SYMBOL_FLAGS_KIND_MASK = 0x03,
  EXPORT_SYMBOL_FLAGS_KIND_ABSOLUTE = 0x02,
  EXPORT_SYMBOL_FLAGS_REEXPORT = 0x08,
  EXPORT_SYMBOL_FLAGS_STUB_AND_RESOLVER = 0x10,
};

// Opcode streams of LC_DYLD_INFO: the opcode is a byte's high nibble, its immediate the low one.
inline constexpr std::uint8_t OPCODE_MASK = 0xF0;
inline constexpr std::uint8_t IMMEDIATE_MASK = 0x0F;

enum RebaseOpcode : std::uint8_t {
  REBASE_OPCODE_DONE = 0x00,
  REBASE_OPCODE_SET_TYPE_IMM = 0x10,
  REBASE_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB = 0x20,
  REBASE_OPCODE_ADD_ADDR_ULEB = 0x30,
  REBASE_OPCODE_ADD_ADDR_IMM_SCALED = 0x40,
  REBASE_OPCODE_DO_REBASE_IMM_TIMES = 0x50,
  REBASE_OPCODE_DO_REBASE_ULEB_TIMES = 0x60,
  REBASE_OPCODE_DO_REBASE_ADD_ADDR_ULEB = 0x70,
  REBASE_OPCODE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB = 0x80,
};

enum BindOpcode : std::uint8_t {
  BIND_OPCODE_DONE = 0x00,
  BIND_OPCODE_SET_DYLIB_ORDINAL_IMM = 0x10,
  BIND_OPCODE_SET_DYLIB_ORDINAL_ULEB = 0x20,
  BIND_OPCODE_SET_DYLIB_SPECIAL_IMM = 0x30,
  BIND_OPCODE_SET_SYMBOL_TRAILING_FLAGS_IMM = 0x40,
  BIND_OPCODE_SET_TYPE_IMM = 0x50,
  BIND_OPCODE_SET_ADDEND_SLEB = 0x60,
  BIND_OPCODE_SET_SEGMENT_AND_OFFSET_ULEB = 0x70,
  BIND_OPCODE_ADD_ADDR_ULEB = 0x80,
  BIND_OPCODE_DO_BIND = 0x90,
  BIND_OPCODE_DO_BIND_ADD_ADDR_ULEB = 0xA0,
  BIND_OPCODE_DO_BIND_ADD_ADDR_IMM_SCALED = 0xB0,
  BIND_OPCODE_DO_BIND_ULEB_TIMES_SKIPPING_ULEB = 0xC0,
};

inline constexpr std::uint8_t BIND_SYMBOL_FLAGS_WEAK_IMPORT = 0x1;

}  // namespace vlm
