// Classes whose methods are not built yet: they can be allocated and do what NSObject does.
#include "objc/object.h"

namespace vlm {

#define NO_METHODS(name)                \
  const MethodRow name##_methods[] = {{}}; \
  const MethodRow name##_class_methods[] = {{}};

NO_METHODS(NSBundle)
NO_METHODS(NSLocale)
NO_METHODS(NSFileManager)
NO_METHODS(NSUbiquitousKeyValueStore)
NO_METHODS(NSNotificationCenter)
NO_METHODS(NSError)
NO_METHODS(NSJSONSerialization)
NO_METHODS(NSDate)
NO_METHODS(NSISO8601DateFormatter)
NO_METHODS(NSApplication)
NO_METHODS(GKLocalPlayer)
NO_METHODS(GKAccessPoint)
NO_METHODS(GKAchievement)
NO_METHODS(GKLeaderboard)
NO_METHODS(GKDialogController)
NO_METHODS(GKGameCenterViewController)
NO_METHODS(SKStoreReviewController)

}  // namespace vlm
