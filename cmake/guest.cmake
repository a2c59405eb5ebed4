# macOS x86-64 code: compiled by clang for a Mac, linked by the Mach-O lld. A Mac's SDK is not needed: sdk/ has the few
# declarations that are used here.
set(GUEST_FLAGS -target x86_64-apple-macos10.13 -O1 -g0 -fno-builtin -Wall -Wextra -Wno-unused-parameter -Werror
    -fno-stack-protector -nostdinc++ -nostdlibinc)
set(GUEST_LINK ld64.lld-19 -arch x86_64 -platform_version macos 10.13 10.13 -dylib -no_fixup_chains
    -undefined dynamic_lookup)

# The headers of libc++, over a configuration and the few C headers of macOS that are the guests' own. Forms of new and
# delete that the library does not have are not called.
set(GUEST_SDK ${CMAKE_CURRENT_LIST_DIR}/../sdk)
set(GUEST_LIBCXX_FLAGS -fno-sized-deallocation -fno-aligned-allocation
    -isystem ${GUEST_SDK}/libcxx
    -isystem /usr/lib/llvm-19/include/c++/v1
    -isystem ${GUEST_SDK}/darwin)

# add_guest(name SOURCES a.cpp b.m c.s [OBJECTS x.o] [LIBCXX] [OUTPUT path] [FLAGS ...] [LINK_FLAGS ...] [DEPENDS ...])
# Builds a Mach-O dylib; the target <name> makes it and the property GUEST_IMAGE of <name> is its path. With LIBCXX
# its C++ sources may include <string>, <vector> and their like.
function(add_guest name)
  cmake_parse_arguments(G "LIBCXX" "OUTPUT" "SOURCES;OBJECTS;FLAGS;LINK_FLAGS;DEPENDS" ${ARGN})
  if(NOT G_OUTPUT)
    set(G_OUTPUT ${CMAKE_BINARY_DIR}/guests/${name}.dylib)
  endif()
  set(objects ${G_OBJECTS})
  foreach(source ${G_SOURCES})
    get_filename_component(source ${source} ABSOLUTE)
    file(RELATIVE_PATH flat ${CMAKE_SOURCE_DIR} ${source})
    string(REPLACE "/" "_" flat ${flat})
    set(object ${CMAKE_BINARY_DIR}/guests/${name}.o/${flat}.o)
    set(language_flags)
    if(source MATCHES "\\.(cpp|mm)$")
      set(language_flags -std=c++20)
      if(G_LIBCXX)
        list(APPEND language_flags ${GUEST_LIBCXX_FLAGS})
      endif()
    endif()
    if(source MATCHES "\\.(m|mm)$")
      list(APPEND language_flags -fobjc-arc -fblocks)
    endif()
    add_custom_command(OUTPUT ${object}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/guests/${name}.o
      COMMAND clang-19 ${GUEST_FLAGS} ${language_flags} ${G_FLAGS} -I${GUEST_SDK}/.. -I${GUEST_SDK}/../src
              -MD -MF ${object}.d -c ${source} -o ${object}
      DEPENDS ${source} ${G_DEPENDS} DEPFILE ${object}.d VERBATIM)
    list(APPEND objects ${object})
  endforeach()
  get_filename_component(folder ${G_OUTPUT} DIRECTORY)
  add_custom_command(OUTPUT ${G_OUTPUT}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
    COMMAND ${GUEST_LINK} ${G_LINK_FLAGS} -install_name @rpath/${name}.dylib -o ${G_OUTPUT} ${objects}
    DEPENDS ${objects} VERBATIM)
  add_custom_target(${name} ALL DEPENDS ${G_OUTPUT})
  set_target_properties(${name} PROPERTIES GUEST_IMAGE ${G_OUTPUT})
endfunction()

# fit_library(folder guest): the library beside the image that <guest> makes there, with the patch list for it.
function(fit_library folder guest)
  set(tessera ${VLM_NATIVE_DIR}/tessera)
  add_custom_command(OUTPUT ${folder}/GameAssembly.dll
    COMMAND ${tessera} ${folder}/GameAssembly.dylib --library $<TARGET_FILE:GameAssembly> -o ${folder}/GameAssembly.dll
    DEPENDS ${tessera} ${guest} ${folder}/GameAssembly.dylib GameAssembly VERBATIM)
endfunction()
