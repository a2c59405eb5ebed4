#include "tessera/gs_sites.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <set>
#include <utility>

#include "macho/fixups.h"
#include "macho/queries.h"
#include "shared/files.h"
#include "shared/workers.h"
#include "support/byte_reader.h"

namespace vlm::tessera {
namespace {

/// What a thread takes at once. The results do not depend on who takes what.
constexpr std::uint64_t portion_size = 1'000'000;
/// Places learned late lead to more of them, but what is still open after so many rounds no compiler has made.
constexpr int max_rounds = 16;

/// Contiguous ranges, walked by one thread.
struct Portion {
  std::span<const CodeRange> ranges;
  std::uint64_t size = 0;
  WalkResult result;
};

std::vector<Portion> portions_of(const CodeMap& map) {
  std::vector<Portion> portions;
  const auto ranges = map.ranges();
  for (std::size_t begin = 0; begin < ranges.size();) {
    Portion portion;
    std::size_t end = begin;
    while (end < ranges.size() && portion.size < portion_size) portion.size += ranges[end++].size();
    portion.ranges = ranges.subspan(begin, end - begin);
    portions.push_back(std::move(portion));
    begin = end;
  }
  return portions;
}

template <class T>
void append(std::vector<T>& to, std::vector<T>& from) {
  to.insert(to.end(), from.begin(), from.end());
  from = {};
}

class Search {
 public:
  Search(const MachImage& image, const CodeMap& map, GsSearch& found) : image_(image), map_(map), found_(found) {}

  /// Every range from its beginning on.
  void walk_everything(const Progress& progress) {
    auto portions = portions_of(map_);
    std::uint64_t total = 0;
    for (const Portion& portion : portions) total += portion.size;
    std::atomic<std::size_t> next = 0;
    std::atomic<std::uint64_t> done = 0;
    tools::on_all_processors(portions.size(), [&](bool is_caller) {
      for (std::size_t mine; (mine = next++) < portions.size();) {
        if (is_caller) progress(done, total);
        Portion& portion = portions[mine];
        CodeWalk walk(image_, map_, found_.targets, portion.result);
        for (const CodeRange& range : portion.ranges) walk.walk(range);
        done += portion.size;
      }
    });
    progress(total, total);
    for (Portion& portion : portions) add(portion.result);
  }

  /// Ranges once more from places that were learned elsewhere, for as long as there are such.
  void walk_from_late_places() {
    for (int round = 0;; ++round) {
      take_late_places();
      if (changed_.empty()) return;
      if (round == max_rounds) break;
      std::erase_if(found_.sites, [&](const GsSite& site) { return was_changed(site.vmaddr - image_.vm_min); });
      std::erase_if(found_.unread, [&](const CodeRange& unread) { return was_changed(unread.begin); });
      WalkResult result;
      CodeWalk walk(image_, map_, found_.targets, result);
      for (const CodeRange* const range : std::exchange(changed_, {})) {
        const Late& late = late_[range];
        walk.walk(*range, std::vector(late.places.begin(), late.places.end()),
                  std::vector(late.tables.begin(), late.tables.end()));
      }
      add(result);
    }
    for (const CodeRange* const range : changed_) found_.unread.push_back(*range);
  }

  /// Where the pointers lead to that the loader will rebase, and where code itself is changed. Those of a run lie in
  /// one segment.
  Result<void> add_fixups() {
    const auto each = [&](PointerRun run, auto visit) {
      if (run.stride == 0) run.count = 1;  // the same pointer again and again
      for (; run.count != 0; --run.count, run.offset += run.stride) {
        if (map_.section_of(run.offset) != nullptr) found_.fixups.push_back(static_cast<std::uint32_t>(run.offset));
        visit(run.offset);
      }
    };
    const auto walked = macho_walk_rebases(image_, [&](const PointerRun& run) {
      each(run, [&](std::uint64_t offset) {
        ByteReader pointer(macho_bytes_at(image_, image_.vm_min + offset));
        const auto target = pointer.read<std::uint64_t>();
        if (pointer.ok()) found_.targets.add(target - image_.vm_min);
      });
    });
    if (!walked) return std::unexpected(walked.error());
    for (const BindStream stream : {BindStream::binds, BindStream::lazy_binds}) {
      const auto bound = macho_walk_binds(image_, stream, [&](const PointerRun& run, const Import&) {
        each(run, [](std::uint64_t) {});
        return Result<void>();
      });
      if (!bound) return std::unexpected(bound.error());
    }
    std::ranges::sort(found_.fixups);
    return {};
  }

 private:
  struct Late {
    std::set<std::uint32_t> places;
    std::set<JumpTable> tables;
  };

  bool was_changed(std::uint64_t place) const { return changed_.contains(map_.range_of(place)); }

  void add(WalkResult& result) {
    append(found_.sites, result.sites);
    append(found_.unread, result.unread);
    append(leads_out_, result.leads_out);
    append(tables_outside_, result.tables_outside);
  }

  void add_place(std::uint32_t place) {
    const CodeRange* const range = map_.range_of(place);
    if (range == nullptr || place == range->begin) return;
    if (late_[range].places.insert(place).second) changed_.insert(range);
  }

  void take_late_places() {
    for (const JumpTable& table : std::exchange(tables_outside_, {})) {
      const CodeRange* const range = map_.range_of(table.begin);
      if (range == nullptr) {
        outer_tables_.insert(table);
      } else if (late_[range].tables.insert(table).second) {
        changed_.insert(range);
      }
    }
    follow_outer_tables();
    for (const std::uint32_t place : std::exchange(leads_out_, {})) add_place(place);
    for (const CodeRange& unread : found_.unread) {
      for (std::uint32_t at = unread.begin;;) {
        at = found_.targets.next(at + 1, unread.end);
        if (at == unread.end) break;
        add_place(at);
      }
    }
  }

  /// Tables in sections of data: each ends where the next one begins, or where an entry leads out of code.
  void follow_outer_tables() {
    for (auto table = outer_tables_.begin(); table != outer_tables_.end(); ++table) {
      const auto behind = std::next(table);
      const std::uint64_t limit = behind == outer_tables_.end() ? image_.extent() : behind->begin;
      ByteReader entries(macho_bytes_at(image_, image_.vm_min + table->begin));
      for (std::uint64_t at = table->begin; at + table->width <= limit; at += table->width) {
        const std::int64_t distance = table->width == 8 ? entries.read<std::int64_t>() : entries.read<std::int32_t>();
        const std::uint64_t target = table->begin + static_cast<std::uint64_t>(distance);
        if (!entries.ok() || map_.section_of(target) == nullptr) break;
        found_.targets.add(target);
        add_place(static_cast<std::uint32_t>(target));
      }
    }
  }

  const MachImage& image_;
  const CodeMap& map_;
  GsSearch& found_;
  std::vector<std::uint32_t> leads_out_;
  std::vector<JumpTable> tables_outside_;
  std::set<JumpTable> outer_tables_;
  std::map<const CodeRange*, Late> late_;
  std::set<const CodeRange*> changed_;  // have places or tables that they were not walked with
};

}  // namespace

bool GsSearch::leads_inside(std::uint32_t begin, std::uint32_t end) const {
  return targets.next(begin + 1, end) != end;
}

bool GsSearch::is_fixed_up(std::uint32_t begin, std::uint32_t end) const {
  constexpr std::uint32_t pointer_size = 8;
  const auto fixup = std::ranges::lower_bound(fixups, begin < pointer_size ? 0 : begin - pointer_size + 1);
  return fixup != fixups.end() && *fixup < end;
}

Result<GsSearch> find_gs_sites(const MachImage& image, const CodeMap& map, const Progress& progress) {
  GsSearch found(map);
  Search search(image, map, found);
  if (auto added = search.add_fixups(); !added) return std::unexpected(added.error());
  search.walk_everything(progress);
  search.walk_from_late_places();
  std::ranges::sort(found.sites, {}, &GsSite::vmaddr);
  std::ranges::sort(found.unread, {}, &CodeRange::begin);
  return found;
}

std::vector<std::string> describe_unread(const MachImage& image, const GsSearch& search) {
  std::vector<std::string> texts;
  texts.reserve(search.unread.size());
  for (const CodeRange& unread : search.unread) {
    texts.push_back(std::to_string(unread.size()) + " bytes at " +
                    tools::describe_place(image, image.vm_min + unread.begin) +
                    " do not decode as instructions; a gs access among them is not redirected");
  }
  return texts;
}

}  // namespace vlm::tessera
