// GameAssembly.dll: found beside the player, its exports typed from the list that the library makes them from.
#pragma once

#include <string>

#include "host/il2cpp_types.h"
#include "vlm.h"

struct Api {
#define IL2CPP_FORWARD(result, name, parameters, arguments) result(*name) parameters;
#define IL2CPP_LOCAL(result, name, parameters) result(*name) parameters;
#include "host/il2cpp_exports.def"
  decltype(&::pc_pad_south_held) pc_pad_south_held;
};

/// Complete once load_library() has returned, then read-only.
extern Api api;

/// The player's folder, with a backslash at its end.
std::wstring player_directory();

/// Loads the library and takes all of its exports; ends the process with EXIT_NOT_STARTED when something is missing.
void load_library();

// Text between Windows and the interface

std::string utf8_of(const wchar_t* text);
std::wstring utf16_of(const char* text);
/// The text of a managed string.
std::string utf8_of(Il2CppString* string);
