// Fixups, imports and exports: what binding the image would come to. Who answers an import is decided by the loader's
// own macho_resolve_import() and is_data_name(); only the shims are those of a file.
#include <algorithm>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

#include "binding/data_names.h"
#include "host/game_symbols.h"
#include "inspect/gather.h"
#include "macho/fixups.h"
#include "macho/format.h"
#include "macho/queries.h"

namespace vlm::inspect {
namespace {

/// An image that does not lie at 0, where the address of an export may be none.
std::unique_ptr<MachImage> placed(const MachImage& image) {
  auto copy = std::make_unique<MachImage>(image);
  copy->base += std::uint64_t{1} << 40;
  return copy;
}

class ImportList {
 public:
  ImportList(const MachImage& image, const Library* library) : image_(placed(image)), library_(library) {}

  Result<void> add(const PointerRun& run, const Import& import) {
    const auto [place, is_new] = known_.try_emplace({import.name, import.ordinal, import.flags}, imports_.size());
    if (is_new) {
      if (!budget_.take(import)) return fault("looking up its symbols takes too long");
      imports_.push_back(judge_import(import));
    }
    imports_[place->second].pointers += run.count;
    return {};
  }

  std::vector<ImportedSymbol> take() {
    std::ranges::sort(imports_, {}, [](const ImportedSymbol& each) { return std::tie(each.name, each.library); });
    return std::move(imports_);
  }

 private:
  ImportedSymbol judge_import(const Import& import) {
    std::string_view family;
    const SymbolSources sources{
        .images = {},
        .lookup_shim = [&](const char*, const char* name) -> const void* {
          if (library_ == nullptr) return nullptr;
          const auto row = library_->family_of.find(name);
          if (row == library_->family_of.end()) return nullptr;
          family = row->second;
          return this;
        },
        .make_missing_symbol = [&](const char*, const char*) -> const void* { return this; },
    };
    const auto resolved = macho_resolve_import(*image_, import, sources, budget_.bytes_read());
    return {std::string(import.name),
            macho_import_library(*image_, import.ordinal),
            std::string(family),
            answer_of(resolved.answer, import.name),
            (import.flags & BIND_SYMBOL_FLAGS_WEAK_IMPORT) != 0,
            0};
  }

  Answer answer_of(ImportAnswer answer, std::string_view name) const {
    if (answer == ImportAnswer::own_export) return Answer::own_export;
    if (is_lazy_binder(name)) return Answer::unused;
    if (library_ == nullptr) return Answer::not_judged;
    switch (answer) {
      case ImportAnswer::shim: return Answer::shim;
      case ImportAnswer::weak_null: return Answer::weak_null;
      default: return is_data_name(name) ? Answer::zero_block : Answer::trap;
    }
  }

  std::unique_ptr<MachImage> image_;
  const Library* library_;
  ResolutionBudget budget_;
  std::map<std::tuple<std::string_view, std::int32_t, std::uint32_t>, std::size_t> known_;
  std::vector<ImportedSymbol> imports_;
};

std::vector<std::string> missing_of(const MachImage& image, std::span<const char* const> symbols) {
  const auto somewhere = placed(image);
  std::vector<std::string> missing;
  for (const char* symbol : symbols) {
    if (macho_find_export(*somewhere, symbol) == 0) missing.emplace_back(symbol);
  }
  return missing;
}

}  // namespace

Linkage gather_linkage(const MachImage& image, const Library* library) {
  Linkage linkage;
  ImportList imports(image, library);
  const auto note = [&](std::uint64_t& count, const Result<std::uint64_t>& walked) {
    if (walked) count = *walked;
    if (!walked) linkage.fixups.faults.push_back(walked.error().text);
  };
  const auto add = [&](const PointerRun& run, const Import& import) { return imports.add(run, import); };
  note(linkage.fixups.rebases, macho_walk_rebases(image, [](const PointerRun&) {}));
  note(linkage.fixups.binds, macho_walk_binds(image, BindStream::binds, add));
  note(linkage.fixups.lazy_binds, macho_walk_binds(image, BindStream::lazy_binds, add));
  // The loader passes over this stream, so nothing in it is a fault.
  linkage.fixups.weak_binds = macho_walk_binds(image, BindStream::weak_binds, [](const PointerRun&, const Import&) {
                                return Result<void>();
                              }).value_or(0);
  linkage.imports = imports.take();
  linkage.missing_exports = missing_of(image, export_symbols);
  linkage.missing_reflection = missing_of(image, reflection_symbols);
  return linkage;
}

}  // namespace vlm::inspect
