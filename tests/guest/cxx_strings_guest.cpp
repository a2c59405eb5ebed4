// std::string: members that the library has and members that libc++'s headers compile into the guest, on the same
// objects.
#include <algorithm>
#include <string>

#include "guest_test.h"

using String = std::string;

// The library's members by their symbols: the compiler may have its own copy of a member that it calls by its name.
#define STRING "St3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEE"
String& assign(String&, const char*) __asm("__ZN" STRING "6assignEPKc");
String& assign(String&, const String&) __asm("__ZN" STRING "aSERKS5_");
String& append(String&, const char*) __asm("__ZN" STRING "6appendEPKc");
String& append(String&, const char*, uint64) __asm("__ZN" STRING "6appendEPKcm");
String& append(String&, uint64, char) __asm("__ZN" STRING "6appendEmc");
void push_back(String&, char) __asm("__ZN" STRING "9push_backEc");
String& insert(String&, uint64, const char*) __asm("__ZN" STRING "6insertEmPKc");
char* insert(String&, const char* before, char) __asm("__ZN" STRING "6insertENS_11__wrap_iterIPKcEEc");
void resize(String&, uint64, char) __asm("__ZN" STRING "6resizeEmc");
void reserve(String&, uint64) __asm("__ZN" STRING "7reserveEm");
void destroy(String*) __asm("__ZN" STRING "D1Ev");
void grow_by(String&, uint64 capacity, uint64 extra, uint64 size, uint64 kept, uint64 removed,
             uint64 added) __asm("__ZN" STRING "9__grow_byEmmmmmm");
uint64 find(const String&, char, uint64) __asm("__ZNK" STRING "4findEcm");
uint64 rfind(const String&, char, uint64) __asm("__ZNK" STRING "5rfindEcm");
int32 compare(const String&, const char*) __asm("__ZNK" STRING "7compareEPKc");
String join(const char*, const String&) __asm(
    "__ZNSt3__1plIcNS_11char_traitsIcEENS_9allocatorIcEEEENS_12basic_stringIT_T0_T1_EEPKS6_RKS9_");
String to_string(int32) __asm("__ZNSt3__19to_stringEi");

namespace {

/// What a string is to be: the headers' code alone, as the library has no members of it.
template <class T>
struct Plain {
  using value_type = T;
  T* allocate(uint64 count) { return static_cast<T*>(operator new(count)); }
  void deallocate(T* block, uint64) { operator delete(block); }
  bool operator==(const Plain&) const { return true; }
};
using Model = std::basic_string<char, std::char_traits<char>, Plain<char>>;

uint64 random_state = 62;
uint64 random_below(uint64 limit) {
  random_state = random_state * 6364136223846793005 + 1442695040888963407;
  return (random_state >> 33) % limit;
}

/// Mostly a few characters, at times some hundred.
String random_text() {
  const uint64 length = random_below(8) == 0 ? random_below(400) : random_below(30);
  String text;
  for (uint64 i = 0; i < length; ++i) text += static_cast<char>('a' + random_below(26));
  return text;
}

/// The same change to a string and to its model.
void change(String& string, Model& model) {
  const uint64 at = random_below(model.size() + 1), other = random_below(model.size() + 1), kind = random_below(14);
  const uint64 capacity = string.capacity();
  const char* own = string.c_str() + at;  // the string's own characters from there on
  const String own_text(own), own_half = own_text.substr(0, own_text.size() / 2), text = random_text();
  const char c = static_cast<char>('A' + random_below(26));
  uint64 asked = 0, doubled = 0;  // room that is asked for; room that is made when there is too little
  switch (kind) {
    case 0: assign(string, text.c_str()), model.assign(text); break;
    case 1: assign(string, own), model.assign(own_text); break;
    case 2: assign(string, text), model.assign(text); break;
    case 3: append(string, text.c_str()), model.append(text); break;
    case 4: append(string, own), model.append(own_text); break;
    case 5: append(string, own, own_half.size()), model.append(own_half); break;
    case 6: append(string, text.size(), c), model.append(text.size(), c); break;
    case 7: push_back(string, c), model.append(1, c); break;
    case 8: insert(string, at, text.c_str()), model.insert(at, text); break;
    case 9: insert(string, other, own), model.insert(other, own_text); break;
    case 10: CHECK(insert(string, own, c) == string.data() + at), model.insert(at, 1, c); break;
    case 11: resize(string, 2 * other, c), model.resize(2 * other, c); break;
    case 12: reserve(string, asked = 2 * other); break;
    default:  // as inlined code replaces a part of a string that has no room
      asked = std::max(capacity + other, 2 * capacity);
      grow_by(string, capacity, other, model.size(), at, own_half.size(), 1);
      reinterpret_cast<uint64*>(&string)[1] = model.size() - own_half.size() + 1;
      string[at] = c;
      string[string.size()] = '\0';
      model.replace(at, own_half.size(), 1, c);
  }
  if ((kind >= 3 && kind <= 7) || kind == 11) doubled = 2 * capacity;
  asked = std::max(asked, uint64{model.size()});
  CHECK(string.capacity() == (asked > capacity ? std::max(asked, doubled) | 15 : capacity));
  CHECK(string.size() == model.size() && memcmp(string.c_str(), model.c_str(), model.size() + 1) == 0);
}

}  // namespace

GUEST_TEST(random_changes_leave_what_the_headers_say) {
  for (int round = 0; round < 200; ++round) {
    auto* const string = new String;
    Model model;
    for (int step = 0; step < 60 && model.size() < 700; ++step) change(*string, model);
    for (uint64 i = 0; i < 8; ++i) {
      const char c = static_cast<char>((i % 2 ? 'a' : 'A') + random_below(26));
      const uint64 from = i < 6 ? random_below(model.size() + 3) : String::npos;
      CHECK(find(*string, c, from) == model.find(c, from) && rfind(*string, c, from) == model.rfind(c, from));
    }
    destroy(string);
    operator delete(string);
  }
}

GUEST_TEST(strings_are_compared_and_new_ones_returned) {
  CHECK(compare("ab", "abc") == -1 && compare("abcd", "abc") == 1 && compare("ab\xff", "abc") > 0);
  CHECK(compare("abc", "abc") == 0 && compare("", "a") == -1 && rfind("banana", 'b', 0) == 0);
  for (uint64 length = 0; length < 41 * 8; ++length) {
    const String left(length % 8 * 5, 'l'), right(length / 8, 'r'), joined = join(left.c_str(), right);
    const uint64 size = left.size() + right.size();
    CHECK(joined == left + right && joined.capacity() == (size <= 22 ? 22 : size | 15));
  }
  CHECK(to_string(2147483647) == "2147483647" && to_string(-2147483647 - 1) == "-2147483648");
}

// Probes: each runs in a process of its own.
// clang-format off
extern "C" {
int64 insert_out_of_range() { String made = "ab"; return insert(made, 3, "x"), 1; }
int64 insert_before_the_string() { String made = "ab"; return insert(made, made.data() - 1, 'x'), 1; }
int64 append_without_memory() { String made = "ab"; return append(made, uint64{1} << 60, 'x'), 1; }
int64 append_more_than_there_are_addresses() { String made = "ab"; return append(made, ~uint64{0}, 'x'), 1; }
int64 reserve_everything() { String made; return reserve(made, ~uint64{0}), 1; }
}
// clang-format on
