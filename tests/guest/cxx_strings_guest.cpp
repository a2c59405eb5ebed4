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

/// The first word of a string: its allocation with bit 0 set, or 0 for a short one.
uint64 allocation_word(const String& string) {
  const uint64 word = *reinterpret_cast<const uint64*>(&string);
  return word & 1 ? word : 0;
}

/// What a string is to be, in the plainest terms.
struct Model {
  static constexpr uint64 limit = 4000;
  char text[limit + 1] = "";
  uint64 size = 0;
  uint64 word = 0;

  uint64 capacity() const { return word == 0 ? 22 : word - 2; }
  void need(uint64 wanted, uint64 target) {
    if (wanted > capacity()) word = ((target | 15) + 1) | 1;
  }
  void put(uint64 at, uint64 removed, const String& added) {
    memmove(text + at + added.size(), text + at + removed, size - at - removed);
    memcpy(text + at, added.data(), added.size());
    size += added.size() - removed;
    text[size] = '\0';
  }
  void append(const String& added) {
    need(size + added.size(), std::max(size + added.size(), 2 * capacity()));
    put(size, 0, added);
  }
  void assign(const String& to) {
    need(to.size(), to.size());
    put(0, size, to);
  }
  void insert(uint64 at, const String& added) {
    need(size + added.size(), size + added.size());
    put(at, 0, added);
  }
  bool is(const String& string) const {
    return string.size() == size && memcmp(string.data(), text, size + 1) == 0 && allocation_word(string) == word &&
           string.capacity() == capacity();
  }
};

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
  const uint64 at = random_below(model.size + 1), other = random_below(model.size + 1);
  const char* own = string.c_str() + at;  // the string's own characters from there on
  const String own_text(own), own_half = own_text.substr(0, own_text.size() / 2), text = random_text();
  const char c = static_cast<char>('A' + random_below(26));
  switch (random_below(15)) {
    case 0: assign(string, text.c_str()); return model.assign(text);
    case 1: assign(string, own); return model.assign(own_text);
    case 2: assign(string, text); return model.assign(text);
    case 3: append(string, text.c_str()); return model.append(text);
    case 4: append(string, own); return model.append(own_text);
    case 5: append(string, own, own_half.size()); return model.append(own_half);
    case 6: append(string, text.size(), c); return model.append(String(text.size(), c));
    case 7: push_back(string, c); return model.append(String(1, c));
    case 8: insert(string, at, text.c_str()); return model.insert(at, text);
    case 9: insert(string, other, own); return model.insert(other, own_text);
    case 10: CHECK(insert(string, own, c) == string.data() + at); return model.insert(at, String(1, c));
    case 11: {
      const uint64 size = random_below(2 * model.size + 8);
      resize(string, size, c);
      if (size > model.size) return model.append(String(size - model.size, c));
      return model.put(size, model.size - size, "");
    }
    case 12: reserve(string, 2 * other); return model.need(2 * other, 2 * other);
    case 13: {  // as inlined code replaces a part of a string that has no room
      const uint64 removed = own_half.size(), extra = random_below(40);
      const uint64 wanted = std::max(model.capacity() + extra, 2 * model.capacity());
      grow_by(string, model.capacity(), extra, model.size, at, removed, 1);
      reinterpret_cast<uint64*>(&string)[1] = model.size - removed + 1;
      string[at] = c;
      string[string.size()] = '\0';
      model.need(~uint64{0}, wanted);
      return model.put(at, removed, String(1, c));
    }
    default:  // compiled into the guest; how much memory it takes is its own affair
      string.replace(at, own_half.size(), text);
      model.put(at, own_half.size(), text);
  }
  model.word = allocation_word(string);
}

}  // namespace

GUEST_TEST(random_changes_leave_what_a_plain_model_says) {
  for (int round = 0; round < 200; ++round) {
    auto* const string = new String;
    Model model;
    for (int step = 0; step < 60 && model.size < 700; ++step) {
      change(*string, model);
      CHECK(model.is(*string));
    }
    for (uint64 i = 0; i < 8; ++i) {
      const char c = static_cast<char>((i % 2 ? 'a' : 'A') + random_below(26));
      const uint64 from = i < 6 ? random_below(model.size + 3) : String::npos;
      const std::string_view view(model.text, model.size);
      CHECK(find(*string, c, from) == view.find(c, from) && rfind(*string, c, from) == view.rfind(c, from));
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
    CHECK(joined == left + right && allocation_word(joined) == (size <= 22 ? 0 : (size | 15) + 2));
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
