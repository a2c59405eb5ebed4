#include "host/reflection.h"

#include <cstdint>

#include "macho/queries.h"

namespace vlm {

constinit ReflectionApi reflection_api{};

void resolve_reflection_api(const MachImage& image) {
#define X(name) \
  reflection_api.name = reinterpret_cast<decltype(reflection_api.name)>(macho_find_export(image, "_" #name));
  REFLECTION_FUNCTIONS(X)
#undef X
  reflection_api.image = &image;
}

}  // namespace vlm
