#include <windows.h>
// psapi.h wants what windows.h brings.
#include <psapi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <string>

#include "check/check.h"
#include "shared/console.h"
#include "support/procedures.h"

namespace vlm::check {
namespace {

using tools::utf8_of;

/// A text of the registry, empty when it is not there.
std::string registry_text(const wchar_t* key, const wchar_t* name) {
  std::array<wchar_t, 256> text{};
  DWORD size = sizeof text - sizeof(wchar_t);
  RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_REG_SZ, nullptr, text.data(), &size);
  return utf8_of(text.data());
}

std::string describe_system() {
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  // GetVersionEx answers what the program says that it knows.
  if (const auto get_version = find_procedure<LONG WINAPI(OSVERSIONINFOW*)>(ntdll, "RtlGetVersion")) {
    get_version(&version);
  }
  const wchar_t* const key = LR"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
  std::string text = "Windows " + std::to_string(version.dwMajorVersion) + "." +
                     std::to_string(version.dwMinorVersion) + "." + std::to_string(version.dwBuildNumber) + " " +
                     registry_text(key, L"ProductName") + " " + registry_text(key, L"DisplayVersion");
  if (const auto wine_version = find_procedure<const char * CDECL()>(ntdll, "wine_get_version")) {
    text += std::string(", Wine ") + wine_version();
  }
  return text;
}

/// Programs that look into others, such as overlays and scanners, have a library of theirs in each.
std::string foreign_modules() {
  std::array<wchar_t, MAX_PATH> system{};
  GetWindowsDirectoryW(system.data(), system.size());
  std::array<HMODULE, 512> modules{};
  DWORD size = 0;
  if (!EnumProcessModules(GetCurrentProcess(), modules.data(), sizeof modules, &size)) return "not known";
  std::string names;
  for (std::size_t i = 1; i < std::min<std::size_t>(size / sizeof(HMODULE), modules.size()); ++i) {  // 0 is the program
    std::array<wchar_t, MAX_PATH> path{};
    GetModuleFileNameW(modules[i], path.data(), path.size() - 1);
    if (_wcsnicmp(path.data(), system.data(), wcslen(system.data())) != 0) names += " " + utf8_of(path.data());
  }
  return names.empty() ? "none" : names.substr(1);
}

}  // namespace

std::string describe_machine() {
  SYSTEM_INFO system{};
  GetSystemInfo(&system);
  MEMORYSTATUSEX memory{};
  memory.dwLength = sizeof memory;
  GlobalMemoryStatusEx(&memory);
  std::array<wchar_t, LOCALE_NAME_MAX_LENGTH> locale{};
  GetUserDefaultLocaleName(locale.data(), locale.size());
  SYSTEMTIME now{};
  GetSystemTime(&now);
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), "%04d-%02d-%02d %02d:%02d UTC", now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute);
  std::ostringstream text;
  text << "time       " << time.data() << "\nsystem     " << describe_system() << "\nprocessor  "
       << registry_text(LR"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)", L"ProcessorNameString") << ", "
       << system.dwNumberOfProcessors << " of them\nmemory     " << (memory.ullTotalPhys >> 20) << " MB, "
       << (memory.ullAvailPhys >> 20) << " MB free\nlanguage   " << utf8_of(locale.data()) << ", code page " << GetACP()
       << "\nforeign    " << foreign_modules() << "\n";
  return text.str();
}

}  // namespace vlm::check
