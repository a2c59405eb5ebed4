# Everything but the library's own start: linked into GameAssembly.dll and into the unit tests.
add_library(vlm STATIC
  ${VLM_CORE_SOURCES}
  src/abi/callbacks.cpp
  src/abi/format_shims.cpp
  src/abi/shims.cpp
  src/abi/entries.S
  src/abi/stubs.cpp
  src/binding/catalogue.cpp
  src/binding/shim_table.cpp
  src/cxx/allocation.cpp
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
  src/posix/error_numbers.cpp
  src/posix/file_status.cpp
  src/posix/host_path.cpp
  src/posix/mapping.cpp
  src/posix/math.cpp
  src/posix/memory.cpp
  src/posix/numbers.cpp
  src/posix/random.cpp
  src/posix/rune_locale.cpp
  src/posix/sorting.cpp
  src/posix/streams.cpp
  src/posix/strings.cpp
  src/posix/dispatch.cpp
  src/posix/mach_threads.cpp
  src/posix/mutexes.cpp
  src/posix/signals.cpp
  src/posix/threads.cpp
  src/posix/dyld.cpp
  src/posix/dynamic_loading.cpp
  src/posix/environment.cpp
  src/posix/process.cpp
  src/posix/system_info.cpp
  src/posix/time.cpp
  src/posix/time_text.cpp
  src/support/bytes.cpp
  src/support/save_directory.cpp
  src/support/text.cpp
  src/tls/adopt.cpp
  src/tls/game_tls.cpp
  src/tls/gs_patch.cpp
  src/tls/thread_record.cpp)
target_include_directories(vlm PUBLIC src include)
target_link_libraries(vlm PUBLIC bcrypt gdi32)
# Everything that could lose a value or is no standard C++ is a warning, and so an error; arrays at the end of a record,
# and assembly, stay.
set(VLM_WARNINGS -Wpedantic -Wconversion -Wno-c99-extensions -Wno-gnu-flexible-array-initializer -Wno-zero-length-array
    -Wno-language-extension-token)
# -fno-auto-import: all data that the library reads is its own, so it is reached directly and not through a pointer.
target_compile_options(vlm PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-auto-import ${VLM_WARNINGS}>)
target_compile_definitions(vlm PRIVATE "VLM_API=__declspec(dllexport)")

add_library(GameAssembly SHARED
  src/host/static_startup.cpp
  src/tls/attach_callback.cpp)
target_compile_options(GameAssembly PRIVATE -fno-exceptions -fno-rtti -fno-auto-import ${VLM_WARNINGS})
target_compile_definitions(GameAssembly PRIVATE "VLM_VERSION=\"${PROJECT_VERSION}\"")
target_link_libraries(GameAssembly PRIVATE -Wl,--whole-archive vlm -Wl,--no-whole-archive)
set_target_properties(GameAssembly PROPERTIES
  PREFIX ""
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
