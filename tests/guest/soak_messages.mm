// The messages that soak_guest.cpp's threads send, to objects that are made once: objects are never freed.
#define GUEST_TEST_NO_MAIN
#include "foundation.h"

namespace {

constexpr int32 key_count = 8, object_sets = 8;

struct Objects {
  NSMutableDictionary *dictionary;
  NSString *keys[key_count], *values[key_count];
} sets[object_sets];

}  // namespace

extern "C" {

void make_objects(int64 set) {
  Objects &objects = sets[set];
  objects.dictionary = [NSMutableDictionary dictionary];
  for (int32 i = 0; i < key_count; ++i) {
    objects.keys[i] = [NSString stringWithFormat:@"key %d of %ld", i, set];
    objects.values[i] = [NSString stringWithFormat:@"value %d", i * 1000];
  }
}

/// False when an answer is wrong.
bool send_messages(int64 set, uint64 random) {
  const Objects &objects = sets[set];
  bool right = true;
  @autoreleasepool {
    for (int32 i = 0; i < 50; ++i, random = random * 6364136223846793005 + 1442695040888963407) {
      NSString *const key = objects.keys[(random >> 40) % key_count];
      NSString *const value = objects.values[(random >> 50) % key_count];
      [objects.dictionary setObject:value forKey:key];
      right = right && [objects.dictionary objectForKey:key] == value && [objects.dictionary count] <= key_count &&
              [key isEqualToString:key] && [value length] == strlen([value UTF8String]);
    }
  }
  return right;
}
}
