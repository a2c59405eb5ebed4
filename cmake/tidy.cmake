# The target `tidy`: clang-tidy over the library's sources with the checks of .clang-tidy, each source again when its
# object file was made anew. ./test builds it.
find_program(CLANG_TIDY clang-tidy-19 REQUIRED)
set(tidy_stamps)
foreach(target vlm GameAssembly)
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  foreach(source ${sources})
    set(stamp ${CMAKE_BINARY_DIR}/tidy/${source}.stamp)
    get_filename_component(folder ${stamp} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(OUTPUT ${stamp}
      COMMAND ${CLANG_TIDY} -p ${CMAKE_BINARY_DIR} --quiet ${CMAKE_SOURCE_DIR}/${source}
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${CMAKE_BINARY_DIR}/CMakeFiles/${target}.dir/${source}.obj ${CMAKE_SOURCE_DIR}/.clang-tidy VERBATIM)
    list(APPEND tidy_stamps ${stamp})
  endforeach()
endforeach()
add_custom_target(tidy DEPENDS ${tidy_stamps})
