// What the game's surroundings are: always an English locale of the United States.
#pragma once

#include "objc/ns_string.h"
#include "objc/object.h"

namespace vlm {

constexpr char locale_identifier[] = "en_US";

/// A locale's value for a key, by the key's text: a new string for every key, known or not.
NSString* ns_locale_value(ObjcObject* key);

}  // namespace vlm
