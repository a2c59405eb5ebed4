# The tools that come with the library. Instructions are decoded and encoded by Zydis, never by hand.

add_library(tessera_core STATIC
  tools/tessera/check_list.cpp
  tools/tessera/code_ranges.cpp
  tools/tessera/gs_sites.cpp
  tools/tessera/instruction.cpp
  tools/tessera/library_file.cpp
  tools/tessera/patch_image.cpp
  tools/tessera/trampoline.cpp)
target_include_directories(tessera_core PUBLIC tools)
target_link_libraries(tessera_core PUBLIC vlm_core Zydis)

add_executable(tessera tools/tessera/main.cpp)
target_link_libraries(tessera PRIVATE tessera_core)

add_executable(tessera_test tests/unit-native/tessera_test.cpp)
target_include_directories(tessera_test PRIVATE tests)
target_link_libraries(tessera_test PRIVATE tessera_core)

# Writes a guest image's source for the test of Tessera's replacements.
add_executable(make_gs_cases tests/guest/make_gs_cases.cpp)

add_executable(tessera_bench EXCLUDE_FROM_ALL benchmarks/tessera_bench.cpp)
target_link_libraries(tessera_bench PRIVATE tessera_core)
