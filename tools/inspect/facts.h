// What there is to say about an image: filled by gather(), judged by judge(), printed by the writers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vlm::inspect {

struct Slice {
  std::uint32_t cputype;
  std::uint64_t offset;
  std::uint64_t size;
  bool taken;
};

struct Segment {
  std::string name;
  std::uint64_t vmaddr;
  std::uint64_t vmsize;
  std::uint64_t filesize;
  std::uint32_t initprot;
};

struct Section {
  std::string segment;
  std::string name;
  std::uint64_t addr;
  std::uint64_t size;
  std::uint32_t flags;
};

/// From the header and the load commands alone: there for images that are refused, too, as far as they can be read.
struct Format {
  std::uint64_t file_size = 0;
  std::vector<Slice> slices;  // empty: a thin file
  bool is_macho = false;      // what is below can be read
  std::uint32_t cputype = 0;
  std::uint32_t filetype = 0;
  std::uint64_t extent = 0;
  std::vector<Segment> segments;
  std::vector<Section> sections;
  std::vector<std::string> libraries;  // in the order of their ordinals
  std::string install_name;
  std::string uuid;
  std::string minimum_os;
  bool chained_fixups = false;
  bool has_dyld_info = false;  // LC_DYLD_INFO, LC_DYLD_INFO_ONLY: what the loader links by
  bool has_routines = false;   // LC_ROUTINES, LC_ROUTINES_64
};

struct Fixups {
  std::uint64_t rebases = 0, binds = 0, weak_binds = 0, lazy_binds = 0;  // pointers
  std::vector<std::string> faults;                                       // at most one of each stream
};

enum class Answer {
  not_judged,  // no library was given
  own_export,
  shim,
  unused,  // dyld_stub_binder, which only lazy binding calls
  weak_null,
  zero_block,
  trap,
};

struct ImportedSymbol {
  std::string name;
  std::string library;  // short name, as messages say it
  std::string family;   // of the shim
  Answer answer;
  bool weak;               // may be null
  std::uint64_t pointers;  // that it is stored in
};

struct Linkage {
  Fixups fixups;
  std::vector<ImportedSymbol> imports;          // by name
  std::vector<std::string> missing_exports;     // il2cpp_* that the player may call
  std::vector<std::string> missing_reflection;  // of those that the library itself calls
};

struct Initializers {
  std::uint64_t run = 0;
  std::vector<std::string> outside_code;  // entries that end the start
  std::vector<std::string> not_run;       // kinds that macOS runs and the loader does not
};

/// Functions whose frames cannot be taken off the stack.
struct OpaqueFrame {
  std::uint64_t vmaddr;
  std::uint32_t encoding;
  std::string kind;
  std::string function;
};

struct Unwind {
  bool present = false;
  std::string fault;                           // the table cannot be read from here on
  std::map<std::string, std::uint64_t> kinds;  // entries
  std::vector<OpaqueFrame> opaque;
};

struct ThreadStorage {
  std::string fault;  // the code cannot be looked through
  std::uint64_t sites = 0;
  std::map<std::string, std::uint64_t> pieces;  // replaced pieces of code, by kind
  std::vector<std::string> refusals;
  std::vector<std::string> unread;

  enum class List { no_library, none, fits, differs };
  List list = List::no_library;
  std::uint64_t list_entries = 0;
  std::vector<std::string> list_problems;
};

struct NeededClass {
  std::string name;
  Answer answer;
};

struct ObjectiveC {
  std::vector<NeededClass> needed;
  std::uint64_t brought = 0;               // entries of the class list
  std::vector<std::string> brought_names;  // as far as symbols tell
};

enum Status { STARTS = 0, SOMETHING_MISSING = 1, NOT_LOADED = 2 };

struct Facts {
  std::string path;
  std::string library;  // empty: none was given
  std::size_t library_rows = 0;
  std::size_t library_families = 0;
  Format format;
  std::string refusal;  // why the loader does not take the file; what is absent below was not read then
  std::optional<Initializers> initializers;
  std::optional<Linkage> linkage;
  std::optional<Unwind> unwind;
  std::optional<ThreadStorage> thread_storage;
  std::optional<ObjectiveC> objective_c;

  Status status = STARTS;
  std::vector<std::string> reasons;  // for the status
};

}  // namespace vlm::inspect
