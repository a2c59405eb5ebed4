#include "tessera/check_list.h"

#include <algorithm>

#include "macho/queries.h"
#include "shared/files.h"
#include "tessera/instruction.h"
#include "tls/patch_list.h"

namespace vlm::tessera {
namespace {

using tools::describe_place;

struct Covered {
  std::uint64_t begin;
  std::uint64_t end;
};

}  // namespace

Result<ListCheck> check_patch_list(const MachImage& image, std::span<const std::byte> blob, const Progress& progress) {
  if (const auto size = measure_patch_list(blob, false, "the patch list"); !size) return std::unexpected(size.error());
  const auto map = CodeMap::of(image);
  if (!map) return std::unexpected(map.error());
  const auto found = find_gs_sites(image, *map, progress);
  if (!found) return std::unexpected(found.error());

  ListCheck check;
  check.sites = found->sites.size();
  check.unread = describe_unread(image, *found);
  std::vector<Covered> covered;
  PatchListReader reader(blob);
  for (; check.entries < reader.count(); ++check.entries) {
    const PatchEntry entry = *reader.next();
    const std::uint64_t vmaddr = image.vm_min + entry.site;
    const auto complain = [&](const std::string& what) {
      check.problems.push_back("entry " + std::to_string(check.entries) + " at " + describe_place(image, vmaddr) +
                               ": " + what);
    };
    if (entry.expected.size() < min_site_length || entry.trampoline.size() < min_trampoline_length ||
        entry.slot + sizeof(std::uint64_t) > entry.trampoline.size()) {
      complain("its lengths make no sense");
      continue;
    }
    auto there = macho_bytes_at(image, vmaddr);
    there = there.size() < entry.expected.size() ? std::span<const std::byte>() : there.first(entry.expected.size());
    if (!std::ranges::equal(there, entry.expected)) {
      complain("the image has " + (there.empty() ? std::string("nothing") : describe_bytes(there)) + ", expected " +
               describe_bytes(entry.expected));
    }
    if (!has_gs_load(entry)) complain("its trampoline cannot be used with a TLS expansion slot");
    covered.push_back({vmaddr, vmaddr + entry.expected.size()});
  }

  std::ranges::sort(covered, {}, &Covered::begin);
  for (std::size_t i = 1; i < covered.size(); ++i) {
    if (covered[i].begin < covered[i - 1].end) {
      check.problems.push_back("two entries replace the bytes at " + describe_place(image, covered[i].begin));
    }
  }
  for (const GsSite& site : found->sites) {
    const auto behind = std::ranges::upper_bound(covered, site.vmaddr, {}, &Covered::begin);
    if (behind == covered.begin() || std::prev(behind)->end < site.vmaddr + site.bytes.size()) {
      check.problems.push_back("no entry replaces the instruction at " + describe_place(image, site.vmaddr) + ", " +
                               describe_bytes(site.bytes) + ", " + disassemble(site.bytes, site.vmaddr));
    }
  }
  for (const Covered& piece : covered) {
    if (found->leads_inside(static_cast<std::uint32_t>(piece.begin - image.vm_min),
                            static_cast<std::uint32_t>(piece.end - image.vm_min))) {
      check.problems.push_back("a branch leads into the piece that is replaced at " +
                               describe_place(image, piece.begin));
    }
  }
  return check;
}

}  // namespace vlm::tessera
