#include <cstdio>
#include <string_view>

#include "inspect/names.h"
#include "inspect/writers.h"
#include "shared/files.h"
#include "shared/text.h"

namespace vlm::inspect {
namespace {

using tools::cpu_name;
using tools::utf8_length;

/// Writes values one behind the other and sets the commas.
class Json {
 public:
  /// `name` is empty for what stands in a list.
  void open(std::string_view name, char bracket) {
    begin(name);
    out_ += bracket;
    first_ = true;
  }
  void close(char bracket) {
    out_ += bracket;
    first_ = false;
  }
  void text(std::string_view name, std::string_view value) {
    begin(name);
    quote(value);
  }
  void number(std::string_view name, std::uint64_t value) {
    begin(name);
    out_ += std::to_string(value);
  }
  void truth(std::string_view name, bool value) {
    begin(name);
    out_ += value ? "true" : "false";
  }

  /// A list with an object for each element, or with a text for each.
  template <class List, class Write>
  void list(std::string_view name, const List& elements, Write write) {
    open(name, '[');
    for (const auto& element : elements) {
      open("", '{');
      write(element);
      close('}');
    }
    close(']');
  }
  void texts(std::string_view name, const std::vector<std::string>& elements) {
    open(name, '[');
    for (const std::string& element : elements) text("", element);
    close(']');
  }
  void counts(std::string_view name, const std::map<std::string, std::uint64_t>& elements) {
    open(name, '{');
    for (const auto& [key, count] : elements) number(key, count);
    close('}');
  }

  std::string take() { return std::move(out_) + "\n"; }

 private:
  void begin(std::string_view name) {
    if (!first_) out_ += ',';
    first_ = false;
    if (name.empty()) return;
    quote(name);
    out_ += ':';
  }

  void quote(std::string_view value) {
    out_ += '"';
    while (!value.empty()) {
      const std::size_t length = utf8_length(value);
      const char first = value.front();
      if (length == 0) {
        out_ += "\\ufffd";
      } else if (first == '"' || first == '\\') {
        (out_ += '\\') += first;
      } else if (static_cast<unsigned char>(first) < 0x20 || first == 0x7F) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(first));
        out_ += escaped;
      } else {
        out_ += value.substr(0, length);
      }
      value.remove_prefix(length == 0 ? 1 : length);
    }
    out_ += '"';
  }

  std::string out_;
  bool first_ = true;
};

void write_format(Json& json, const Format& format) {
  json.open("format", '{');
  json.number("file_size", format.file_size);
  json.list("slices", format.slices, [&](const Slice& slice) {
    json.text("cpu", cpu_name(slice.cputype));
    json.number("offset", slice.offset);
    json.number("size", slice.size);
    json.truth("taken", slice.taken);
  });
  json.truth("macho", format.is_macho);
  if (format.is_macho) {
    json.text("cpu", cpu_name(format.cputype));
    json.text("kind", file_kind(format.filetype));
    json.text("install_name", format.install_name);
    json.text("uuid", format.uuid);
    json.text("minimum_os", format.minimum_os);
    json.text("fixups", format.chained_fixups ? "chained" : format.has_dyld_info ? "classic" : "none");
    json.number("extent", format.extent);
    json.list("segments", format.segments, [&](const Segment& segment) {
      json.text("name", segment.name);
      json.number("vmaddr", segment.vmaddr);
      json.number("vmsize", segment.vmsize);
      json.number("filesize", segment.filesize);
      json.text("protection", protection(segment.initprot));
    });
    json.list("sections", format.sections, [&](const Section& section) {
      json.text("segment", section.segment);
      json.text("name", section.name);
      json.number("addr", section.addr);
      json.number("size", section.size);
      json.number("flags", section.flags);
    });
    json.texts("libraries", format.libraries);
  }
  json.close('}');
}

void write_linkage(Json& json, const Linkage& linkage) {
  json.open("fixups", '{');
  json.number("rebases", linkage.fixups.rebases);
  json.number("binds", linkage.fixups.binds);
  json.number("weak_binds", linkage.fixups.weak_binds);
  json.number("lazy_binds", linkage.fixups.lazy_binds);
  json.texts("faults", linkage.fixups.faults);
  json.close('}');
  json.list("imports", linkage.imports, [&](const ImportedSymbol& import) {
    json.text("name", import.name);
    json.text("library", import.library);
    json.text("answer", answer_name(import.answer));
    if (!import.family.empty()) json.text("family", import.family);
    json.truth("weak", import.weak);
    json.number("pointers", import.pointers);
  });
  json.texts("missing_exports", linkage.missing_exports);
  json.texts("missing_reflection", linkage.missing_reflection);
}

void write_unwind(Json& json, const Unwind& unwind) {
  json.open("unwind", '{');
  json.truth("present", unwind.present);
  json.text("fault", unwind.fault);
  json.counts("kinds", unwind.kinds);
  json.list("opaque", unwind.opaque, [&](const OpaqueFrame& frame) {
    json.number("vmaddr", frame.vmaddr);
    json.number("encoding", frame.encoding);
    json.text("kind", frame.kind);
    json.text("function", frame.function);
  });
  json.close('}');
}

void write_thread_storage(Json& json, const ThreadStorage& storage) {
  static constexpr const char* lists[] = {"no library", "none", "fits", "differs"};
  json.open("thread_storage", '{');
  json.text("fault", storage.fault);
  json.number("sites", storage.sites);
  json.counts("pieces", storage.pieces);
  json.texts("refusals", storage.refusals);
  json.texts("warnings", storage.unread);
  json.text("list", lists[static_cast<int>(storage.list)]);
  json.number("list_entries", storage.list_entries);
  json.texts("list_problems", storage.list_problems);
  json.close('}');
}

}  // namespace

const char* answer_name(Answer answer) {
  switch (answer) {
    case Answer::not_judged: return "not judged";
    case Answer::own_export: return "the image itself";
    case Answer::shim: return "shim";
    case Answer::unused: return "never called";
    case Answer::weak_null: return "null, as weak imports may be";
    case Answer::zero_block: return "empty object";
    case Answer::trap: break;
  }
  return "no implementation";
}

std::string write_json(const Facts& facts) {
  Json json;
  json.open("", '{');
  json.text("image", facts.path);
  json.number("status", facts.status);
  json.texts("reasons", facts.reasons);
  json.open("library", '{');
  json.text("path", facts.library);
  json.number("rows", facts.library_rows);
  json.number("families", facts.library_families);
  json.close('}');
  json.text("refusal", facts.refusal);
  write_format(json, facts.format);
  if (facts.linkage) write_linkage(json, *facts.linkage);
  if (facts.initializers) {
    json.open("initializers", '{');
    json.number("run", facts.initializers->run);
    json.texts("outside_code", facts.initializers->outside_code);
    json.texts("not_run", facts.initializers->not_run);
    json.close('}');
  }
  if (facts.unwind) write_unwind(json, *facts.unwind);
  if (facts.thread_storage) write_thread_storage(json, *facts.thread_storage);
  if (facts.objective_c) {
    json.open("objective_c", '{');
    json.list("needed", facts.objective_c->needed, [&](const NeededClass& each) {
      json.text("name", each.name);
      json.text("answer", answer_name(each.answer));
    });
    json.number("brought", facts.objective_c->brought);
    json.texts("brought_names", facts.objective_c->brought_names);
    json.close('}');
  }
  json.close('}');
  return json.take();
}

}  // namespace vlm::inspect
