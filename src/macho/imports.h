// Who answers an import: the rule by which a name of a bind stream becomes an address.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "macho/image.h"

namespace vlm {

/// What the link editor wrote for the symbol of the next binds.
struct Import {
  std::string_view name;  // NUL-terminated, in the stream; data() is null until a name was read
  std::uint32_t flags = 0;
  std::int32_t ordinal = 0;  // positive: dylib_names[ordinal - 1]; 0: the image itself; negative: flat
  std::uint64_t addend = 0;
};

/// Where imports are looked up, besides the image's own exports; in this order.
struct SymbolSources {
  std::span<MachImage* const> images;  // those that other images may import from
  std::function<const void*(const char* library, const char* name)> lookup_shim;          // null: no such shim
  std::function<const void*(const char* library, const char* name)> make_missing_symbol;  // never null
};

enum class ImportAnswer {
  own_export,   // of the image itself
  other_image,  // an export of one of SymbolSources::images
  shim,
  weak_null,  // nobody, which is allowed: the import is weak
  missing,    // nobody: make_missing_symbol's object or stub
};

struct ResolvedImport {
  ImportAnswer answer;
  std::uint64_t address;
};

/// The short name of the library that an ordinal names, as messages and shims see it: "libSystem.B.dylib", "self" for
/// the image itself, "flat" for none in particular.
const char* macho_import_library(const MachImage& image, std::int32_t ordinal);

/// Looks an import up. Adds the bytes of export tries that were walked to `bytes_read`.
ResolvedImport macho_resolve_import(const MachImage& image, const Import& import, const SymbolSources& sources,
                                    std::uint64_t& bytes_read);

/// Bounds the look-ups of one stream. Each look-up walks tries and copies names. A stream with many different names and
/// a trie that is made to be slow could keep start-up busy for hours. The budget is counted in bytes: it is enough for
/// millions of imports, and used up after seconds.
class ResolutionBudget {
 public:
  /// False when the stream has asked for more than any real image needs.
  bool take(const Import& import) { return (used_ += per_import + import.name.size()) <= max_bytes; }
  std::uint64_t& bytes_read() { return used_; }

 private:
  static constexpr std::uint64_t max_bytes = std::uint64_t{1} << 32;
  static constexpr std::uint64_t per_import = 1024;
  std::uint64_t used_ = 0;
};

}  // namespace vlm
