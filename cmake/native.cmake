# Programs of this machine: the tools, fuzzers and their deterministic sibling, generators.
include(tools/tools.cmake)

# The sources of the portable core once more, watched by the sanitizers; any report ends the program.
add_library(vlm_core_checked STATIC ${VLM_CORE_SOURCES} tests/fuzz/image_run.cpp)
target_include_directories(vlm_core_checked PUBLIC src tests)
target_compile_options(vlm_core_checked PUBLIC -g -fsanitize=address,undefined,fuzzer-no-link
                                               -fno-sanitize-recover=all)
target_link_options(vlm_core_checked PUBLIC -fsanitize=address,undefined)

add_executable(mutate_images tests/fuzz/mutate_images.cpp)
target_link_libraries(mutate_images PRIVATE vlm_core_checked)
add_custom_command(TARGET mutate_images POST_BUILD
  COMMAND mutate_images --seeds ${CMAKE_BINARY_DIR}/fuzz_seeds VERBATIM)

# A fuzz target is one file, tests/fuzz/<name>.cpp, with LLVMFuzzerTestOneInput.
function(add_fuzzer name)
  add_executable(${name} tests/fuzz/${name}.cpp)
  target_link_libraries(${name} PRIVATE vlm_core_checked)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()
add_fuzzer(fuzz_image)
add_fuzzer(fuzz_fixups)
add_fuzzer(fuzz_export_trie)
add_fuzzer(fuzz_patch_list)
add_fuzzer(fuzz_format)
add_fuzzer(fuzz_unwind_info)
add_fuzzer(fuzz_lsda)
add_fuzzer(fuzz_hid_reports)
add_fuzzer(fuzz_cloud_file)

# Compares compact unwind information, as read here, with the listing of another reader.
add_executable(unwind_info_test tests/unit-native/unwind_info_test.cpp)
target_link_libraries(unwind_info_test PRIVATE vlm_core)

# Compares the button glyphs, as libpng reads them, with their geometry.
add_executable(glyphs_test tests/unit-native/glyphs_test.cpp)
target_link_libraries(glyphs_test PRIVATE vlm_core_checked png)

# Makes images of any size for the loader's benchmark.
add_executable(make_image benchmarks/make_image.cpp)
target_include_directories(make_image PRIVATE tests)
target_link_libraries(make_image PRIVATE vlm_core)

# Peers of the benchmarks whose cases are compiled natively as well: libc++ as this machine has it, and the two ways in
# which it throws.
add_executable(string_peer EXCLUDE_FROM_ALL benchmarks/native_peer.cpp benchmarks/string_cases.cpp)
target_compile_options(string_peer PRIVATE -stdlib=libc++)
target_link_options(string_peer PRIVATE -stdlib=libc++)
add_executable(throw_peer_clang EXCLUDE_FROM_ALL benchmarks/native_peer.cpp benchmarks/throw_cases.cpp)
target_compile_options(throw_peer_clang PRIVATE -stdlib=libc++)
target_link_options(throw_peer_clang PRIVATE -stdlib=libc++ -rtlib=compiler-rt --unwindlib=libunwind)
set(throw_peer_sources ${CMAKE_SOURCE_DIR}/benchmarks/native_peer.cpp ${CMAKE_SOURCE_DIR}/benchmarks/throw_cases.cpp)
add_custom_command(OUTPUT throw_peer_gcc
  COMMAND g++ -O2 -std=c++20 ${throw_peer_sources} -o throw_peer_gcc
  DEPENDS ${throw_peer_sources} ${CMAKE_SOURCE_DIR}/benchmarks/case_report.h VERBATIM)

# libffi, for calls by description.
add_executable(ffi_peer EXCLUDE_FROM_ALL benchmarks/native_peer.cpp benchmarks/ffi_cases.cpp)
target_link_libraries(ffi_peer PRIVATE ffi)

add_custom_target(native_peers DEPENDS ffi_peer string_peer throw_peer_clang throw_peer_gcc)

# ---- Tests, fuzz targets and benchmarks of the tools ---------------------------------------------------------------
add_executable(inspect_test tests/unit-native/inspect_test.cpp)
target_include_directories(inspect_test PRIVATE tests)
target_link_libraries(inspect_test PRIVATE inspect_core)

add_executable(rows_test tests/unit-native/rows_test.cpp)
target_link_libraries(rows_test PRIVATE inspect_core)

# Any bytes as an image, and as a library.
add_fuzzer(fuzz_inspect)
target_sources(fuzz_inspect PRIVATE ${INSPECT_SOURCES} ${TESSERA_SOURCES})
target_include_directories(fuzz_inspect PRIVATE tools)
target_link_libraries(fuzz_inspect PRIVATE Zydis)

add_executable(tessera_test tests/unit-native/tessera_test.cpp)
target_include_directories(tessera_test PRIVATE tests)
target_link_libraries(tessera_test PRIVATE tessera_core)

# Writes a guest image's source for the test of Tessera's replacements.
add_executable(make_gs_cases tests/guest/make_gs_cases.cpp)

add_executable(tessera_bench EXCLUDE_FROM_ALL benchmarks/tessera_bench.cpp)
target_link_libraries(tessera_bench PRIVATE tessera_core)

# The core's own sources are looked at in the Windows build.
include(cmake/tidy.cmake)
add_tidy(tessera_core tessera inspect_core inspect)
