// The library's class objects: built once from the method rows of their families.
#include <algorithm>
#include <cstdlib>

#include "diag/log.h"
#include "objc/dispatch.h"
#include "objc/object.h"
#include "objc/shims.h"

namespace vlm {

#define CLASS(name, superclass, size)         \
  constinit ObjcClass objc_class_##name = {}; \
  constinit ObjcClass objc_metaclass_##name = {};
CLASS(NSObject, none, 8)
#include "objc/class_list.def"
#undef CLASS

namespace {

struct ClassRow {
  const char* name;
  ObjcClass* class_;
  ObjcClass* metaclass;
  ObjcClass* superclass;  // null for the root
  std::uint32_t instance_size;
  const MethodRow* methods;
  const MethodRow* class_methods;
};

constexpr ClassRow class_rows[] = {
    {"NSObject", &objc_class_NSObject, &objc_metaclass_NSObject, nullptr, 8, NSObject_methods, NSObject_class_methods},
#define CLASS(name, superclass, size)                                           \
  {#name, &objc_class_##name, &objc_metaclass_##name, &objc_class_##superclass, \
   size,  name##_methods,     name##_class_methods},
#include "objc/class_list.def"
#undef CLASS
};

/// Never freed, like all that class data points to.
template <class T>
T* allocate(std::size_t bytes) {
  void* const block = std::calloc(1, bytes);
  if (block == nullptr) fatal_error("no memory for the Objective-C classes (%zu bytes)", bytes);
  return static_cast<T*>(block);
}

const ObjcMethodList* build_method_list(const MethodRow* rows) {
  std::uint32_t count = 0;
  while (rows[count].selector != nullptr) ++count;
  auto* const list = allocate<ObjcMethodList>(sizeof(ObjcMethodList) + count * sizeof(ObjcMethod));
  *list = {sizeof(ObjcMethod), count};
  auto* const methods = reinterpret_cast<ObjcMethod*>(list + 1);
  for (std::uint32_t i = 0; i < count; ++i) methods[i] = {rows[i].selector, "", rows[i].implementation};
  return list;
}

std::uint64_t build_info(const ClassRow& row, std::uint32_t flags, std::uint32_t size, const MethodRow* methods) {
  auto* const info = allocate<ObjcClassInfo>(sizeof(ObjcClassInfo));
  info->flags = flags;
  info->instance_start = 8;
  info->instance_size = size;
  info->name = row.name;
  info->methods = build_method_list(methods);
  return reinterpret_cast<std::uint64_t>(info);
}

}  // namespace

void build_objc_classes() {
  empty_method_cache();
  ObjcClass* const root_metaclass = class_rows[0].metaclass;
  for (const ClassRow& row : class_rows) {
    row.class_->isa = row.metaclass;
    row.class_->superclass = row.superclass;
    row.class_->data = build_info(row, 0, row.instance_size, row.methods);
    row.metaclass->isa = root_metaclass;
    row.metaclass->superclass = row.superclass != nullptr ? row.superclass->isa : row.class_;
    row.metaclass->data = build_info(row, 1, sizeof(ObjcClass), row.class_methods);
  }
}

bool is_library_class(const ObjcClass* class_) {
  return std::ranges::any_of(class_rows, [&](const ClassRow& row) { return row.class_ == class_; });
}

const ShimEntry root_class_rows[] = {
    {"_OBJC_CLASS_$_NSObject", &objc_class_NSObject},
    {"_OBJC_METACLASS_$_NSObject", &objc_metaclass_NSObject},
};
constinit const ShimRows root_class_shims = root_class_rows;

const ShimEntry class_symbol_rows[] = {
#define CLASS(name, superclass, size) \
  {"_OBJC_CLASS_$_" #name, &objc_class_##name}, {"_OBJC_METACLASS_$_" #name, &objc_metaclass_##name},
#include "objc/class_list.def"
#undef CLASS
    {"___CFConstantStringClassReference", &objc_class_NSString},
};
constinit const ShimRows class_shims = class_symbol_rows;

}  // namespace vlm
