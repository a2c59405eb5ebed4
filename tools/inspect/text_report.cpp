#include <algorithm>
#include <cstdio>
#include <ranges>
#include <string_view>

#include "inspect/gather.h"
#include "inspect/names.h"
#include "inspect/writers.h"
#include "macho/format.h"
#include "shared/files.h"
#include "shared/text.h"

namespace vlm::inspect {
namespace {

using tools::cpu_name;
using tools::printable;

enum class Mark { none, good, note, bad };

constexpr std::size_t shown_lines = 20;
constexpr std::size_t shown_names = 100;
constexpr std::size_t line_width = 110;

std::string number(std::uint64_t value) {
  std::string digits = std::to_string(value);
  for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
  return digits;
}

std::string counted(std::uint64_t count, const char* one, const char* many) {
  return number(count) + " " + (count == 1 ? one : many);
}

/// Lines with a mark in front; everything of the file goes through printable().
class Report {
 public:
  explicit Report(bool coloured) : coloured_(coloured) {}

  void heading(std::string_view text) {
    if (!out_.empty()) out_ += '\n';
    out_ += styled("1", printable(text)) + '\n';
  }

  void line(Mark mark, std::string_view text) {
    static constexpr struct {
      const char* text;
      const char* style;
    } marks[] = {{"  ", ""}, {"ok", "32"}, {"--", "33"}, {"!!", "1;31"}};
    const auto& shown = marks[static_cast<int>(mark)];
    (out_ += "  ") += styled(shown.style, shown.text) + "  " + printable(text) + '\n';
  }

  void field(const char* name, const std::string& value) {
    if (value.empty()) return;
    std::string padded = name;
    padded.resize(12, ' ');
    line(Mark::none, padded + value);
  }

  /// One line for each, and of a long list only its beginning.
  void lines(Mark mark, const std::vector<std::string>& texts) {
    for (std::size_t i = 0; i < std::min(texts.size(), shown_lines); ++i) line(mark, texts[i]);
    if (texts.size() > shown_lines) line(mark, "... and " + number(texts.size() - shown_lines) + " more: see --json");
  }

  /// Names in a paragraph, and of a long list only its beginning.
  void names(const std::vector<std::string>& names) {
    std::string paragraph;
    for (const std::string& name : names | std::views::take(shown_names)) {
      if (!paragraph.empty() && paragraph.size() + name.size() > line_width) {
        line(Mark::none, "    " + paragraph);
        paragraph.clear();
      }
      paragraph += (paragraph.empty() ? "" : " ") + name;
    }
    if (!paragraph.empty()) line(Mark::none, "    " + paragraph);
    if (names.size() > shown_names) {
      line(Mark::none, "    ... and " + number(names.size() - shown_names) + " more: see --json");
    }
  }

  std::string take() { return std::move(out_); }

 private:
  std::string styled(std::string_view style, const std::string& text) const {
    if (!coloured_ || style.empty()) return text;
    return "\x1b[" + std::string(style) + "m" + text + "\x1b[0m";
  }

  bool coloured_;
  std::string out_;
};

void write_format(Report& report, const Format& format) {
  std::string kind = format.slices.empty() ? "thin" : "universal";
  if (format.is_macho) {
    kind += ", " + cpu_name(format.cputype) + " " + file_kind(format.filetype);
    if (!format.minimum_os.empty()) kind += ", for macOS " + format.minimum_os + " or later";
  } else {
    kind = format.slices.empty() ? "no 64-bit Mach-O file" : kind + ", no slice that could be loaded";
  }
  report.field("format", kind);
  for (const Slice& slice : format.slices) {
    report.field("slice", cpu_name(slice.cputype) + ", " + number(slice.size) + " bytes at " + number(slice.offset) +
                              (slice.taken ? ", this one" : ""));
  }
  report.field(
      "size", number(format.file_size) + " bytes" + (format.extent == 0 ? "" : ", in memory " + number(format.extent)));
  report.field("name", format.install_name);
  report.field("UUID", format.uuid);
  for (const Segment& segment : format.segments) {
    char text[128];
    std::snprintf(text, sizeof text, "%-16.16s %s  0x%09llx  %12s in memory  %12s in the file", segment.name.c_str(),
                  protection(segment.initprot).c_str(), static_cast<unsigned long long>(segment.vmaddr),
                  number(segment.vmsize).c_str(), number(segment.filesize).c_str());
    report.field("segment", text);
  }
  for (const std::string& library : format.libraries) report.field("library", library);
}

void write_fixups(Report& report, const Facts& facts) {
  if (!facts.format.is_macho) return;
  report.heading("Fixups");
  if (facts.format.chained_fixups) {
    report.line(Mark::bad, "chained; the loader takes classic ones only. Imports and exports were not read");
  }
  if (!facts.linkage) return;
  if (!facts.format.has_dyld_info) {
    report.line(Mark::bad, "no dyld information, so the loader links nothing");
    return;
  }
  const Fixups& fixups = facts.linkage->fixups;
  report.line(fixups.faults.empty() ? Mark::good : Mark::bad,
              "classic: " + counted(fixups.rebases, "rebase", "rebases") + ", " +
                  counted(fixups.binds, "bind", "binds") + ", " +
                  counted(fixups.lazy_binds, "lazy bind", "lazy binds") + " (bound at once), " +
                  counted(fixups.weak_binds, "weak bind", "weak binds") + " (not applied)");
  report.lines(Mark::bad, fixups.faults);
}

void write_group(Report& report, Mark mark, const std::string& title, const std::vector<std::string>& names) {
  if (names.empty()) return;
  report.line(mark, title + " (" + number(names.size()) + ")");
  report.names(names);
}

void write_imports(Report& report, const Facts& facts) {
  if (!facts.linkage) return;
  report.heading("Imports");
  std::map<std::string, std::vector<std::string>> families;
  std::map<Answer, std::vector<std::string>> others;
  if (!facts.format.has_dyld_info) {
    report.line(Mark::bad, "not read: there is no dyld information");
    return;
  }
  for (const ImportedSymbol& import : facts.linkage->imports) {
    const bool by_call = import.answer == Answer::trap;
    (import.answer == Answer::shim ? families[import.family] : others[import.answer])
        .push_back(by_call ? import.name + " (" + import.library + ")" : import.name);
  }
  const auto rank = [](const std::string& name) { return std::pair(call_rank(name.substr(0, name.find(' '))), name); };
  std::ranges::sort(others[Answer::trap], {}, rank);
  if (facts.linkage->imports.empty()) report.line(Mark::good, "none");
  for (const auto& [family, names] : families) write_group(report, Mark::good, family, names);
  write_group(report, Mark::good, "the image itself", others[Answer::own_export]);
  write_group(report, Mark::good, "never called: lazy binds are bound at once", others[Answer::unused]);
  write_group(report, Mark::note, "nobody, and null, which a weak import may be", others[Answer::weak_null]);
  write_group(report, Mark::note, "an empty object that can be read", others[Answer::zero_block]);
  write_group(report, Mark::bad, "no implementation: a call ends the game", others[Answer::trap]);
  write_group(report, Mark::note, "not judged: give --library", others[Answer::not_judged]);
}

void write_exports(Report& report, const Facts& facts) {
  if (!facts.linkage) return;
  report.heading("Exports");
  const auto tell = [&](const std::vector<std::string>& missing, const char* all, const char* some) {
    if (missing.empty()) report.line(Mark::good, all);
    write_group(report, Mark::bad, some, missing);
  };
  tell(facts.linkage->missing_exports, "everything that the player may call", "missing: the player may call these");
  tell(facts.linkage->missing_reflection, "everything that internal calls are translated with",
       "missing: an internal call ends the game");
}

void write_initializers(Report& report, const Facts& facts) {
  if (!facts.initializers) return;
  report.heading("Initializers");
  report.line(Mark::good, number(facts.initializers->run) + " in __mod_init_func, which are run");
  report.lines(Mark::bad, facts.initializers->outside_code);
  for (const std::string& kind : facts.initializers->not_run) report.line(Mark::bad, "not run: " + kind);
}

void write_unwind(Report& report, const Facts& facts) {
  if (!facts.unwind) return;
  report.heading("Exceptions");
  const Unwind& unwind = *facts.unwind;
  if (!unwind.present) report.line(Mark::note, "no __unwind_info: an exception ends the game");
  for (const auto& [kind, count] : unwind.kinds) {
    const bool none = kind == "none";
    report.line(Mark::none, counted(count, "function: ", "functions: ") + (none ? "no frame described" : kind));
  }
  if (!unwind.fault.empty()) report.line(Mark::bad, unwind.fault);
  if (unwind.opaque.empty()) {
    if (unwind.present && unwind.fault.empty()) report.line(Mark::good, "exceptions get past all described frames");
    return;
  }
  report.line(Mark::bad, "no exception gets past " + counted(unwind.opaque.size(), "function", "functions"));
  std::vector<std::string> functions;
  for (const OpaqueFrame& frame : unwind.opaque) {
    char encoding[24];
    std::snprintf(encoding, sizeof encoding, " (0x%08x)", static_cast<unsigned>(frame.encoding));
    functions.push_back("  " + frame.function + ": " + frame.kind + encoding);
  }
  report.lines(Mark::none, functions);
}

void write_thread_storage(Report& report, const Facts& facts) {
  if (!facts.thread_storage) return;
  const ThreadStorage& storage = *facts.thread_storage;
  report.heading("Thread storage");
  if (!storage.fault.empty()) report.line(Mark::bad, storage.fault);
  if (storage.fault.empty() && storage.refusals.empty()) {
    report.line(Mark::good, counted(storage.sites, "access", "accesses") + " through gs, all of which can be patched");
  }
  for (const auto& [kind, count] : storage.pieces) report.line(Mark::none, "  " + number(count) + ": " + kind);
  report.lines(Mark::bad, storage.refusals);
  report.lines(Mark::note, storage.unread);
  switch (storage.list) {
    case ThreadStorage::List::no_library: break;
    case ThreadStorage::List::none:
      report.line(Mark::note, "the library has no patch list yet: fit it with Tessera");
      break;
    case ThreadStorage::List::fits:
      report.line(Mark::good, "the library's patch list was made for this image: " +
                                  counted(storage.list_entries, "entry", "entries"));
      break;
    case ThreadStorage::List::differs:
      report.line(Mark::bad, "the library's patch list was made for another image: fit it with Tessera");
      report.lines(Mark::bad, storage.list_problems);
      break;
  }
}

void write_thread_variables(Report& report, const Facts& facts) {
  const std::uint64_t count = thread_local_variables(facts.format);
  if (count == 0) return;
  report.line(Mark::bad, counted(count, "thread-local variable", "thread-local variables") +
                             ": the loader sets none up; an access calls what __tlv_bootstrap is bound to");
}

void write_objective_c(Report& report, const Facts& facts) {
  if (!facts.objective_c) return;
  const ObjectiveC& classes = *facts.objective_c;
  if (classes.needed.empty() && classes.brought == 0) return;
  report.heading("Objective-C");
  std::map<Answer, std::vector<std::string>> needed;
  for (const NeededClass& each : classes.needed) needed[each.answer].push_back(each.name);
  for (const auto& [answer, names] : needed) {
    const bool answered = answer == Answer::shim || answer == Answer::own_export;
    write_group(report, answered ? Mark::good : Mark::note,
                answered ? "needed, and there" : std::string("needed: ") + answer_name(answer), names);
  }
  if (classes.brought != 0) {
    report.line(Mark::none, counted(classes.brought, "class", "classes") + " of its own");
    report.names(classes.brought_names);
  }
}

}  // namespace

std::string write_text(const Facts& facts, bool coloured) {
  Report report(coloured);
  report.heading(facts.path);
  write_format(report, facts.format);
  if (!facts.library.empty()) {
    report.field("judged by", facts.library + ", " + number(facts.library_rows) + " implementations in " +
                                  number(facts.library_families) + " families");
  }
  write_fixups(report, facts);
  write_imports(report, facts);
  write_exports(report, facts);
  write_initializers(report, facts);
  write_unwind(report, facts);
  write_thread_storage(report, facts);
  write_thread_variables(report, facts);
  write_objective_c(report, facts);

  report.heading("Verdict");
  static constexpr struct {
    Mark mark;
    const char* text;
  } verdicts[] = {{Mark::good, "This image would start, and everything that it asks for is there."},
                  {Mark::note, "This image would start, but something is missing:"},
                  {Mark::bad, "This image would not start:"}};
  report.line(verdicts[facts.status].mark, verdicts[facts.status].text);
  for (const std::string& reason : facts.reasons) report.line(Mark::none, reason);
  return report.take();
}

}  // namespace vlm::inspect
