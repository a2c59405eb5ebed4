#include "inspect/names.h"

#include <algorithm>
#include <cstdio>

#include "macho/format.h"

namespace vlm::inspect {
namespace {

std::string hexadecimal(std::uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(number));
  return text;
}

}  // namespace

std::string file_kind(std::uint32_t filetype) {
  static constexpr const char* kinds[] = {nullptr, "object",   "executable", "fixed library", "core",         "preload",
                                          "dylib", "dylinker", "bundle",     "dylib stub",    "debug symbols"};
  return filetype != 0 && filetype < std::size(kinds) ? kinds[filetype] : "file type " + hexadecimal(filetype);
}

std::string protection(std::uint32_t initprot) {
  return {initprot & VM_PROT_READ ? 'r' : '-', initprot & VM_PROT_WRITE ? 'w' : '-',
          initprot & VM_PROT_EXECUTE ? 'x' : '-'};
}

}  // namespace vlm::inspect
