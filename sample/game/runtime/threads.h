// The record of an attached thread.
#pragma once

#include "runtime/runtime.h"

struct Il2CppThread {
  Il2CppObject object;
  uint64_t id;       // 1, 2, ... in the order in which they were attached
  Frame* innermost;  // written by the thread itself only
};
