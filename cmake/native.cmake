# Programs of this machine: the tools, tests and fuzz targets of the portable core and the tools, the native side of the
# benchmarks.
include(tools/tools.cmake)

# The core's own sources are looked at in the Windows build.
include(cmake/tidy.cmake)
add_tidy(tessera_core tessera inspect_core inspect port_core port)

# ---- Tests ---------------------------------------------------------------------------------------------------------
# The sources of the portable core once more, watched by the sanitizers; any report ends the program.
add_library(vlm_core_checked STATIC ${VLM_CORE_SOURCES} tests/fuzz/image_run.cpp)
target_include_directories(vlm_core_checked PUBLIC src tests)
target_compile_options(vlm_core_checked PUBLIC -g -fsanitize=address,undefined,fuzzer-no-link
                                               -fno-sanitize-recover=all)
target_link_options(vlm_core_checked PUBLIC -fsanitize=address,undefined)

# Prints compact unwind information as read here, to be compared with another reader's.
add_executable(unwind_info_test tests/unit-native/unwind_info_test.cpp)
target_link_libraries(unwind_info_test PRIVATE tessera_core)

# Compares the button glyphs, as libpng reads them, with their geometry.
add_executable(glyphs_test tests/unit-native/glyphs_test.cpp)
target_link_libraries(glyphs_test PRIVATE vlm_core_checked png)

add_executable(rows_test tests/unit-native/rows_test.cpp)
target_link_libraries(rows_test PRIVATE inspect_core)

foreach(tool inspect tessera)
  add_executable(${tool}_test tests/unit-native/${tool}_test.cpp)
  target_include_directories(${tool}_test PRIVATE tests)
  target_link_libraries(${tool}_test PRIVATE ${tool}_core)
endforeach()

# The guest of the same source answers as this machine's C library does. As a guest is: with the calls that it has.
add_executable(differ tests/guest/differ.cpp)
target_compile_options(differ PRIVATE -fno-builtin -Wno-conversion -Wno-sign-conversion)

# Writes a guest image's source for the test of Tessera's replacements.
add_executable(make_gs_cases tests/guest/make_gs_cases.cpp)

# ---- Fuzz targets and their deterministic sibling ------------------------------------------------------------------
add_executable(mutate_images tests/fuzz/mutate_images.cpp)
target_link_libraries(mutate_images PRIVATE vlm_core_checked)
add_custom_command(TARGET mutate_images POST_BUILD
  COMMAND mutate_images --seeds ${CMAKE_BINARY_DIR}/fuzz_seeds VERBATIM)

# A fuzz target is one file, tests/fuzz/fuzz_<name>.cpp, with LLVMFuzzerTestOneInput.
foreach(name cloud_file export_trie fixups format hid_reports image inspect lsda patch_list unwind_info)
  add_executable(fuzz_${name} tests/fuzz/fuzz_${name}.cpp)
  target_link_libraries(fuzz_${name} PRIVATE vlm_core_checked)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
endforeach()

# The inspector with everything below it: any bytes as an image, and as a library.
target_sources(fuzz_inspect PRIVATE ${INSPECT_SOURCES} ${TESSERA_SOURCES})
set_target_properties(fuzz_inspect PROPERTIES EXPORT_COMPILE_COMMANDS OFF)  # clang-tidy looks at the tools' own
target_include_directories(fuzz_inspect PRIVATE tools)
target_link_libraries(fuzz_inspect PRIVATE Zydis)

# ---- Benchmarks ----------------------------------------------------------------------------------------------------
# Makes the large image that the loader and Tessera are measured with.
add_executable(make_image EXCLUDE_FROM_ALL benchmarks/make_image.cpp)
target_include_directories(make_image PRIVATE tests)
target_link_libraries(make_image PRIVATE tessera_core)

add_executable(tessera_bench EXCLUDE_FROM_ALL benchmarks/tessera_bench.cpp)
target_link_libraries(tessera_bench PRIVATE tessera_core)

# Peers of the benchmarks whose cases are compiled natively as well: libc++ as this machine has it, the two ways in
# which it throws, and libffi for calls by description.
add_executable(ffi_peer EXCLUDE_FROM_ALL benchmarks/native_peer.cpp benchmarks/ffi_cases.cpp)
target_link_libraries(ffi_peer PRIVATE ffi)
add_executable(string_peer EXCLUDE_FROM_ALL benchmarks/native_peer.cpp benchmarks/string_cases.cpp)
add_executable(throw_peer_clang EXCLUDE_FROM_ALL benchmarks/native_peer.cpp benchmarks/throw_cases.cpp)
foreach(peer string_peer throw_peer_clang)
  target_compile_options(${peer} PRIVATE -stdlib=libc++)
  target_link_options(${peer} PRIVATE -stdlib=libc++)
endforeach()
target_link_options(throw_peer_clang PRIVATE -rtlib=compiler-rt --unwindlib=libunwind)
set(throw_peer_sources ${CMAKE_SOURCE_DIR}/benchmarks/native_peer.cpp ${CMAKE_SOURCE_DIR}/benchmarks/throw_cases.cpp)
add_custom_command(OUTPUT throw_peer_gcc
  COMMAND g++ -O2 -std=c++20 ${throw_peer_sources} -o throw_peer_gcc
  DEPENDS ${throw_peer_sources} ${CMAKE_SOURCE_DIR}/benchmarks/case_report.h ${CMAKE_SOURCE_DIR}/benchmarks/report.h
  VERBATIM)

add_custom_target(benches DEPENDS make_image tessera_bench ffi_peer string_peer throw_peer_clang throw_peer_gcc)
