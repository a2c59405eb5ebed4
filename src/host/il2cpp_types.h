// The names under which the IL2CPP embedding interface passes its objects. All are opaque here: the library
// moves their addresses between the player and the game and never looks inside. C headers only: macOS code that has no
// C++ standard library includes this file too.
#pragma once

#include <stddef.h>
#include <stdint.h>

using Il2CppChar = uint16_t;  // a UTF-16 unit
/// The width of a handle differs between runtime versions (32 bits, later a pointer); a pointer-sized value
/// carries both through registers.
using Il2CppGCHandle = uintptr_t;
/// Of what il2cpp_method_get_flags stores (MethodImplAttributes, ECMA-335 II.23.1.11): the method is an internal call.
constexpr uint32_t METHOD_IMPL_ATTRIBUTE_INTERNAL_CALL = 0x1000;
/// A function pointer that the player hands over. What it takes is between the player and the game.
using Il2CppCallback = void*;

struct Il2CppArray;
struct Il2CppAssembly;
struct Il2CppClass;
struct Il2CppCustomAttrInfo;
struct Il2CppDomain;
struct Il2CppException;
struct Il2CppImage;
struct Il2CppManagedMemorySnapshot;
struct Il2CppMemoryCallbacks;
struct Il2CppMethodDebugInfo;
struct Il2CppObject;
struct Il2CppProfiler;
struct Il2CppReflectionMethod;
struct Il2CppReflectionType;
struct Il2CppStackFrameInfo;
struct Il2CppString;
struct Il2CppThread;
struct Il2CppType;
struct EventInfo;
struct FieldInfo;
struct MethodInfo;
struct PropertyInfo;
