# Programs of this machine: the portable core for tools, fuzzers and their deterministic sibling, generators.

add_library(vlm_core STATIC ${VLM_CORE_SOURCES})
target_include_directories(vlm_core PUBLIC src)
target_compile_options(vlm_core PRIVATE -fno-exceptions -fno-rtti)

# The same sources once more, watched by the sanitizers; any report ends the program.
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

# Compares compact unwind information, as read here, with the listing of another reader.
add_executable(unwind_info_test tests/unit-native/unwind_info_test.cpp)
target_link_libraries(unwind_info_test PRIVATE vlm_core)

# Makes images of any size for the loader's benchmark.
add_executable(make_image benchmarks/make_image.cpp)
target_include_directories(make_image PRIVATE tests)
target_link_libraries(make_image PRIVATE vlm_core)

# The peer of the string benchmark: libc++ as this machine has it.
add_executable(string_peer EXCLUDE_FROM_ALL benchmarks/string_peer.cpp benchmarks/string_cases.cpp)
target_compile_options(string_peer PRIVATE -stdlib=libc++)
target_link_options(string_peer PRIVATE -stdlib=libc++)

# The tools that come with the library (patch lists, inspection).
include(tools/tools.cmake OPTIONAL)
