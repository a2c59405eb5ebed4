# What the library is made of: everything but its own start, which unit tests do without, and that start.
file(GLOB VLM_MODULES RELATIVE ${CMAKE_SOURCE_DIR} CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/src/*/*.cpp ${CMAKE_SOURCE_DIR}/src/*/*.S)
set(VLM_START
  src/host/static_startup.cpp
  src/tls/attach_callback.cpp)
list(REMOVE_ITEM VLM_MODULES ${VLM_START})

# add_game_library(modules dll folder [compile options]): a static library of the modules, and GameAssembly.dll in
# `folder`.
function(add_game_library modules dll folder)
  # -fno-auto-import: all data that the library reads is its own, so it is reached directly and not through a pointer.
  set(options $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-auto-import ${VLM_WARNINGS} ${ARGN}>)
  add_library(${modules} STATIC ${VLM_MODULES})
  target_include_directories(${modules} PUBLIC src include)
  target_link_libraries(${modules} PUBLIC bcrypt gdi32)
  target_compile_options(${modules} PRIVATE ${options})
  target_compile_definitions(${modules} PRIVATE "VLM_API=__declspec(dllexport)")

  add_library(${dll} SHARED ${VLM_START})
  target_compile_options(${dll} PRIVATE ${options})
  target_compile_definitions(${dll} PRIVATE "VLM_VERSION=\"${PROJECT_VERSION}\"")
  target_link_libraries(${dll} PRIVATE -Wl,--whole-archive ${modules} -Wl,--no-whole-archive)
  set_target_properties(${dll} PROPERTIES PREFIX "" OUTPUT_NAME GameAssembly
    RUNTIME_OUTPUT_DIRECTORY ${folder} ARCHIVE_OUTPUT_DIRECTORY ${folder})
endfunction()

add_game_library(vlm GameAssembly ${CMAKE_BINARY_DIR})

# The same for tests: what C++ leaves undefined (a misaligned access, an overflow, a null reference, a shift too far)
# is an illegal instruction. Types of functions are not looked at: game code has none to show.
set(VLM_CHECKED_DIR ${CMAKE_BINARY_DIR}/checked)
add_game_library(vlm_checked GameAssemblyChecked ${VLM_CHECKED_DIR}
  -O1 -fsanitize=undefined,float-cast-overflow -fno-sanitize=function -fsanitize-trap=undefined,float-cast-overflow)
# clang-tidy looks at a source once for each command that compiles it.
set_target_properties(vlm_checked GameAssemblyChecked PROPERTIES EXPORT_COMPILE_COMMANDS OFF)
