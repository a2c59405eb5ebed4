// Any bytes as a format with its arguments, for printf and for sscanf. The sanitizers judge the reads and writes; every
// size of buffer must get the same text, cut.
//
//   byte 0   bit 0: every integer argument is a valid place and text, so that %s, %ls, %n and scanning may follow it;
//            else the arguments are random and conversions that would follow them are replaced
//   byte 1   length of the format; the rest: the arguments, and the input to scan
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "abi/format.h"
#include "abi/scan.h"

const char* vlm::objc_object_cstring(void* object) { return object != nullptr ? "an object" : "(null)"; }

namespace {

// Words: the registers' area, then the stack. Every character of a format takes one argument at most; extended ones
// two.
constexpr std::size_t area_words = sizeof(vlm::RegisterSaveArea) / 8, block_words = area_words + 2 * 260;

/// A copy on the heap, with a NUL behind it and no byte longer: a read behind it shows.
std::unique_ptr<char[]> copy_of(const std::string& text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const bool places = data[0] & 1;
  const std::size_t length = std::min<std::size_t>(data[1], size - 2);
  std::string text(reinterpret_cast<const char*>(data + 2), length);
  if (!places) {
    std::ranges::replace_if(text, [](char c) { return c == 's' || c == 'n' || c == '@'; }, 'd');
  }
  const auto format = copy_of(text);
  data += 2 + length;
  size -= 2 + length;

  const std::string input = std::string(reinterpret_cast<const char*>(data), size).c_str();  // up to its first NUL
  std::vector<std::uint32_t> place(input.size() + 40);  // for %n and what is scanned; as a text it ends
  const auto fill_place = [&] {
    std::ranges::fill(place, 0);
    for (std::uint32_t i = 0; i < 20; ++i) place[i] = 0x41 + (i << (i % 21));
  };
  fill_place();
  std::vector<std::uint64_t> block(block_words);
  for (std::size_t i = 0; i < block_words; ++i) {
    for (std::size_t byte = 0; size > 0 && byte < 8; ++byte) block[i] = block[i] << 8 | data[(8 * i + byte) % size];
    if (places && (i < 6 || i >= area_words)) block[i] = reinterpret_cast<std::uint64_t>(place.data());
  }
  const auto* const area = reinterpret_cast<const std::byte*>(block.data());
  const auto make_list = [&] { return vlm::SysvVaList{0, SAVE_AREA_XMM, area + 8 * area_words, area}; };

  vlm::SysvVaList list = make_list();
  const std::uint64_t complete = vlm::format_text(nullptr, 0, format.get(), list);
  std::string longest;
  for (const std::uint64_t room : {2000, 1000, 64, 17, 2, 1}) {
    fill_place();
    const auto buffer = std::make_unique<char[]>(room);
    list = make_list();
    if (vlm::format_text(buffer.get(), room, format.get(), list) != complete) std::abort();
    const std::string written(buffer.get(), std::min(complete, room - 1));
    if (longest.empty()) longest = written;
    if (buffer[written.size()] != 0 || !longest.starts_with(written)) std::abort();
  }

  list = make_list();
  const std::int32_t stored = places ? vlm::scan_text(copy_of(input).get(), format.get(), list) : 0;
  if (stored < -1 || stored > 255) std::abort();
  return 0;
}
