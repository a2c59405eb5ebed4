// The constants below and the classes that they name are linked to the library's when the image is loaded.
#include "game/progress.h"

@class NSString;

__attribute__((objc_root_class)) @interface NSObject
@end

@interface NSUbiquitousKeyValueStore : NSObject
+ (NSUbiquitousKeyValueStore *)defaultStore;
- (long long)longLongForKey:(NSString *)key;
- (void)setLongLong:(long long)value forKey:(NSString *)key;
@end

int32_t progress_begin_game(void) {
  NSUbiquitousKeyValueStore *store = [NSUbiquitousKeyValueStore defaultStore];
  const long long game = [store longLongForKey:@"games"] + 1;
  [store setLongLong:game forKey:@"games"];
  return (int32_t)game;
}

int32_t progress_best_score(void) {
  return (int32_t)[[NSUbiquitousKeyValueStore defaultStore] longLongForKey:@"best score"];
}

void progress_take_score(int32_t score) {
  if (score > progress_best_score()) {
    [[NSUbiquitousKeyValueStore defaultStore] setLongLong:score forKey:@"best score"];
  }
}
