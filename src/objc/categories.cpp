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
  const auto address = reinterpret_cast<std::uint64_t>(object);
  return image.contains(address) && size <= image.base + image.extent() - address;
}

}  // namespace

std::span<const AttachedMethods> attached_methods() { return attached; }

void attach_objc_categories(const MachImage& image) {
  for (int i = 0; i < image.section_count; ++i) {
    const MachSection& section = image.sections[i];
    if (std::strcmp(section.sectname, "__objc_catlist") != 0) continue;
    for (std::uint64_t at = 0; at + sizeof(void*) <= section.size; at += sizeof(void*)) {
      const ObjcCategory* category;
      std::memcpy(&category, reinterpret_cast<const std::byte*>(section.addr) + at, sizeof(void*));
      if (!holds(image, category, sizeof *category)) {
        log_message(0, "[objc] category %llu of %s lies outside the image and is left out",
                    static_cast<unsigned long long>(at / sizeof(void*)), image.path);
        continue;
      }
      if (category->class_ == nullptr) continue;  // a weak import that nobody has
      attach(category->class_, category->methods);
      attach(category->class_->isa, category->class_methods);
    }
  }
}

}  // namespace vlm
