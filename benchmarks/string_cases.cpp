// What ./bench measures of std::string and of guards: compiled as game code, where the members are the library's, and
// natively, where they are libc++'s own.
#include <cstdint>
#include <string>

using String = std::string;

// Members by their symbols, as a game imports them: a call by name may be compiled in place. Mach-O's have a further
// '_'.
#ifdef __APPLE__
#define MEMBER(constness, rest) \
  __asm("__ZN" constness "St3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEE" rest)
#else
#define MEMBER(constness, rest) \
  __asm("_ZN" constness "St3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEE" rest)
#endif
String& append(String&, const char*, unsigned long) MEMBER("", "6appendEPKcm");
String& append(String&, const char*) MEMBER("", "6appendEPKc");
void push_back(String&, char) MEMBER("", "9push_backEc");
String& assign(String&, const char*) MEMBER("", "6assignEPKc");
String& assign(String&, const String&) MEMBER("", "aSERKS5_");
unsigned long find(const String&, char, unsigned long) MEMBER("K", "4findEcm");
unsigned long rfind(const String&, char, unsigned long) MEMBER("K", "5rfindEcm");
int compare(const String&, const char*) MEMBER("K", "7compareEPKc");

extern "C" int __cxa_guard_acquire(unsigned long*);

namespace {

/// The compiler knows nothing about the object from here on, nor what was found in it.
template <class T>
void unknown(T& object) {
  asm volatile("" : : "r"(&object) : "memory");
}

const char word[] = "velmora";
String long_text(200, 't'), other_long_text(180, 'o'), page(4000, 'p');
unsigned long guard = 1;  // of a static that is initialized

void append_to_short() {
  String string;
  unknown(string);
  append(string, word, 7);
  append(string, word);
}
void append_in_room(String& string) {
  string.clear();
  unknown(string);
  for (int i = 0; i < 20; ++i) append(string, word, 7);
}
void append_page(String& string) {
  string.clear();
  unknown(string);
  append(string, page.data(), page.size());
}
void push_to_page() {
  String string;
  unknown(string);
  for (int i = 0; i < 4000; ++i) push_back(string, 'c');
}
void append_and_free() {
  String string;
  unknown(string);
  append(string, long_text.data(), long_text.size());
}
void assign_short(String& string) {
  unknown(string);
  assign(string, word);
}
void assign_text(String& string) {
  unknown(string);
  assign(string, other_long_text.c_str());
}
void assign_string(String& string) {
  unknown(string);
  assign(string, long_text);
}
template <class Find>
void find_behind(const String& string, Find find_it) {
  unknown(string);
  auto found = find_it(string);
  unknown(found);
}

/// A string with room for 500 characters. They share no place of a page with what is read beside them: the processor
/// tells addresses apart by that place first, and a read would wait for what was just written to its like. Where a heap
/// puts a block would then decide what a case costs, on either side.
String& make_room() {
  static String strings[16];
  for (String& string : strings) {
    string = String(500, 'r');
    const auto clear_of = [&](const void* other) {
      const auto distance = reinterpret_cast<std::uintptr_t>(other) - reinterpret_cast<std::uintptr_t>(string.data());
      return distance % 4096 >= 512 && distance % 4096 <= 4096 - 256;
    };
    if (clear_of(&string) && clear_of(word) && clear_of(long_text.data()) && clear_of(other_long_text.data())) {
      return string;
    }
  }
  return strings[0];
}

String short_string = word, page_room = page, page_with_end = page + "!", page_with_start = "!" + page;
String& room = make_room();

void run(long which) {
  switch (which) {
    case 0: return append_to_short();
    case 1: return append_in_room(room);
    case 2: return append_page(page_room);
    case 3: return push_to_page();
    case 4: return append_and_free();
    case 5: return assign_short(short_string);
    case 6: return assign_text(room);
    case 7: return assign_string(room);
    case 8: return find_behind(short_string, [](const String& s) { return find(s, 'a', 0); });
    case 9: return find_behind(page_with_end, [](const String& s) { return find(s, '!', 0); });
    case 10: return find_behind(page_with_start, [](const String& s) { return rfind(s, '!', String::npos); });
    case 11: return find_behind(long_text, [](const String& s) { return compare(s, other_long_text.c_str()); });
    case 12: __cxa_guard_acquire(&guard); return;
  }
}

}  // namespace

extern "C" {
/// Names and goals, in the order of run(); a null ends them.
extern const char* const case_names[] = {
    "append 7 characters twice to an empty string | 1.0",
    "append 7 characters 20 times, long string with room | 1.0",
    "append 4000 characters, long string with room | 1.0",
    "push_back 4000 times, from empty | 1.0",
    "append 200 characters and destroy (the heap is the host's) | -",
    "assign a text of 7 characters, short string | 1.0",
    "assign a text of 180 characters, long string with room | 1.0",
    "assign a string of 200 characters, long string with room | 1.0",
    "find in 7 characters | 1.0",
    "find behind 4000 characters | 1.0",
    "rfind before 4000 characters | 1.0",
    "compare 200 characters with a text | 1.0",
    "__cxa_guard_acquire, initialized | 1.0",
    nullptr,
};

void run_case(long which, long times) {
  for (long i = 0; i < times; ++i) run(which);
}

#ifdef __APPLE__
int il2cpp_init(const char*) { return 0; }
#endif
}
