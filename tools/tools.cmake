# The tools that come with the library, on the portable core of its sources. Instructions are decoded and encoded by
# Zydis, never by hand.

add_library(vlm_core STATIC ${VLM_CORE_SOURCES})
target_include_directories(vlm_core PUBLIC src)
target_compile_options(vlm_core PRIVATE -fno-exceptions -fno-rtti ${VLM_WARNINGS})

# add_tool(name sources...): the program <name> from its main.cpp, and a library of the rest, which tests use too.
function(add_tool name)
  add_library(${name}_core STATIC ${ARGN})
  add_executable(${name} tools/${name}/main.cpp)
  target_link_libraries(${name} PRIVATE ${name}_core)
  foreach(target ${name}_core ${name})
    target_compile_options(${target} PRIVATE ${VLM_WARNINGS})
  endforeach()
endfunction()

set(TESSERA_SOURCES
  tools/shared/command_line.cpp
  tools/shared/console.cpp
  tools/shared/files.cpp
  tools/shared/mapped_file.cpp
  tools/shared/portable_executable.cpp
  tools/shared/text.cpp
  tools/shared/workers.cpp
  tools/tessera/check_list.cpp
  tools/tessera/code_map.cpp
  tools/tessera/code_walk.cpp
  tools/tessera/gs_sites.cpp
  tools/tessera/instruction.cpp
  tools/tessera/library_file.cpp
  tools/tessera/patch_image.cpp
  tools/tessera/trampoline.cpp)
add_tool(tessera ${TESSERA_SOURCES})
target_include_directories(tessera_core PUBLIC tools)
target_link_libraries(tessera_core PUBLIC vlm_core Zydis)

# What an image would meet here, before it is run.
set(INSPECT_SOURCES
  tools/inspect/call_rank.cpp
  tools/inspect/format.cpp
  tools/inspect/gather.cpp
  tools/inspect/initializers.cpp
  tools/inspect/json_report.cpp
  tools/inspect/library.cpp
  tools/inspect/linkage.cpp
  tools/inspect/names.cpp
  tools/inspect/objective_c.cpp
  tools/inspect/text_report.cpp
  tools/inspect/thread_storage.cpp
  tools/inspect/unwind.cpp
  tools/inspect/verdict.cpp)
add_tool(inspect ${INSPECT_SOURCES})
target_link_libraries(inspect_core PUBLIC tessera_core)

# One step from a Mac application to a player that is ready to start.
add_tool(port tools/port/player_folder.cpp tools/port/put_in_place.cpp)
target_link_libraries(port_core PUBLIC inspect_core)
