// Loading a large image against reading the same file and copying it once, which no loader can do without.
//
//   load_bench IMAGE PATCHES [SAMPLES]
//
// Each sample is a process of its own (an image cannot be unloaded), ours and the peer's in turn. The processes run
// from a copy of this program with the patch list at its end, where the loader looks for it; IMAGE must have
// "GameAssembly" in its name for the list to be applied. Prints rows for the time, the peak memory, and for looking up
// symbols in the loaded image:
//
//   case | peer | ours | ratio | goal
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "binding/catalogue.h"
#include "macho/load.h"
#include "macho/queries.h"
#include "macho/symbol_index.h"
#include "support/handles.h"
#include "tls/game_tls.h"

namespace {

constexpr double time_goal = 2.0;
constexpr double memory_goal = 2.2;

double seconds() {
  LARGE_INTEGER now, frequency;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&frequency);
  return static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

bool load_ours(const char* path) {
  vlm::game_tls_init();
  vlm::register_first_shim_block();
  vlm::register_other_shim_blocks();
  return vlm::macho_load(path) != nullptr;
}

/// The file into a fresh buffer, the buffer into fresh committed memory.
bool read_and_copy(const char* path) {
  const vlm::UniqueHandle file = vlm::own_handle(CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
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

/// One sample: prints seconds and the peak working set in bytes. (Not the peak page file use: Wine reports the
/// current one for it.)
int run_sample(bool (*what)(const char*), const char* path) {
  const double start = seconds();
  if (!what(path)) return 1;
  const double time = seconds() - start;
  PROCESS_MEMORY_COUNTERS memory{};
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
  std::printf("%.9f %zu\n", time, static_cast<std::size_t>(memory.PeakWorkingSetSize));
  return 0;
}

/// Prints the rows of looking for the symbol at an address: a walk over the table against its index.
int measure_symbols(const char* path) {
  if (!load_ours(path)) return 1;
  const vlm::MachImage& image = *vlm::image_list()[0];
  std::mt19937_64 random(1);
  std::vector<std::uint64_t> addresses(10'000);
  for (auto& address : addresses) address = image.base + random() % image.extent();
  const char* volatile found = nullptr;
  const auto look_up = [&](std::size_t count) {  // seconds for each
    const double start = seconds();
    for (std::size_t i = 0; i < count; ++i) found = vlm::macho_symbol_for_address(image, addresses[i], nullptr);
    return (seconds() - start) / static_cast<double>(count);
  };
  const double walk = look_up(100);
  const double start = seconds();
  vlm::index_symbols(image);
  const double index = seconds() - start;
  const double indexed = look_up(addresses.size());
  std::printf("symbol at an address of 300,000 (peer: walking the table) | %.2f us | %.2f us | %.4f | -\n", walk * 1e6,
              indexed * 1e6, indexed / walk);
  std::printf("index of 300,000 symbols (peer: one walk over the table) | %.2f ms | %.2f ms | %.2f | -\n", walk * 1e3,
              index * 1e3, index / walk);
  return 0;
}

struct Sample {
  double seconds;
  double bytes;
};

std::optional<Sample> sample(const std::string& program, const char* what, const std::string& image) {
  FILE* const pipe = _popen(("\"\"" + program + "\" " + what + " \"" + image + "\"\"").c_str(), "r");
  if (pipe == nullptr) return std::nullopt;
  Sample result{};
  const bool read = std::fscanf(pipe, "%lf %lf", &result.seconds, &result.bytes) == 2;
  if (_pclose(pipe) != 0 || !read) return std::nullopt;
  return result;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
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

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--ours") == 0) return run_sample(load_ours, argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--peer") == 0) return run_sample(read_and_copy, argv[2]);
  if (argc == 3 && std::strcmp(argv[1], "--symbols") == 0) return measure_symbols(argv[2]);
  if (argc < 3) {
    std::fputs("usage: load_bench IMAGE PATCHES [SAMPLES]\n", stderr);
    return 1;
  }
  const std::string program = with_patches(argv[2], argv[1]);
  const int samples = argc > 3 ? std::atoi(argv[3]) : 7;
  std::vector<double> our_times, peer_times, our_memory;
  for (int i = -1; i < samples; ++i) {
    const auto peer = sample(program, "--peer", argv[1]);
    const auto ours = sample(program, "--ours", argv[1]);
    if (!peer || !ours) {
      std::fprintf(stderr, "a sample of %s failed\n", peer ? "ours" : "the peer");
      return 1;
    }
    if (i < 0) continue;  // the first round fills the file cache
    peer_times.push_back(peer->seconds);
    our_times.push_back(ours->seconds);
    our_memory.push_back(ours->bytes);
  }
  std::fflush(stdout);
  std::system(("\"\"" + program + "\" --symbols \"" + argv[1] + "\"\"").c_str());
  DeleteFileA(program.c_str());

  std::ifstream image(argv[1], std::ios::binary | std::ios::ate);
  const double file_bytes = static_cast<double>(image.tellg());
  const double peer = median(peer_times), ours = median(our_times), memory = median(our_memory);
  std::printf("load %.0f MB image (time) | %.1f ms | %.1f ms | %.2f | %.2f\n", file_bytes / 1e6, peer * 1e3, ours * 1e3,
              ours / peer, time_goal);
  std::printf("load %.0f MB image (peak working set; peer: the file) | %.1f MB | %.1f MB | %.2f | %.2f\n",
              file_bytes / 1e6, file_bytes / 1e6, memory / 1e6, memory / file_bytes, memory_goal);
  return 0;
}
