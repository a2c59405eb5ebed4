// The game's side of the Objective-C benchmarks: loops as compiled macOS code has them, beside what they are held
// against.
#define GUEST_TEST_NO_MAIN
#include "foundation.h"

@interface Base : NSObject
- (long)first;
- (long)second;
@end
@implementation Base
- (long)first { return 1; }
- (long)second { return 2; }
@end
@interface Derived : Base
@end
@implementation Derived
- (long)second { return 3; }
@end

namespace {

Base *shared[2];
long (*volatile method)(id, SEL);

constexpr uint64 most_keys = 1000;
NSMutableDictionary *dictionary;
NSString *sought[most_keys];     // other objects than the keys
const char *keys[most_keys];     // the peer's
const char *wanted[most_keys];   // other texts than its keys
uint64 key_count;

/// The same order on both sides, in which no two neighbours follow each other.
uint64 next_key(uint64 index) { return (index + 7) % key_count; }

const char *copy(const char *text) { return [[NSString stringWithUTF8String:text] UTF8String]; }

[[gnu::noinline]] uint64 linear_search(const char *text) {
  for (uint64 i = 0; i < key_count; ++i) {
    if (strcmp(keys[i], text) == 0) return i;
  }
  return key_count;
}

}  // namespace

extern "C" {

int il2cpp_init(const char *) {
  shared[0] = [Base new];
  shared[1] = [Derived new];
  method = [](id, SEL) -> long { return 1; };
  return 0;
}

void pointer_loop(uint64 rounds) {
  Base *receiver = shared[0];
  for (uint64 i = 0; i < rounds; ++i) method(receiver, @selector(first));
}

void send_loop(uint64 rounds) {
  Base *receiver = shared[0];
  for (uint64 i = 0; i < rounds; ++i) [receiver first];
}

/// Four sends a round, to two classes that every thread shares.
void shared_loop(uint64 rounds) {
  for (uint64 i = 0; i < rounds; ++i) {
    [shared[0] first];
    [shared[1] second];
    [shared[0] second];
    [shared[1] first];
  }
}

/// Fills both sides with so many keys; returns how many of them are then found.
uint64 fill(uint64 count) {
  dictionary = [NSMutableDictionary new];
  key_count = count;
  for (uint64 i = 0; i < count; ++i) {
    char text[32];
    snprintf(text, sizeof text, "level_%lu_time", i);
    keys[i] = copy(text);
    wanted[i] = copy(text);
    sought[i] = [NSString stringWithUTF8String:text];
    [dictionary setObject:[NSNumber numberWithInteger:i] forKey:[NSString stringWithUTF8String:text]];
  }
  uint64 found = 0;
  for (uint64 i = 0; i < count; ++i) {
    found += linear_search(wanted[i]) == i && [[dictionary objectForKey:sought[i]] integerValue] == (NSInteger)i;
  }
  return found;
}

void search_loop(uint64 rounds) {
  for (uint64 i = 0, key = 0; i < rounds; ++i, key = next_key(key)) linear_search(wanted[key]);
}

void object_for_key_loop(uint64 rounds) {
  for (uint64 i = 0, key = 0; i < rounds; ++i, key = next_key(key)) [dictionary objectForKey:sought[key]];
}
}
