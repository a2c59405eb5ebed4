#include "tessera/patch_image.h"

#include <algorithm>

#include "shared/files.h"
#include "tessera/instruction.h"
#include "tls/patch_list.h"

namespace vlm::tessera {
namespace {

using tools::describe_place;

/// Chooses the pieces, site by site in the order of addresses.
class Chooser {
 public:
  Chooser(const MachImage& image, const CodeMap& map, const GsSearch& search, ImagePatch& patch)
      : image_(image), map_(map), search_(search), patch_(patch) {}

  void choose(const GsSite& site) {
    const std::uint64_t covered = patch_.pieces.empty() ? 0 : end_of(patch_.pieces.back());
    if (site.vmaddr < covered) return;  // together with the site before it

    // The reason that is told is the one of the first attempt: what stands in the way of the usual form.
    std::string reason;
    const auto attempt = [&](std::uint64_t begin) {
      auto piece = piece_from(begin, site);
      if (piece) {
        while (!patch_.pieces.empty() && end_of(patch_.pieces.back()) > begin) patch_.pieces.pop_back();
        patch_.pieces.push_back(std::move(*piece));
      } else if (reason.empty()) {
        reason = piece.error().text;
      }
      return piece.has_value();
    };
    if (attempt(site.vmaddr)) return;
    if (site.bytes.size() < min_site_length) {
      std::uint64_t begin = site.vmaddr;
      for (const unsigned size : site.before) {
        if (size == 0 || begin - size < covered) break;
        if (attempt(begin -= size)) return;
      }
      const bool beside = covered != 0 && covered == begin && covered > image_.vm_min + range_of(site).begin;
      if (beside && attempt(patch_.pieces.back().vmaddr)) return;
    }
    patch_.refusals.push_back("cannot replace the instruction at " + describe_place(image_, site.vmaddr) + ", " +
                              describe_bytes(site.bytes) + ", " + disassemble(site.bytes, site.vmaddr) + ": " + reason);
  }

 private:
  static std::uint64_t end_of(const PatchedPiece& piece) { return piece.vmaddr + piece.bytes.size(); }

  const CodeRange& range_of(const GsSite& site) const { return *map_.range_of(site.vmaddr - image_.vm_min); }

  /// The piece from an instruction on that holds the site and has room for a jump.
  Result<PatchedPiece> piece_from(std::uint64_t begin, const GsSite& site) const {
    const auto offset = static_cast<std::uint32_t>(begin - image_.vm_min);
    const auto rest = map_.bytes({offset, range_of(site).end});
    const std::size_t wanted = std::max(site.vmaddr + site.bytes.size() - begin, std::uint64_t{min_site_length});
    std::size_t size = 0;
    while (size < wanted) {
      const auto decoded = decode(rest.subspan(size));
      if (!decoded) {
        return fault("it has %zu bytes, a jump to its trampoline needs %zu, and its function ends", site.bytes.size(),
                     min_site_length);
      }
      size += decoded->size();
    }
    if (size > max_site_length) return fault("too many instructions beside it would have to move with it");
    const std::uint32_t end = offset + static_cast<std::uint32_t>(size);
    if (search_.is_fixed_up(offset, end)) return fault("the loader writes an address into it, or into its neighbour");
    if (search_.leads_inside(offset, end)) {
      return size == site.bytes.size()
                 ? fault("a branch leads into it")
                 : fault("it has %zu bytes, a jump to its trampoline needs %zu, and a branch leads to its neighbour",
                         site.bytes.size(), min_site_length);
    }
    auto trampoline = make_trampoline(rest.first(size));
    if (!trampoline) return std::unexpected(trampoline.error());
    return PatchedPiece{begin, rest.first(size), std::move(*trampoline)};
  }

  const MachImage& image_;
  const CodeMap& map_;
  const GsSearch& search_;
  ImagePatch& patch_;
};

}  // namespace

Result<ImagePatch> patch_image(const MachImage& image, const Progress& progress) {
  const auto map = CodeMap::of(image);
  if (!map) return std::unexpected(map.error());
  const auto found = find_gs_sites(image, *map, progress);
  if (!found) return std::unexpected(found.error());

  ImagePatch patch;
  patch.site_count = found->sites.size();
  patch.unread = describe_unread(image, *found);
  Chooser chooser(image, *map, *found, patch);
  for (const GsSite& site : found->sites) chooser.choose(site);
  return patch;
}

std::vector<std::byte> patch_list(const MachImage& image, const ImagePatch& patch) {
  std::vector<PatchEntry> entries;
  entries.reserve(patch.pieces.size());
  for (const PatchedPiece& each : patch.pieces) {
    entries.push_back({static_cast<std::uint32_t>(each.vmaddr - image.vm_min), each.bytes, each.trampoline.slot,
                       each.trampoline.code});
  }
  return write_patch_list(entries);
}

}  // namespace vlm::tessera
