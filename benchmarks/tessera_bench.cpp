// Tessera on a large image against what no patcher can do without: decoding its code once, on one processor.
//
//   tessera_bench IMAGE
//
// Runs on the building machine, as Tessera does. The peak memory is that of both together.
#include <Zydis/Zydis.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "report.h"
#include "shared/files.h"
#include "tessera/code_map.h"
#include "tessera/patch_image.h"

using namespace vlm;
using namespace vlm::bench;

namespace {

constexpr int samples = 3;

std::unique_ptr<tools::ImageFile> open(const char* path) {
  auto opened = tools::open_image(path);
  if (opened) return std::move(*opened);
  std::fprintf(stderr, "cannot use %s: %s\n", path, opened.error().text.c_str());
  std::exit(1);
}

/// Returns the bytes of code.
std::size_t decode_once(const char* path) {
  const auto file = open(path);
  ZydisDecoder decoder;
  ZydisDecoderInit(&decoder, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64);
  std::size_t decoded = 0;
  const auto map = tessera::CodeMap::of(file->image);
  for (const tessera::CodeRange& range : map->ranges()) {
    ZydisDecodedInstruction instruction;
    const auto bytes = map->bytes(range);
    for (std::size_t at = 0; at < bytes.size(); at += instruction.length, decoded += instruction.length) {
      const auto rest = bytes.subspan(at);
      if (ZYAN_FAILED(ZydisDecoderDecodeInstruction(&decoder, nullptr, rest.data(), rest.size(), &instruction))) break;
    }
  }
  return decoded;
}

/// Returns the number of patched instructions.
std::size_t patch(const char* path) {
  const auto file = open(path);
  const auto patch = tessera::patch_image(file->image);
  if (!patch || !patch->refusals.empty() || tessera::patch_list(file->image, *patch).empty()) {
    std::fprintf(stderr, "cannot patch %s\n", path);
    std::exit(1);
  }
  return patch->site_count;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: tessera_bench IMAGE\n", stderr);
    return 1;
  }
  const char* const image = arguments[1];
  std::vector<double> peer, ours;
  std::size_t code = 0, sites = 0;
  for (int i = 0; i < samples; ++i) {
    peer.push_back(time_of([&] { code = decode_once(image); }));
    ours.push_back(time_of([&] { sites = patch(image); }));
  }
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  char name[80];
  std::snprintf(name, sizeof name, "Tessera: %.0f MB of code, %zu sites (peer: decoding once)",
                static_cast<double>(code) / 1e6, sites);
  print_row(name, "s", median(peer) / 1e9, median(ours) / 1e9, "1.00");
  print_row("Tessera: peak memory (peer: the file)", "MB", static_cast<double>(std::filesystem::file_size(image)) / 1e6,
            static_cast<double>(usage.ru_maxrss) * 1024 / 1e6, "1.15");
}
