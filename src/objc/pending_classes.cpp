// Classes whose methods are not built yet: they can be allocated and do what NSObject does.
#include "objc/object.h"

namespace vlm {

#define NO_METHODS(name)                \
  const MethodRow name##_methods[] = {{}}; \
  const MethodRow name##_class_methods[] = {{}};

NO_METHODS(NSUbiquitousKeyValueStore)

}  // namespace vlm
