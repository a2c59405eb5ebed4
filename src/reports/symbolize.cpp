#include "reports/symbolize.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <cwchar>

#include "macho/image.h"
#include "macho/queries.h"
#include "macho/symbol_index.h"

namespace vlm {
namespace {

using Wide = unsigned long long;  // what %llx prints

/// The module's file name without its folder, in UTF-8.
void name_module(HMODULE module, char (&name)[MAX_PATH]) {
  wchar_t path[MAX_PATH];
  if (GetModuleFileNameW(module, path, MAX_PATH) == 0) std::wcscpy(path, L"?");
  path[MAX_PATH - 1] = L'\0';
  const wchar_t* const last = std::wcsrchr(path, L'\\');
  if (WideCharToMultiByte(CP_UTF8, 0, last != nullptr ? last + 1 : path, -1, name, MAX_PATH, nullptr, nullptr) == 0) {
    std::strcpy(name, "?");
  }
}

/// Names `address` as part of what holds the byte `back` bytes in front of it.
bool name(std::uint64_t address, std::uint64_t back, char (&text)[symbol_text_size]) {
  for (const MachImage* image : macho_images()) {
    if (!image->contains(address - back)) continue;
    macho_index_symbols(*image);
    std::uint64_t distance = 0;
    if (const char* const symbol = macho_symbol_for_address(*image, address - back, &distance)) {
      std::snprintf(text, symbol_text_size, "GameAssembly.dylib!%s+0x%llx", symbol, Wide{distance + back});
    } else {
      std::snprintf(text, symbol_text_size, "GameAssembly.dylib+0x%llx", Wide{address - image->base});
    }
    return true;
  }
  if (address == 0) return false;  // the call below would take it for the program itself
  HMODULE module;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<const wchar_t*>(address - back), &module)) {
    return false;
  }
  char file[MAX_PATH];
  name_module(module, file);
  std::snprintf(text, symbol_text_size, "%s+0x%llx", file, Wide{address - reinterpret_cast<std::uint64_t>(module)});
  return true;
}

}  // namespace

bool symbolize_address(std::uint64_t address, char (&text)[symbol_text_size]) { return name(address, 0, text); }
bool symbolize_return_address(std::uint64_t address, char (&text)[symbol_text_size]) { return name(address, 1, text); }

}  // namespace vlm
