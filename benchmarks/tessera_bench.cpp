// Tessera on a large image against what no patcher can do without: reading the file and decoding its code once.
//
//   tessera_bench IMAGE [SAMPLES]
//
// Runs on the building machine, as Tessera does. Prints rows "case | peer | ours | ratio | goal" for the time and for
// the peak memory of both together.
#include <Zydis/Zydis.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <vector>

#include "macho/commands.h"
#include "tessera/code_ranges.h"
#include "tessera/patch_image.h"

using namespace vlm;

namespace {

constexpr double time_goal = 2.0;

struct ImageFile {
  std::vector<std::byte> bytes;
  MachImage image = {};
};

std::unique_ptr<ImageFile> read_image(const char* path) {
  auto file = std::make_unique<ImageFile>();
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  file->bytes.resize(in ? static_cast<std::size_t>(in.tellg()) : 0);
  in.seekg(0).read(reinterpret_cast<char*>(file->bytes.data()), static_cast<std::streamsize>(file->bytes.size()));
  file->image.file_data = file->bytes.data();
  file->image.file_size = file->bytes.size();
  if (!in || !read_commands(file->image)) {
    std::fprintf(stderr, "cannot use %s\n", path);
    std::exit(1);
  }
  file->image.base = file->image.vm_min;
  return file;
}

/// Returns the bytes of code.
std::size_t decode_once(const char* path) {
  const auto file = read_image(path);
  ZydisDecoder decoder;
  ZydisDecoderInit(&decoder, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64);
  std::size_t decoded = 0;
  for (const tessera::CodeRange& range : *tessera::code_ranges(file->image)) {
    ZydisDecodedInstruction instruction;
    for (std::size_t at = 0; at < range.bytes.size(); at += instruction.length, decoded += instruction.length) {
      const auto rest = range.bytes.subspan(at);
      if (ZYAN_FAILED(ZydisDecoderDecodeInstruction(&decoder, nullptr, rest.data(), rest.size(), &instruction))) break;
    }
  }
  return decoded;
}

/// Returns the number of patched instructions.
std::size_t patch(const char* path) {
  const auto file = read_image(path);
  const auto patch = tessera::patch_image(file->image);
  if (!patch || !patch->refusals.empty() || tessera::patch_list(file->image, *patch).empty()) {
    std::fprintf(stderr, "cannot patch %s\n", path);
    std::exit(1);
  }
  return patch->site_count;
}

template <class Work>
double seconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> samples) {
  std::ranges::sort(samples);
  return samples[samples.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: tessera_bench IMAGE [SAMPLES]\n", stderr);
    return 1;
  }
  const int samples = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  std::vector<double> peer, ours;
  std::size_t code = 0, sites = 0;
  for (int i = 0; i < samples; ++i) {
    peer.push_back(seconds([&] { code = decode_once(argv[1]); }));
    ours.push_back(seconds([&] { sites = patch(argv[1]); }));
  }
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  std::printf("Tessera: %.0f MB of code, %zu sites (peer: decoding once) | %.2f s | %.2f s | %.2f | %.2f\n",
              static_cast<double>(code) / 1e6, sites, median(peer), median(ours), median(ours) / median(peer),
              time_goal);
  const auto file_size = static_cast<double>(std::ifstream(argv[1], std::ios::binary | std::ios::ate).tellg());
  const double peak = static_cast<double>(usage.ru_maxrss) * 1024;
  std::printf("Tessera: peak memory (peer: the file) | %.1f MB | %.1f MB | %.2f | %.2f\n", file_size / 1e6, peak / 1e6,
              peak / file_size, 3.0);
  return 0;
}
