#include "tessera/check_list.h"

#include <algorithm>

#include "support/byte_reader.h"
#include "tessera/instruction.h"
#include "tessera/patch_image.h"
#include "tls/patch_list.h"

namespace vlm::tessera {
namespace {

/// The image's bytes at a link-time address as they are in the file; empty when they are not all there.
std::span<const std::byte> image_bytes(const MachImage& image, std::uint64_t vmaddr, std::uint64_t size) {
  for (const MachSegment& segment : std::span(image.segments, image.segment_count)) {
    if (vmaddr < segment.vmaddr || !range_fits(vmaddr - segment.vmaddr, size, segment.filesize)) continue;
    return {image.file_data + segment.fileoff + (vmaddr - segment.vmaddr), size};
  }
  return {};
}

struct Covered {
  std::uint64_t begin;
  std::uint64_t end;
};

}  // namespace

Result<ListCheck> check_patch_list(const MachImage& image, std::span<const std::byte> blob, const Progress& progress) {
  if (const auto size = measure_patch_list(blob, false, "the patch list"); !size) return std::unexpected(size.error());
  const auto ranges = code_ranges(image);
  if (!ranges) return std::unexpected(ranges.error());
  const auto found = find_gs_sites(image, *ranges, progress);
  if (!found) return std::unexpected(found.error());

  ListCheck check;
  check.sites = found->sites.size();
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
    const auto there = image_bytes(image, vmaddr, entry.expected.size());
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
    if (found->leads_inside(piece.begin - image.vm_min, piece.end - image.vm_min)) {
      check.problems.push_back("a branch leads into the piece that is replaced at " +
                               describe_place(image, piece.begin));
    }
  }
  return check;
}

}  // namespace vlm::tessera
