# Benchmarks; ./bench builds and runs them. Each prints lines "case | peer | ours | ratio | goal".
add_custom_target(benches)

# add_bench(name sources...): a Windows program beside the library.
function(add_bench name)
  add_executable(${name} EXCLUDE_FROM_ALL benchmarks/${name}.cpp ${ARGN})
  target_include_directories(${name} PRIVATE benchmarks src include tests)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
  add_dependencies(benches ${name})
endfunction()

# The library's own functions, without a game.
foreach(bench c_library cloud controllers files glyphs load stub)
  add_bench(${bench}_bench)
  target_link_libraries(${bench}_bench PRIVATE vlm)
endforeach()
target_link_libraries(load_bench PRIVATE psapi)
# Beside a stand-in for XInput.
set_target_properties(controllers_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/controllers)
add_dependencies(controllers_bench xinput_stand_in)

# Game code in the library.
add_bench(forward_bench benchmarks/bridge_peer.S)
foreach(bench format guest managed objc)
  add_bench(${bench}_bench)
endforeach()
set(headers_of_guests -I${CMAKE_SOURCE_DIR}/tests/guest)
add_guest(bench_forward_guest SOURCES benchmarks/forward_guest.cpp)
add_guest(bench_format_guest SOURCES benchmarks/format_guest.cpp)
add_guest(bench_managed_guest SOURCES benchmarks/managed_guest.cpp FLAGS ${headers_of_guests} -O2)
# Without ARC, whose calls would be measured too.
add_guest(bench_objc_guest SOURCES benchmarks/objc_guest.mm FLAGS ${headers_of_guests} -fno-objc-arc -O2)
add_guest(bench_string_guest LIBCXX SOURCES benchmarks/string_cases.cpp FLAGS -O2)
add_guest(bench_throw_guest SOURCES benchmarks/throw_cases.cpp FLAGS -O2)

# The thread benchmarks need a patched image, so a library of their own beside it.
set(THREADS_BENCH_DIR ${CMAKE_BINARY_DIR}/bench_threads)
add_guest(bench_threads_guest SOURCES benchmarks/threads_guest.cpp OUTPUT ${THREADS_BENCH_DIR}/GameAssembly.dylib
  FLAGS ${headers_of_guests} -DGUEST_TEST_NO_MAIN)
fit_library(${THREADS_BENCH_DIR} bench_threads_guest)
add_bench(threads_bench ${THREADS_BENCH_DIR}/GameAssembly.dll)
set_target_properties(threads_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${THREADS_BENCH_DIR})

foreach(guest forward format managed objc string throw)
  add_dependencies(benches bench_${guest}_guest)
endforeach()

# Those that the archive's check runs.
set(check_benchmarks)
add_custom_target(check_benches)
function(benchmark_in_check name guest)
  set(command ${name}.exe)
  in_check(${CMAKE_BINARY_DIR}/${name}.exe)
  add_dependencies(check_benches ${name})
  if(guest)
    string(APPEND command " guests/${guest}.dylib")
    in_check(${CMAKE_BINARY_DIR}/guests/${guest}.dylib)
    add_dependencies(check_benches ${guest})
  endif()
  set(check_benchmarks ${check_benchmarks} "    \"${command}\",\n" PARENT_SCOPE)
endfunction()
benchmark_in_check(forward_bench bench_forward_guest)
benchmark_in_check(stub_bench "")
benchmark_in_check(c_library_bench "")
benchmark_in_check(objc_bench bench_objc_guest)
string(CONCAT check_benchmarks ${check_benchmarks})
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/include/host_benchmarks.inc CONTENT "${check_benchmarks}" @ONLY)
