# Benchmarks; ./bench builds and runs them. Each prints lines "case | peer | ours | ratio | goal".
function(add_bench name)
  add_executable(${name} EXCLUDE_FROM_ALL ${ARGN})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/benchmarks ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
endfunction()

add_guest(bench_forward_guest SOURCES benchmarks/forward_guest.cpp)
add_bench(forward_bench benchmarks/forward_bench.cpp benchmarks/bridge_peer.S)
add_bench(stub_bench benchmarks/stub_bench.cpp)
target_link_libraries(stub_bench PRIVATE vlm)
add_bench(load_bench benchmarks/load_bench.cpp)
target_link_libraries(load_bench PRIVATE vlm psapi)
add_custom_target(benches DEPENDS forward_bench stub_bench load_bench bench_forward_guest)
