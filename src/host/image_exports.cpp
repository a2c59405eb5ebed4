// The questions about the game image that code outside the library may ask; documented in vlm.h.
#include "host/driver.h"
#include "macho/queries.h"
#include "vlm.h"

using vlm::MachImage;

VLM_API void* vlm_native_symbol(const char* name) {
  const MachImage* const image = vlm::game_image;
  if (name == nullptr || image == nullptr) return nullptr;
  return reinterpret_cast<void*>(vlm::macho_symbol_by_name(*image, name));
}

VLM_API int32_t vlm_is_mac_address(const void* address) {
  const MachImage* const image = vlm::game_image;
  return image != nullptr && image->contains(reinterpret_cast<std::uintptr_t>(address));
}
