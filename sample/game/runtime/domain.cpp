// The domain, its assemblies and their images.
#include "runtime/runtime.h"

static Il2CppDomain the_domain;

Il2CppDomain& domain() { return the_domain; }

AssemblyRegistration::AssemblyRegistration(Il2CppAssembly& assembly) {
  if (the_domain.assembly_count == Il2CppDomain::max_assemblies) return;
  the_domain.assemblies[the_domain.assembly_count++] = &assembly;

  Il2CppImage& image = *assembly.image;
  image.assembly = &assembly;
  for (Il2CppClass* klass : image.classes) {
    klass->image = &image;
    for (FieldInfo& field : klass->fields) field.parent = klass;
    for (Il2CppClass* nested : klass->nested) nested->declaring = klass;
    for (MethodInfo& method : klass->methods) method.parent = klass;
  }
  log(Text() << "game: initializer: " << image.name << " brings " << static_cast<uint64_t>(image.classes.count)
             << " classes");
}

Il2CppDomain* il2cpp_domain_get() { return &the_domain; }

const Il2CppAssembly** il2cpp_domain_get_assemblies(const Il2CppDomain*, size_t* count) {
  *count = the_domain.assembly_count;
  return the_domain.assemblies;
}

/// Finds an assembly by its name, with or without ".dll". There is nothing to load: all assemblies are in the image.
const Il2CppAssembly* il2cpp_domain_assembly_open(Il2CppDomain*, const char* name) {
  for (size_t i = 0; i < the_domain.assembly_count; ++i) {
    const Il2CppAssembly* assembly = the_domain.assemblies[i];
    if (strcmp(assembly->name, name) == 0 || strcmp(assembly->image->name, name) == 0) return assembly;
  }
  return nullptr;
}

const Il2CppImage* il2cpp_assembly_get_image(const Il2CppAssembly* assembly) { return assembly->image; }

const char* il2cpp_image_get_name(const Il2CppImage* image) { return image->name; }
size_t il2cpp_image_get_class_count(const Il2CppImage* image) { return image->classes.count; }
const Il2CppClass* il2cpp_image_get_class(const Il2CppImage* image, size_t index) {
  return index < image->classes.count ? image->classes.first[index] : nullptr;
}
