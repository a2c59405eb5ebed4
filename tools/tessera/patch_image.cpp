#include "tessera/patch_image.h"

#include <cstdio>

#include "macho/queries.h"
#include "tessera/trampoline.h"
#include "tls/patch_list.h"

namespace vlm::tessera {

using Wide = unsigned long long;  // what %llx prints, on every system

std::string describe_place(const MachImage& image, std::uint64_t vmaddr) {
  char number[40];
  std::snprintf(number, sizeof number, "0x%llx", Wide{vmaddr});
  std::string text = number;
  std::uint64_t offset = 0;
  if (const char* symbol = macho_symbol_for_address(image, vmaddr, &offset)) {
    std::snprintf(number, sizeof number, "+0x%llx", Wide{offset});
    text += std::string(" (") + symbol + (offset == 0 ? "" : number) + ")";
  } else {
    text += " (no symbol)";
  }
  return text;
}

Result<ImagePatch> patch_image(const MachImage& image) {
  const auto ranges = code_ranges(image);
  if (!ranges) return std::unexpected(ranges.error());
  const GsSearch found = find_gs_sites(*ranges);

  ImagePatch patch;
  for (const Undecoded& undecoded : found.undecoded) {
    patch.warnings.push_back(std::to_string(undecoded.size) + " bytes at " + describe_place(image, undecoded.vmaddr) +
                             " do not decode as instructions; a gs access among them is not redirected");
  }
  for (const GsSite& site : found.sites) {
    const auto refuse = [&](const std::string& reason) {
      patch.refusals.push_back("cannot replace the instruction at " + describe_place(image, site.vmaddr) + ", " +
                               describe_bytes(site.bytes) + ", " + disassemble(site.bytes) + ": " + reason);
    };
    auto trampoline = make_trampoline(site.bytes);
    if (!trampoline) {
      refuse(trampoline.error().text);
    } else if (site.bytes.size() < min_site_length) {
      refuse("it has " + std::to_string(site.bytes.size()) + " bytes, a jump to its trampoline needs " +
             std::to_string(min_site_length));
    } else {
      patch.sites.push_back({site, std::move(*trampoline)});
    }
  }
  return patch;
}

std::vector<std::byte> patch_list(const MachImage& image, const ImagePatch& patch) {
  std::vector<PatchEntry> entries;
  for (const PatchedSite& each : patch.sites) {
    entries.push_back({static_cast<std::uint32_t>(each.site.vmaddr - image.vm_min), each.site.bytes, address_slot,
                       each.trampoline});
  }
  return write_patch_list(entries);
}

}  // namespace vlm::tessera
