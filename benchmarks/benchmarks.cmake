# Benchmarks; ./bench builds and runs them. Each prints lines "case | peer | ours | ratio | goal".
function(add_bench name)
  add_executable(${name} EXCLUDE_FROM_ALL ${ARGN})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/benchmarks ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
endfunction()

add_guest(bench_forward_guest SOURCES benchmarks/forward_guest.cpp)
add_bench(forward_bench benchmarks/forward_bench.cpp benchmarks/bridge_peer.S)
add_guest(bench_format_guest SOURCES benchmarks/format_guest.cpp)
add_bench(format_bench benchmarks/format_bench.cpp)
add_bench(stub_bench benchmarks/stub_bench.cpp)
target_link_libraries(stub_bench PRIVATE vlm)
add_bench(load_bench benchmarks/load_bench.cpp)
target_link_libraries(load_bench PRIVATE vlm psapi)
add_bench(c_library_bench benchmarks/c_library_bench.cpp)
target_link_libraries(c_library_bench PRIVATE vlm)
add_bench(files_bench benchmarks/files_bench.cpp)
target_link_libraries(files_bench PRIVATE vlm)
add_bench(controllers_bench benchmarks/controllers_bench.cpp)
target_link_libraries(controllers_bench PRIVATE vlm)
add_bench(glyphs_bench benchmarks/glyphs_bench.cpp)
target_link_libraries(glyphs_bench PRIVATE vlm)
add_bench(cloud_bench benchmarks/cloud_bench.cpp)
target_link_libraries(cloud_bench PRIVATE vlm)

add_guest(bench_string_guest LIBCXX SOURCES benchmarks/string_cases.cpp FLAGS -O2)
add_guest(bench_throw_guest SOURCES benchmarks/throw_cases.cpp FLAGS -O2)
add_bench(guest_bench benchmarks/guest_bench.cpp)

# Without ARC, whose calls would be measured too.
add_guest(bench_objc_guest SOURCES benchmarks/objc_guest.mm
  FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -fno-objc-arc -O2)
add_bench(objc_bench benchmarks/objc_bench.cpp)

# The thread benchmarks need a patched image, so a library of their own beside it.
set(THREADS_BENCH_DIR ${CMAKE_BINARY_DIR}/bench_threads)
add_guest(bench_threads_guest SOURCES benchmarks/threads_guest.cpp OUTPUT ${THREADS_BENCH_DIR}/GameAssembly.dylib
  FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -DGUEST_TEST_NO_MAIN)
add_custom_command(OUTPUT ${THREADS_BENCH_DIR}/GameAssembly.dll
  COMMAND ${VLM_NATIVE_DIR}/tessera ${THREADS_BENCH_DIR}/GameAssembly.dylib --library $<TARGET_FILE:GameAssembly>
          -o ${THREADS_BENCH_DIR}/GameAssembly.dll
  DEPENDS ${VLM_NATIVE_DIR}/tessera bench_threads_guest ${THREADS_BENCH_DIR}/GameAssembly.dylib GameAssembly VERBATIM)
add_bench(threads_bench benchmarks/threads_bench.cpp ${THREADS_BENCH_DIR}/GameAssembly.dll)
set_target_properties(threads_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${THREADS_BENCH_DIR})

add_guest(bench_managed_guest SOURCES benchmarks/managed_guest.cpp FLAGS -O2 -I${CMAKE_SOURCE_DIR} -I${CMAKE_SOURCE_DIR}/tests/guest)
add_bench(managed_bench benchmarks/managed_bench.cpp)

add_custom_target(benches DEPENDS managed_bench bench_managed_guest glyphs_bench controllers_bench cloud_bench objc_bench bench_objc_guest guest_bench bench_string_guest bench_throw_guest threads_bench forward_bench format_bench bench_format_guest stub_bench load_bench c_library_bench files_bench bench_forward_guest)
