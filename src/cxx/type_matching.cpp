// A type's kind is told by its virtual table: each of six objects below stands for the table of one kind, and
// type_info objects point 16 bytes into them.
//
// Only type_info objects inside an image are ever read. One outside is an empty object that stands for a missing
// import (the C++ library's own types, such as int's): it equals itself, and its symbol says what it would have been.
#include "cxx/type_matching.h"

#include <cstddef>
#include <cstring>
#include <string_view>

#include "binding/shim_table.h"
#include "cxx/shims.h"
#include "macho/image.h"

namespace vlm {
namespace {

struct alignas(16) VirtualTable {
  std::byte bytes[64];
};
const VirtualTable class_table = {}, si_class_table = {}, vmi_class_table = {}, pointer_table = {}, function_table = {},
                   fundamental_table = {};

struct TypeInfo {
  std::uint64_t vtable;
  std::uint64_t name;  // bit 63: the name is unique, so that addresses could be compared
};
static_assert(sizeof(TypeInfo) == 16);

/// abi::__si_class_type_info: one public base at offset 0.
struct SiClassTypeInfo {
  TypeInfo type;
  std::uint64_t base;
};
static_assert(offsetof(SiClassTypeInfo, base) == 16);

/// abi::__vmi_class_type_info; base_count bases follow.
struct VmiClassTypeInfo {
  TypeInfo type;
  std::uint32_t flags;
  std::uint32_t base_count;
};
static_assert(sizeof(VmiClassTypeInfo) == 24);

/// abi::__base_class_type_info
struct BaseClass {
  std::uint64_t type;
  std::int64_t offset_flags;  // flags in the low byte, the base's offset above
};
static_assert(sizeof(BaseClass) == 16);
constexpr std::int64_t virtual_mask = 1, public_mask = 2;

/// abi::__pbase_type_info
struct PointerTypeInfo {
  TypeInfo type;
  std::uint32_t flags;
  std::uint64_t pointee;
};
static_assert(offsetof(PointerTypeInfo, pointee) == 24);

const MachImage* image_holding(std::uint64_t address, std::uint64_t size) {
  for (const MachImage* image : macho_images()) {
    if (image->contains(address, size)) return image;
  }
  return nullptr;
}

template <class T>
std::optional<T> read(std::uint64_t address) {
  if (image_holding(address, sizeof(T)) == nullptr) return std::nullopt;
  T value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof value);
  return value;
}

bool is_kind(const std::optional<TypeInfo>& type, const VirtualTable& table) {
  return type && type->vtable == reinterpret_cast<std::uint64_t>(&table) + 16;
}

const char* name_of(const TypeInfo& type) {
  const std::uint64_t address = type.name & ~(std::uint64_t{1} << 63);
  const MachImage* image = image_holding(address, 1);
  if (image == nullptr) return nullptr;
  const auto* name = reinterpret_cast<const char*>(address);
  return std::memchr(name, 0, image->base + image->extent() - address) != nullptr ? name : nullptr;
}

/// What names a type where nothing else does: its own name, or the symbol of the import that was not found.
std::string_view identity_of(std::uint64_t address, const std::optional<TypeInfo>& type) {
  const char* name = type ? name_of(*type) : missing_symbol_name(reinterpret_cast<const void*>(address));
  return name != nullptr ? name : std::string_view();
}

/// Bases of the C++ library's exceptions that game code can throw, whose own type_info is imported and so tells
/// nothing. All are single public bases at offset 0.
constexpr struct {
  std::string_view derived, base;
} standard_bases[] = {
    {"__ZTISt12out_of_range", "__ZTISt11logic_error"}, {"__ZTISt12length_error", "__ZTISt11logic_error"},
    {"__ZTISt11logic_error", "__ZTISt9exception"},     {"__ZTISt20bad_array_new_length", "__ZTISt9bad_alloc"},
    {"__ZTISt9bad_alloc", "__ZTISt9exception"},        {"__ZTISt8bad_cast", "__ZTISt9exception"},
};

/// Whether the import `derived` stands for a type with the base for which `base` stands.
bool is_standard_base(std::string_view base, std::string_view derived) {
  for (const auto& row : standard_bases) {
    if (row.derived == derived) return row.base == base || is_standard_base(base, row.base);
  }
  return false;
}

class Matcher {
 public:
  std::optional<std::uint64_t> match(std::uint64_t caught, std::uint64_t thrown, std::uint64_t value) {
    if (caught == thrown) return value;
    if (budget_ == 0) return std::nullopt;
    --budget_;
    const auto thrown_type = read<TypeInfo>(thrown);
    const auto caught_type = read<TypeInfo>(caught);
    const auto identity = identity_of(thrown, thrown_type);
    const auto wanted = identity_of(caught, caught_type);
    if (!identity.empty() && (identity == wanted || is_standard_base(wanted, identity))) return value;
    if (is_kind(thrown_type, pointer_table) && is_kind(caught_type, pointer_table)) {
      return match_pointees(caught, thrown, value);
    }
    if (is_kind(thrown_type, si_class_table)) {
      const auto type = read<SiClassTypeInfo>(thrown);
      return type ? match(caught, type->base, value) : std::nullopt;
    }
    if (is_kind(thrown_type, vmi_class_table)) return match_bases(caught, thrown, value);
    return std::nullopt;
  }

 private:
  std::optional<std::uint64_t> match_pointees(std::uint64_t caught, std::uint64_t thrown, std::uint64_t value) {
    const auto from = read<PointerTypeInfo>(thrown), to = read<PointerTypeInfo>(caught);
    if (!from || !to) return std::nullopt;
    const auto adjusted = match(to->pointee, from->pointee, value);
    return adjusted && value == 0 ? 0 : adjusted;  // a null pointer has no base to point at
  }

  std::optional<std::uint64_t> match_bases(std::uint64_t caught, std::uint64_t thrown, std::uint64_t value) {
    const auto type = read<VmiClassTypeInfo>(thrown);
    if (!type) return std::nullopt;
    for (std::uint64_t i = 0; i < type->base_count && budget_ != 0; ++i) {
      const auto base = read<BaseClass>(thrown + sizeof(VmiClassTypeInfo) + i * sizeof(BaseClass));
      if (!base) break;
      if ((base->offset_flags & (public_mask | virtual_mask)) != public_mask) continue;
      const auto offset = static_cast<std::uint64_t>(base->offset_flags >> 8);
      if (const auto adjusted = match(caught, base->type, value + offset)) return adjusted;
    }
    return std::nullopt;
  }

  unsigned budget_ = 1000;  // comparisons: types that lead back to themselves come to an end
};

}  // namespace

const char* type_name(std::uint64_t type) {
  const auto info = read<TypeInfo>(type);
  return info ? name_of(*info) : nullptr;
}

bool is_pointer_type(std::uint64_t type) {
  const auto info = read<TypeInfo>(type);
  return info ? is_kind(info, pointer_table) : identity_of(type, info).starts_with("__ZTIP");
}

std::optional<std::uint64_t> match_type(std::uint64_t caught, std::uint64_t thrown, std::uint64_t value) {
  return caught == 0 ? value : Matcher().match(caught, thrown, value);
}

const ShimEntry type_table_rows[] = {
    {"__ZTVN10__cxxabiv117__class_type_infoE", shim(&class_table)},
    {"__ZTVN10__cxxabiv120__si_class_type_infoE", shim(&si_class_table)},
    {"__ZTVN10__cxxabiv121__vmi_class_type_infoE", shim(&vmi_class_table)},
    {"__ZTVN10__cxxabiv119__pointer_type_infoE", shim(&pointer_table)},
    {"__ZTVN10__cxxabiv120__function_type_infoE", shim(&function_table)},
    {"__ZTVN10__cxxabiv123__fundamental_type_infoE", shim(&fundamental_table)},
};
constinit const ShimRows type_table_shims = type_table_rows;

}  // namespace vlm
