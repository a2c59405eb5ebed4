// The cloud store with 500 keys: setting what is there already, and a change that is saved.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "objc/ns_string.h"
#include "objc/object.h"
#include "report.h"
#include "support/handles.h"

using namespace vlm;

namespace {

constexpr int key_count = 500;
constexpr wchar_t folder[] = L"cloud_bench.tmp";
constexpr wchar_t store_path[] = L"cloud_bench.tmp\\icloud_kvs.txt";
constexpr wchar_t peer_path[] = L"cloud_bench.tmp\\peer.txt";
constexpr wchar_t peer_temporary_path[] = L"cloud_bench.tmp\\peer.txt.tmp";

ObjcObject* store;
std::vector<std::string> stored, wanted;  // the peer's keys, and other copies of their texts
std::vector<ObjcObject*> keys;

void set_integer(std::int64_t value, int key) {
  objc_send<void>(store, "setLongLong:forKey:", value, keys[static_cast<std::size_t>(key)]);
}

/// Not foreseen by the compiler.
int (*volatile compare_texts)(const char*, const char*) = std::strcmp;

[[gnu::noinline]] std::size_t linear_search(const std::string& key) {
  std::size_t i = 0;
  while (i < stored.size() && compare_texts(stored[i].c_str(), key.c_str()) != 0) ++i;
  return i;
}

void bench_unchanged(const char* name, int first, int step) {
  int peer_key = first, our_key = first;
  std::size_t found = 0;
  const auto time = bench::compare(
      51, 1000,
      [&] {
        found += linear_search(wanted[static_cast<std::size_t>(peer_key)]);
        peer_key = (peer_key + step) % key_count;
      },
      [&] {
        set_integer(our_key, our_key);
        our_key = (our_key + step) % key_count;
      });
  if (found == 0) std::abort();
  bench::print_row(name, "ns", time.peer, time.ours, "2000 ns");
}

std::string read_store() {
  std::string bytes;
  const auto file =
      own_handle(CreateFileW(store_path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  bytes.resize(GetFileSize(file.get(), nullptr));
  DWORD size = 0;
  if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr)) std::abort();
  return bytes;
}

bool write_flush_and_move(const std::string& bytes) {
  DWORD size = 0;
  auto file = own_handle(CreateFileW(peer_temporary_path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  const bool written = WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr) &&
                       FlushFileBuffers(file.get());
  file.reset();
  return written && MoveFileExW(peer_temporary_path, peer_path, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

void bench_changed() {
  const std::string bytes = read_store();
  std::int64_t value = 1'000'000;
  bool good = true;
  const auto time = bench::compare(
      51, 20, [&] { good &= write_flush_and_move(bytes); }, [&] { set_integer(++value, key_count - 1); });
  if (!good || !read_store().contains("\t" + std::to_string(value) + "\n#whole ")) std::abort();
  bench::print_row("a changed one, saved (peer: write, flush, rename by hand)", "ns", time.peer, time.ours, "1.20");
}

}  // namespace

int main() {
  SetEnvironmentVariableW(L"VLM_SAVE_DIR", folder);
  DeleteFileW(store_path);
  build_objc_classes();
  store = objc_send<ObjcObject*>(&objc_class_NSUbiquitousKeyValueStore, "defaultStore");
  for (int i = 0; i < key_count; ++i) {
    char text[32];
    std::snprintf(text, sizeof text, "level_%d_best_time", i);
    stored.emplace_back(text);
    wanted.emplace_back(text);
    keys.push_back(ns_string_new(text));
    set_integer(i, i);
  }
  bench_unchanged("setLongLong:forKey: unchanged, 500 keys (peer: strcmp)", 0, 7);
  bench_unchanged("the same, the last of them", key_count - 1, 0);
  bench_changed();
  for (const wchar_t* path : {store_path, peer_path}) DeleteFileW(path);
  RemoveDirectoryW(folder);
}
