// Foundation as the guests use it: its headers, and what is behind its objects.
#pragma once

#include "darwin.h"
#include "sdk/darwin/Foundation/Foundation.h"

struct NSString_layout {
  const void *isa;
  uint64 info;
  const void *data;
  uint64 length;
};

inline bool is_text(NSString *string, const char *text) {
  return same([string UTF8String], text) && [string length] <= strlen(text);
}
