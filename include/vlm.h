/*
 * The C interface of GameAssembly.dll for mods and tools.
 *
 * Two calling conventions meet in the game process. Windows code (the player, mods, this interface) uses the
 * Windows x64 convention; game code (the macOS image and everything it calls) uses the System V AMD64 convention.
 * A function pointer must not cross from one side to the other as it is: wrap it first, with the functions below.
 *
 * Everything here is exported from GameAssembly.dll under its plain name, has the Windows x64 convention and may be
 * called from any thread at any time after the library was loaded. Link against the library or look the names up
 * with GetProcAddress.
 */
#ifndef VLM_H
#define VLM_H

#include <stddef.h>
#include <stdint.h>

/* The library itself defines this as an export. */
#ifndef VLM_API
#define VLM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Exceptions
 *
 * An exception of the game that is thrown below a Windows function and caught above it passes that function's frames
 * without running destructors, handlers or anything else of them. While your function calls the game it must hold
 * nothing that it would have to give back; call managed code through il2cpp_runtime_invoke(), which hands exceptions
 * over in its last argument. docs/modding.md says more.
 */

/*
 * Crossing between the conventions
 *
 * Wrappers forward up to six integer or pointer arguments and the result in rax (and xmm0). Structures by value,
 * floating-point arguments and more than six arguments are outside their reach. A wrapper is never freed: it stays
 * valid until the process ends, so wrap a function once and keep the result.
 */

/**
 * Makes a Windows function callable from game code.
 *
 * Returns a System V function pointer to hand to the game, or null for a null `function`. Wrapping the same function
 * again returns the same pointer for the first 1024 functions that are wrapped; beyond that each call makes a new
 * wrapper, and vlm_unwrap_callback() does not know it. The process ends with a message when memory is out.
 */
VLM_API void* vlm_wrap_callback(void* function);

/**
 * Makes a Windows function callable from game code in place of a managed method's code.
 *
 *   method    the method, as il2cpp_class_get_method_from_name() and its like return it (a MethodInfo*)
 *   function  takes the instance if there is one, the method's parameters, and a last argument that is the MethodInfo;
 *             returns what the method returns. Numbers, pointers and value types are declared as what they are:
 *                 struct Vector3 { float x, y, z; };
 *                 struct Vector3 add(struct Vector3 a, struct Vector3 b, const void* method);
 *
 * Unlike vlm_wrap_callback() this carries any argument and result. Returns a System V function pointer, or null when
 * an argument is null, the game is not loaded yet, or the method has more than 22 parameters, a value type parameter
 * of more than 64 bytes, a value type result of more than 256, or a value type aligned to more than 16. Wrapping the
 * same function for the same method again returns the same pointer. The process ends with a message when memory is out.
 */
VLM_API void* vlm_wrap_method_callback(const void* method, void* function);

/**
 * The Windows function behind a pointer from vlm_wrap_callback() or vlm_wrap_method_callback(). Any other pointer is
 * returned as it is, so unwrapping a pointer that was never wrapped is harmless. The pointer is not followed.
 */
VLM_API void* vlm_unwrap_callback(void* pointer);

/**
 * Makes a game function callable from Windows code.
 *
 *   function        System V function of the game
 *   argument_count  integer or pointer arguments it takes, at most 6
 *
 * Returns a Windows x64 function pointer, or null when `function` is null or `argument_count` is 7 or more. Each call
 * makes a new wrapper. The process ends with a message when memory is out.
 */
VLM_API void* vlm_wrap_sysv_function(void* function, uint32_t argument_count);

/**
 * Takes a fresh page for hand-made code within reach of a loaded image's 32-bit relative jumps.
 *
 *   address  anywhere inside the image, as loaded
 *
 * Returns 4096 zeroed bytes, readable, writable and executable, in the 16 MiB right behind the image; or null when
 * the address is in no image, those 16 MiB are used up or memory is out. Pages are never freed.
 */
VLM_API void* vlm_allocate_trampoline(void* address);

/*
 * The game image
 */

/**
 * Address of a function or variable of the game image, static ones included, by its symbol-table name.
 *
 *   name  with or without the Mach-O underscore: "il2cpp_init" finds "_il2cpp_init"
 *
 * Returns null when the name is null, the image has no such symbol (or was stripped of it), or the game is not loaded
 * yet. A function found here has the System V convention. Every call searches the whole symbol table: keep the result.
 */
VLM_API void* vlm_native_symbol(const char* name);

/** 1 when the address lies inside the loaded game image, else 0; the pages and stubs behind the image do not. */
VLM_API int32_t vlm_is_mac_address(const void* address);

/**
 * What the library has noted for itself since the process began and never frees, for watching a long play: calls that
 * an exception has passed, methods that a message has found, functions that were wrapped, methods that were called
 * across the conventions, places for threads. Each is bounded by something of the game.
 */
typedef struct {
  uint32_t frames, methods, callbacks, calls, threads;
} vlm_record_counts;
VLM_API void vlm_count_records(vlm_record_counts* counts);

/*
 * Mods
 */

/**
 * A mod's function. Called on the game's main thread, from inside the managed invocations that the player makes, at
 * most every 15 ms; never before the first scene change and never while it runs already. `called_before` is 0 on the
 * first call and 1 on every later one. It may call il2cpp_* exports. One that an exception of the game has left is
 * called again.
 */
typedef void (*vlm_mod_entry)(int32_t called_before);

/** Version of this interface: 1. */
VLM_API uint32_t vlm_mod_abi_version(void);

/**
 * Registers the mod. Returns 1 when `entry` is registered now (again or for the first time), 0 when it is null or
 * another mod is registered already. There is no way to unregister.
 */
VLM_API int32_t vlm_mod_register(vlm_mod_entry entry);

/*
 * Controllers
 *
 * What any of the game's controllers said when the game last polled it. A keyboard counts where the player has made it
 * a controller. Questions are cheap enough for every frame.
 */

/**
 * Looks which controllers are connected, at most once per 500 ms; the game's own handlers are told of changes on the
 * calling thread, so call it where game code may run.
 */
VLM_API void pc_pad_refresh(void);

/** 1 while the upper face button (Y, triangle) of any controller is held, else 0. */
VLM_API int32_t pc_pad_north_held(void);

/** 1 while the lower face button (A, cross) of any controller is held, else 0. */
VLM_API int32_t pc_pad_south_held(void);

/** 1 while the right shoulder button of any controller is held, else 0. */
VLM_API int32_t pc_pad_right_shoulder_held(void);

/**
 * How far left (-1) or right (1) is held on the left stick or the directional pad, of the controller where it is held
 * farthest; the first one's of equals.
 */
VLM_API float pc_pad_lateral(void);

#ifdef __cplusplus
}
#endif

#endif
