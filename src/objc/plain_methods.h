// Methods that need to know nothing about their receiver, for the rows of any class.
#pragma once

#include "objc/object.h"

namespace vlm {

SYSV inline ObjcObject* return_self(ObjcObject* receiver, Selector) { return receiver; }

SYSV inline ObjcObject* return_nil(ObjcObject*, Selector) { return nullptr; }

SYSV inline ObjcBool return_no(ObjcObject*, Selector) { return 0; }

SYSV inline void do_nothing(ObjcObject*, Selector) {}

}  // namespace vlm
