# What the library is made of: everything but its own start, which unit tests do without, and that start.
set(VLM_MODULES
  ${VLM_CORE_SOURCES}
  src/abi/callbacks.cpp
  src/abi/format_shims.cpp
  src/abi/shims.cpp
  src/abi/entries.S
  src/abi/stubs.cpp
  src/binding/catalogue.cpp
  src/binding/shim_table.cpp
  src/cxx/allocation.cpp
  src/cxx/exception_memory.cpp
  src/cxx/exceptions.cpp
  src/cxx/frames.cpp
  src/cxx/guards.cpp
  src/cxx/handlers.cpp
  src/cxx/strings.cpp
  src/cxx/throw_entries.S
  src/cxx/type_matching.cpp
  src/cxx/unwinder.cpp
  src/diag/crash_report.cpp
  src/diag/log.cpp
  src/host/call_plan.cpp
  src/host/classify.cpp
  src/host/driver.cpp
  src/host/exports.cpp
  src/host/forward_table.cpp
  src/host/internal_call_names.cpp
  src/host/internal_calls.cpp
  src/host/local_exports.cpp
  src/host/managed_calls.cpp
  src/host/method_callbacks.cpp
  src/host/mods.cpp
  src/host/paths.cpp
  src/host/reflection.cpp
  src/host/title_keeper.cpp
  src/input/connections.cpp
  src/input/controller_plugin.cpp
  src/input/devices.cpp
  src/input/glyph_labels.cpp
  src/input/glyphs.cpp
  src/input/hid_system.cpp
  src/input/keyboard.cpp
  src/input/pad_summary.cpp
  src/input/sony_pads.cpp
  src/input/xinput.cpp
  src/macho/image_exports.cpp
  src/macho/initializers.cpp
  src/macho/load.cpp
  src/macho/symbol_index.cpp
  src/objc/categories.cpp
  src/objc/classes.cpp
  src/objc/cloud_store.cpp
  src/objc/core_foundation.cpp
  src/objc/dispatch.cpp
  src/objc/game_services.cpp
  src/objc/ns_collection_methods.cpp
  src/objc/ns_collections.cpp
  src/objc/ns_date.cpp
  src/objc/ns_error.cpp
  src/objc/ns_number.cpp
  src/objc/ns_object.cpp
  src/objc/ns_string.cpp
  src/objc/ns_string_methods.cpp
  src/objc/runtime.cpp
  src/objc/string_constants.cpp
  src/objc/system_objects.cpp
  src/plugins/mac_core.cpp
  src/plugins/modules.cpp
  src/posix/aligned_blocks.cpp
  src/posix/descriptors.cpp
  src/posix/directories.cpp
  src/posix/dispatch.cpp
  src/posix/dyld.cpp
  src/posix/dynamic_loading.cpp
  src/posix/environment.cpp
  src/posix/error_numbers.cpp
  src/posix/file_status.cpp
  src/posix/host_path.cpp
  src/posix/mach_threads.cpp
  src/posix/mapping.cpp
  src/posix/math.cpp
  src/posix/memory.cpp
  src/posix/mutexes.cpp
  src/posix/numbers.cpp
  src/posix/process.cpp
  src/posix/random.cpp
  src/posix/rune_locale.cpp
  src/posix/signals.cpp
  src/posix/sorting.cpp
  src/posix/streams.cpp
  src/posix/strings.cpp
  src/posix/system_info.cpp
  src/posix/threads.cpp
  src/posix/time.cpp
  src/posix/time_text.cpp
  src/support/bytes.cpp
  src/support/save_directory.cpp
  src/support/text.cpp
  src/tls/adopt.cpp
  src/tls/game_tls.cpp
  src/tls/gs_patch.cpp
  src/tls/thread_record.cpp)
set(VLM_START
  src/host/static_startup.cpp
  src/tls/attach_callback.cpp)

# add_game_library(modules dll folder [compile options]): a static library of the modules, and GameAssembly.dll in
# `folder`.
function(add_game_library modules dll folder)
  # -fno-auto-import: all data that the library reads is its own, so it is reached directly and not through a pointer.
  set(options $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-auto-import ${VLM_WARNINGS} ${ARGN}>)
  add_library(${modules} STATIC ${VLM_MODULES})
  target_include_directories(${modules} PUBLIC src include)
  target_link_libraries(${modules} PUBLIC bcrypt gdi32)
  target_compile_options(${modules} PRIVATE ${options})
  target_compile_definitions(${modules} PRIVATE "VLM_API=__declspec(dllexport)")

  add_library(${dll} SHARED ${VLM_START})
  target_compile_options(${dll} PRIVATE ${options})
  target_compile_definitions(${dll} PRIVATE "VLM_VERSION=\"${PROJECT_VERSION}\"")
  target_link_libraries(${dll} PRIVATE -Wl,--whole-archive ${modules} -Wl,--no-whole-archive)
  set_target_properties(${dll} PROPERTIES PREFIX "" OUTPUT_NAME GameAssembly
    RUNTIME_OUTPUT_DIRECTORY ${folder} ARCHIVE_OUTPUT_DIRECTORY ${folder})
endfunction()

add_game_library(vlm GameAssembly ${CMAKE_BINARY_DIR})

# The same for tests: what C++ leaves undefined (a misaligned access, an overflow, a null reference, a shift too far)
# is an illegal instruction. Types of functions are not looked at: game code has none to show.
set(VLM_CHECKED_DIR ${CMAKE_BINARY_DIR}/checked)
add_game_library(vlm_checked GameAssemblyChecked ${VLM_CHECKED_DIR}
  -O1 -fsanitize=undefined,float-cast-overflow -fno-sanitize=function -fsanitize-trap=undefined,float-cast-overflow)
