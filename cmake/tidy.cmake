# add_tidy(targets...): the target `tidy`, clang-tidy over the targets' sources with the checks of .clang-tidy, each source
# again when its object file was made anew. ./test builds it, in both builds.
find_program(CLANG_TIDY clang-tidy-19 REQUIRED)
function(add_tidy)
  set(stamps)
  foreach(target ${ARGN})
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "\\.cpp$")
    foreach(source ${sources})
      set(stamp ${CMAKE_BINARY_DIR}/tidy/${source}.stamp)
      get_filename_component(folder ${stamp} DIRECTORY)
      file(MAKE_DIRECTORY ${folder})
      add_custom_command(OUTPUT ${stamp}
        COMMAND ${CMAKE_SOURCE_DIR}/cmake/quiet-tidy ${CLANG_TIDY} -p ${CMAKE_BINARY_DIR} --quiet ${CMAKE_SOURCE_DIR}/${source}
        COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
        DEPENDS ${CMAKE_BINARY_DIR}/CMakeFiles/${target}.dir/${source}${CMAKE_CXX_OUTPUT_EXTENSION}
                ${CMAKE_SOURCE_DIR}/.clang-tidy VERBATIM)
      list(APPEND stamps ${stamp})
    endforeach()
  endforeach()
  add_custom_target(tidy DEPENDS ${stamps})
endfunction()
