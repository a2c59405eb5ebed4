# Benchmarks; ./bench builds and runs them all. Each prints lines "case | peer | ours | ratio | goal".
function(add_bench name)
  add_executable(${name} EXCLUDE_FROM_ALL ${ARGN})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/bench ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
endfunction()

add_guest(bench_forward_guest SOURCES bench/forward_guest.cpp)
add_bench(forward_bench bench/forward_bench.cpp bench/bridge_peer.S)
add_dependencies(forward_bench bench_forward_guest)
add_custom_target(benches DEPENDS forward_bench)
