#include "library.h"

#include <windows.h>

#include "report.h"

Api api;

std::wstring player_directory() {
  std::wstring path(MAX_PATH, 0);
  DWORD length;
  while ((length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))) == path.size()) {
    path.resize(path.size() * 2);
  }
  path.resize(length);
  return path.substr(0, path.rfind(L'\\') + 1);
}

static void take_export(HMODULE library, const char* name, void* place) {
  const FARPROC address = GetProcAddress(library, name);
  if (address == nullptr) {
    fail(EXIT_NOT_STARTED, "GameAssembly.dll does not export %s: is it the loader library?", name);
  }
  *static_cast<FARPROC*>(place) = address;
}

void load_library() {
  const std::wstring path = player_directory() + L"GameAssembly.dll";
  const HMODULE library = LoadLibraryW(path.c_str());
  if (library == nullptr) {
    const DWORD error = GetLastError();
    fail(EXIT_NOT_STARTED, "cannot load %s (Windows error %lu)%s", utf8_of(path.c_str()).c_str(), error,
         error == ERROR_MOD_NOT_FOUND ? ": put GameAssembly.dll into the player's folder" : "");
  }
#define IL2CPP_FORWARD(result, name, parameters, arguments) take_export(library, #name, &api.name);
#define IL2CPP_LOCAL(result, name, parameters) take_export(library, #name, &api.name);
#include "host/il2cpp_exports.def"
  take_export(library, "pc_pad_south_held", &api.pc_pad_south_held);
  say("loaded %s", utf8_of(path.c_str()).c_str());
}

std::string utf8_of(const wchar_t* text) {
  std::string utf8(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr), 0);
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr);
  utf8.pop_back();
  return utf8;
}

std::wstring utf16_of(const char* text) {
  std::wstring utf16(MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0), 0);
  MultiByteToWideChar(CP_UTF8, 0, text, -1, utf16.data(), static_cast<int>(utf16.size()));
  utf16.pop_back();
  return utf16;
}

std::string utf8_of(Il2CppString* string) {
  if (string == nullptr) return "(null)";
  const auto* units = reinterpret_cast<const wchar_t*>(api.il2cpp_string_chars(string));
  return utf8_of(std::wstring(units, api.il2cpp_string_length(string)).c_str());
}
