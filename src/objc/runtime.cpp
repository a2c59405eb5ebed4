// The runtime functions that compilers call for Objective-C code. Ownership means nothing here: objects live until the
// process ends.
#include <cstdint>

#include "diag/log.h"
#include "objc/object.h"
#include "objc/shims.h"

namespace vlm {
namespace {

SYSV void* identity(void* object) { return object; }

SYSV void release(void*) {}

SYSV void* store(void** location, void* value) {
  *location = value;
  return value;
}

SYSV void* load(void** location) { return *location; }

SYSV void destroy_weak(void** location) { *location = nullptr; }

SYSV void* alloc(ObjcClass* class_) { return objc_send<void*>(class_, "alloc"); }

constinit char pool_token = 0;

SYSV void* pool_push() { return &pool_token; }

SYSV void pool_pop(void*) {}

SYSV void enumeration_mutation(void* collection) {
  fatal_error("collection %p mutated during enumeration", collection);
}

// Game code wants their addresses alone. Sizes are macOS's: a class object, and what follows the empty cache there.
constinit std::uint64_t empty_cache[2] = {};
constinit std::uint64_t global_block_class[32] = {};
constinit std::uint64_t stack_block_class[32] = {};

}  // namespace

/// Whatever is logged is written nowhere.
extern "C" SYSV void NSLog_body(void*, SysvVaList*) {}

const ShimEntry objc_runtime_rows[] = {
    {"_objc_alloc", shim(alloc)},
    {"_objc_retain", shim(identity)},
    {"_objc_autorelease", shim(identity)},
    {"_objc_autoreleaseReturnValue", shim(identity)},
    {"_objc_retainAutoreleasedReturnValue", shim(identity)},
    {"_objc_retainAutorelease", shim(identity)},
    {"_objc_retainAutoreleaseReturnValue", shim(identity)},
    {"_objc_release", shim(release)},
    {"_objc_storeStrong", shim(store)},
    {"_objc_storeWeak", shim(store)},
    {"_objc_loadWeakRetained", shim(load)},
    {"_objc_destroyWeak", shim(destroy_weak)},
    {"_objc_autoreleasePoolPush", shim(pool_push)},
    {"_objc_autoreleasePoolPop", shim(pool_pop)},
    {"_objc_enumerationMutation", shim(enumeration_mutation)},
    {"__objc_empty_cache", empty_cache},
    {"_NSLog", shim(NSLog_entry)},
};
constinit const ShimRows objc_runtime_shims = objc_runtime_rows;

const ShimEntry block_class_rows[] = {
    {"__NSConcreteGlobalBlock", global_block_class},
    {"__NSConcreteStackBlock", stack_block_class},
};
constinit const ShimRows block_class_shims = block_class_rows;

}  // namespace vlm
