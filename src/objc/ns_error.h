// Errors.
#pragma once

#include <cstdint>

#include "objc/ns_string.h"
#include "objc/object.h"

namespace vlm {

/// An instance of NSError.
struct NSError : ObjcObject {
  ObjcObject* domain;  // a string, unless game code gave something else; or null
  std::int64_t code;
  ObjcObject* user_info;  // or null
};
static_assert(sizeof(NSError) == 32);

NSError* ns_error_new(ObjcClass& class_, ObjcObject* domain, std::int64_t code, ObjcObject* user_info);

}  // namespace vlm
