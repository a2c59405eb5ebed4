// Nobody is signed in on Windows: the player object is nil, and messages to nil do nothing and answer zero. The class
// below becomes part of the image's Objective-C metadata.
#include "game/scoreboard.h"

__attribute__((objc_root_class)) @interface NSObject
@end

@interface Scoreboard : NSObject {
  int32_t _best;
}
@property(nonatomic, readonly) int32_t best;
- (int32_t)takeScore:(int32_t)score;
@end

@implementation Scoreboard
@synthesize best = _best;

- (int32_t)takeScore:(int32_t)score {
  if (score > _best) _best = score;
  return 1;
}

@end

// The authentication handler sets it once somebody has signed in. Unretained: the service owns the object.
static __unsafe_unretained Scoreboard *volatile localScoreboard;

int32_t scoreboard_report(int32_t score) {
  Scoreboard *const __unsafe_unretained board = localScoreboard;
  return [board takeScore:score];
}
