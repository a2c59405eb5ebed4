// Loading a large image against reading the same file and copying it once, which no loader can do without.
//
//   load_bench IMAGE PATCHES
//
// Each sample is a process of its own (an image cannot be unloaded), ours and the peer's in turn. The processes run
// from a copy of this program with the patch list at its end, where the loader looks for it; IMAGE must have
// "GameAssembly" in its name for the list to be applied.
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "binding/shim_table.h"
#include "host/shim_catalogue.h"
#include "macho/load.h"
#include "macho/queries.h"
#include "macho/symbol_index.h"
#include "report.h"
#include "support/handles.h"
#include "tls/game_tls.h"
#include "tls/gs_patch.h"

using namespace vlm::bench;

namespace {

constexpr int samples = 7;

void finish_image(const vlm::MachImage& image) { vlm::gs_patch_apply(image); }

bool load_ours(const char* path) {
  vlm::game_tls_init();
  vlm::register_shim_families();
  return vlm::macho_load(path, {vlm::lookup_shim, vlm::make_missing_symbol, finish_image}) != nullptr;
}

/// The file into a fresh buffer, the buffer into fresh committed memory.
bool read_and_copy(const char* path) {
  const vlm::UniqueHandle file = vlm::own_handle(
      CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size;
  if (!file || !GetFileSizeEx(file.get(), &size)) return false;
  auto* const buffer = static_cast<std::byte*>(std::malloc(size.QuadPart));
  for (LONGLONG done = 0; done < size.QuadPart;) {
    DWORD read = 0;
    const auto chunk = static_cast<DWORD>(std::min<LONGLONG>(size.QuadPart - done, 0x40000000));
    if (!ReadFile(file.get(), buffer + done, chunk, &read, nullptr) || read == 0) return false;
    done += read;
  }
  void* const memory = VirtualAlloc(nullptr, size.QuadPart, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (memory == nullptr) return false;
  std::memcpy(memory, buffer, size.QuadPart);
  return true;
}

/// One sample: prints nanoseconds and the peak working set in bytes. (Not the peak page file use: Wine reports the
/// current one for it.)
int run_sample(bool (*what)(const char*), const char* path) {
  bool good;
  const double time = time_of([&] { good = what(path); });
  if (!good) return 1;
  PROCESS_MEMORY_COUNTERS memory{};
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
  std::printf("%.0f %zu\n", time, static_cast<std::size_t>(memory.PeakWorkingSetSize));
  return 0;
}

/// Prints the rows of looking for the symbol at an address: a walk over the table against its index.
int measure_symbols(const char* path) {
  if (!load_ours(path)) return 1;
  const vlm::MachImage& image = *vlm::macho_images()[0];
  std::mt19937_64 random(1);
  std::vector<std::uint64_t> addresses(10'000);
  for (auto& address : addresses) address = image.base + random() % image.extent();
  const char* volatile found = nullptr;
  const auto look_up = [&](std::size_t count) {  // nanoseconds for each
    const double time = time_of([&] {
      for (std::size_t i = 0; i < count; ++i) found = vlm::macho_symbol_for_address(image, addresses[i], nullptr);
    });
    return time / static_cast<double>(count);
  };
  const double walk = look_up(100);
  const double index = time_of([&] { vlm::macho_index_symbols(image); });
  const double indexed = look_up(addresses.size());
  // The ratio is too small for print_row().
  std::printf("symbol at an address of 300,000 (peer: walking the table) | %.2f us | %.2f us | %.4f | -\n", walk / 1e3,
              indexed / 1e3, indexed / walk);
  print_row("index of 300,000 symbols (peer: one walk over the table)", "ms", walk / 1e6, index / 1e6, "-");
  return 0;
}

struct Sample {
  double time;
  double bytes;
};

std::optional<Sample> sample(const std::string& program, const char* what, const std::string& image) {
  FILE* const pipe = _popen(("\"\"" + program + "\" " + what + " \"" + image + "\"\"").c_str(), "r");
  if (pipe == nullptr) return std::nullopt;
  Sample result{};
  const bool read = std::fscanf(pipe, "%lf %lf", &result.time, &result.bytes) == 2;
  if (_pclose(pipe) != 0 || !read) return std::nullopt;
  return result;
}

std::string with_patches(const char* patches, const char* image) {
  char own_path[MAX_PATH];
  GetModuleFileNameA(nullptr, own_path, sizeof own_path);
  const std::string program = std::string(image) + ".load_bench.exe";
  CopyFileA(own_path, program.c_str(), FALSE);
  std::ifstream list(patches, std::ios::binary);
  std::ofstream out(program, std::ios::binary | std::ios::app);
  out << list.rdbuf();
  return program;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) {
    std::fputs("usage: load_bench IMAGE PATCHES\n", stderr);
    return 1;
  }
  if (std::strcmp(arguments[1], "--ours") == 0) return run_sample(load_ours, arguments[2]);
  if (std::strcmp(arguments[1], "--peer") == 0) return run_sample(read_and_copy, arguments[2]);
  if (std::strcmp(arguments[1], "--symbols") == 0) return measure_symbols(arguments[2]);

  const char* const image = arguments[1];
  const std::string program = with_patches(arguments[2], image);
  std::vector<double> our_times, peer_times, our_memory;
  for (int i = -1; i < samples; ++i) {
    const auto peer = sample(program, "--peer", image);
    const auto ours = sample(program, "--ours", image);
    if (!peer || !ours) {
      std::fprintf(stderr, "a sample of %s failed\n", peer ? "ours" : "the peer");
      return 1;
    }
    if (i < 0) continue;  // the first round fills the file cache
    peer_times.push_back(peer->time);
    our_times.push_back(ours->time);
    our_memory.push_back(ours->bytes);
  }
  std::fflush(stdout);
  std::system(("\"\"" + program + "\" --symbols \"" + image + "\"\"").c_str());
  DeleteFileA(program.c_str());

  const double megabytes = static_cast<double>(std::filesystem::file_size(image)) / 1e6;
  const std::string name = "load " + std::to_string(std::lround(megabytes)) + " MB image (";
  print_row((name + "time)").c_str(), "ms", median(peer_times) / 1e6, median(our_times) / 1e6, "0.80");
  print_row((name + "peak working set; peer: the file)").c_str(), "MB", megabytes, median(our_memory) / 1e6, "1.10");
}
