# The tools that come with the library. Instructions are decoded and encoded by Zydis, never by hand.

set(TESSERA_SOURCES
  tools/shared/input_files.cpp
  tools/tessera/check_list.cpp
  tools/tessera/code_ranges.cpp
  tools/tessera/gs_sites.cpp
  tools/tessera/instruction.cpp
  tools/tessera/library_file.cpp
  tools/tessera/patch_image.cpp
  tools/tessera/trampoline.cpp)
add_library(tessera_core STATIC ${TESSERA_SOURCES})
target_compile_options(tessera_core PRIVATE ${VLM_WARNINGS})
target_include_directories(tessera_core PUBLIC tools)
target_link_libraries(tessera_core PUBLIC vlm_core Zydis)

add_executable(tessera tools/tessera/main.cpp)
target_compile_options(tessera PRIVATE ${VLM_WARNINGS})
target_link_libraries(tessera PRIVATE tessera_core)

# What an image would meet here, before it is run.
set(INSPECT_SOURCES
  tools/inspect/format.cpp
  tools/inspect/gather.cpp
  tools/inspect/initializers.cpp
  tools/inspect/json_report.cpp
  tools/inspect/library.cpp
  tools/inspect/linkage.cpp
  tools/inspect/names.cpp
  tools/inspect/objective_c.cpp
  tools/inspect/portable_executable.cpp
  tools/inspect/text_report.cpp
  tools/inspect/thread_storage.cpp
  tools/inspect/unwind.cpp
  tools/inspect/verdict.cpp)
add_library(inspect_core STATIC ${INSPECT_SOURCES})
target_compile_options(inspect_core PRIVATE ${VLM_WARNINGS})
target_link_libraries(inspect_core PUBLIC tessera_core)

add_executable(inspect tools/inspect/main.cpp)
target_compile_options(inspect PRIVATE ${VLM_WARNINGS})
target_link_libraries(inspect PRIVATE inspect_core)

add_executable(inspect_test tests/unit-native/inspect_test.cpp)
target_include_directories(inspect_test PRIVATE tests)
target_link_libraries(inspect_test PRIVATE inspect_core)

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
