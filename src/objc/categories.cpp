#include "objc/categories.h"

#include <cstring>
#include <vector>

#include "diag/log.h"

namespace vlm {
namespace {

/// `category_t`. What follows (protocols, properties) is of no use here.
struct ObjcCategory {
  const char* name;
  ObjcClass* class_;
  const ObjcMethodList* methods;        // or null
  const ObjcMethodList* class_methods;  // or null
};

// Written by the start-up driver before game code runs, then read-only.
constinit std::vector<AttachedMethods> attached;

void attach(const ObjcClass* class_, const ObjcMethodList* methods) {
  if (class_ != nullptr && methods != nullptr) attached.insert(attached.begin(), {class_, methods});
}

bool holds(const MachImage& image, const void* object, std::uint64_t size) {
  return image.contains(reinterpret_cast<std::uint64_t>(object), size);
}

bool is_aligned(const void* object) { return reinterpret_cast<std::uint64_t>(object) % alignof(void*) == 0; }

/// Null, or a list that lies in the image with all its entries.
bool is_sound(const MachImage& image, const ObjcMethodList* list) {
  if (list == nullptr) return true;
  if (!is_aligned(list) || !holds(image, list, sizeof *list)) return false;
  const bool relative = (list->entry_size_and_flags & relative_method_list) != 0;
  const std::uint64_t stride = list->entry_size_and_flags & method_entry_size_mask;
  return stride >= (relative ? sizeof(ObjcRelativeMethod) : sizeof(ObjcMethod)) &&
         holds(image, list, sizeof *list + stride * list->count);
}

/// Null, or a class of the library or the image. The empty object in place of a missing class counts as null.
bool is_sound(const MachImage& image, const ObjcClass* class_) {
  return class_ == nullptr || is_library_class(class_) || (is_aligned(class_) && holds(image, class_, sizeof *class_));
}

}  // namespace

std::span<const AttachedMethods> attached_methods() { return attached; }

void attach_objc_categories(const MachImage& image) {
  for (int i = 0; i < image.section_count; ++i) {
    const MachSection& section = image.sections[i];
    if (std::strcmp(section.sectname, "__objc_catlist") != 0) continue;
    for (std::uint64_t at = 0; at + sizeof(void*) <= section.size; at += sizeof(void*)) {
      const void* place;
      std::memcpy(&place, reinterpret_cast<const std::byte*>(section.addr) + at, sizeof(void*));
      ObjcCategory category{};
      const bool inside = holds(image, place, sizeof category);
      if (inside) std::memcpy(&category, place, sizeof category);
      if (!inside || !is_sound(image, category.class_) || !is_sound(image, category.methods) ||
          !is_sound(image, category.class_methods)) {
        log_message(0, "[objc] category %llu of %s %s and is left out",
                    static_cast<unsigned long long>(at / sizeof(void*)), image.path,
                    inside ? "is damaged, or its class is missing," : "lies outside the image");
        continue;
      }
      if (category.class_ == nullptr) continue;  // a weak import that nobody has
      attach(category.class_, category.methods);
      attach(category.class_->isa, category.class_methods);
    }
  }
}

}  // namespace vlm
