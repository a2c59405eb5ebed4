#include "macho/symbol_index.h"

#include <windows.h>

#include "macho/queries.h"

namespace vlm {

void macho_index_symbols(const MachImage& image) {
  if (__atomic_load_n(&image.symbol_places, __ATOMIC_ACQUIRE) != nullptr || image.nsyms == 0) return;
  const std::size_t capacity = macho_section_symbols(image, {});
  void* const memory = VirtualAlloc(nullptr, sizeof(SymbolPlaces) + capacity * sizeof(SymbolPlace),
                                    MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  if (memory == nullptr) return;
  auto* const places = static_cast<SymbolPlaces*>(memory);
  places->count = macho_section_symbols(image, {places->begin(), capacity});
  const SymbolPlaces* none = nullptr;
  if (!__atomic_compare_exchange_n(&image.symbol_places, &none, places, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    VirtualFree(memory, 0, MEM_RELEASE);  // another thread was faster
  }
}

}  // namespace vlm
