// Categories: methods that an image adds to classes which exist already, the library's included.
#pragma once

#include <span>

#include "macho/image.h"
#include "objc/object.h"

namespace vlm {

/// One method list of one category, for one class or metaclass.
struct AttachedMethods {
  const ObjcClass* class_;
  const ObjcMethodList* methods;
};

/// Every attached list, in the order in which they are searched: the category that came last is the first.
std::span<const AttachedMethods> attached_methods();

/// Attaches the categories of an image; to be called before its code runs. Methods of a category come before the
/// class's own. A category whose class is missing is left out, and one that is outside the image or damaged is logged
/// and left out.
void attach_objc_categories(const MachImage& image);

}  // namespace vlm
