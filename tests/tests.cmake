# Three rings: unit tests (modules linked into a Windows program), guest tests (macOS code in the real library) and,
# built natively, mutations and fuzz targets of the readers.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_SOURCE_DIR}/cmake/wine-run)

# doctest is one header; taken out of the host's include folder, whose C headers must not be seen here.
configure_file(/usr/include/doctest/doctest.h ${CMAKE_BINARY_DIR}/include/doctest/doctest.h COPYONLY)

# A Windows test program beside the library.
function(add_windows_test_program name)
  add_executable(${name} ${ARGN})
  target_include_directories(${name} PRIVATE ${CMAKE_BINARY_DIR}/include ${CMAKE_SOURCE_DIR}/tests
    ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
    CROSSCOMPILING_EMULATOR ${CMAKE_SOURCE_DIR}/cmake/wine-run)
endfunction()

# Tests that start the game take turns: one game runs at a time, and all share the log beside the library.
function(game_test name)
  add_test(NAME ${name} COMMAND ${ARGN})
  set_tests_properties(${name} PROPERTIES RESOURCE_LOCK game TIMEOUT 300)
endfunction()

# ---- Unit tests ------------------------------------------------------------------------------------------------------
file(GLOB unit_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/unit/*.cpp ${CMAKE_SOURCE_DIR}/tests/unit/*.S)
add_windows_test_program(unit_tests ${unit_sources} tests/support/machine.S tests/support/game_process.cpp)
target_link_libraries(unit_tests PRIVATE vlm_checked)
set_target_properties(unit_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/unit)  # has a log of its own
add_test(NAME unit COMMAND unit_tests)
set_tests_properties(unit PROPERTIES TIMEOUT 300 LABELS in_check)

# ---- Guest tests -----------------------------------------------------------------------------------------------------
# One host program runs them. Its list of cases is made here: as the archive's check it runs them all by itself.
file(GLOB host_sources CONFIGURE_DEPENDS tests/guest/*_test.cpp tools/check/*.cpp)
add_windows_test_program(host tests/guest/host.cpp tests/guest/driver.cpp ${host_sources}
  tests/support/damage.cpp tests/support/game_process.cpp tests/support/machine.S tools/shared/console.cpp)
target_include_directories(host PRIVATE tools)
target_link_libraries(host PRIVATE vlm psapi)

# in_check(files...): what the archive's check needs, where it lies in this build.
function(in_check)
  foreach(file ${ARGN})
    get_filename_component(folder ${file} DIRECTORY)
    file(RELATIVE_PATH folder ${CMAKE_BINARY_DIR} ${folder})
    install(FILES ${file} DESTINATION ./${folder} COMPONENT check)
  endforeach()
endfunction()
install(PROGRAMS ${CMAKE_BINARY_DIR}/host.exe DESTINATION . RENAME check.exe COMPONENT check)
in_check(${CMAKE_BINARY_DIR}/GameAssembly.dll)

# check_case(name [FOLDER folder] [EXECUTABLE program] [ENVIRONMENT variables...] [LEFT_OUT why] [PROGRAM program]
#            [words...]): a case of the host program's list.
#   FOLDER      where the library lies, below the host program's folder; that folder when there is none
#   EXECUTABLE  another program than the host program, below its folder
#   LEFT_OUT    why nobody but the build can run it
#   PROGRAM     of the host program's; <name> when there is none
#   words       for the program; an image is a path below the host program's folder
function(check_case name)
  cmake_parse_arguments(C "" "FOLDER;EXECUTABLE;LEFT_OUT;PROGRAM" "ENVIRONMENT" ${ARGN})
  if(NOT C_PROGRAM)
    set(C_PROGRAM ${name})
  endif()
  list(JOIN C_UNPARSED_ARGUMENTS "\", \"" words)
  list(JOIN C_ENVIRONMENT " " environment)
  set_property(GLOBAL APPEND_STRING PROPERTY HOST_CASES
    "    {{\"${name}\", \"${C_EXECUTABLE}\", \"${C_FOLDER}\", \"${environment}\", \"${C_LEFT_OUT}\"}, {\"${C_PROGRAM}\", \"${words}\"}},\n")
endfunction()

# host_case(name ...): the same, and the test guest.<name> that runs it.
function(host_case name)
  cmake_parse_arguments(C "" "" "ENVIRONMENT" ${ARGN})
  check_case(${name} ${ARGN})
  game_test(guest.${name} host ${name})
  set_tests_properties(guest.${name} PROPERTIES ENVIRONMENT "${C_ENVIRONMENT}" LABELS in_check)
endfunction()

# checked_case(name): the same in the checked library.
function(checked_case name)
  game_test(checked.${name} host --in checked ${name})
endfunction()

# guest_image(name [LIBCXX] [OUTPUT path] [SOURCES more...]): <name>_guest of game code, tests/guest/<name>_guest.cpp or
# .mm and what else there is.
function(guest_image name)
  cmake_parse_arguments(G "LIBCXX" "OUTPUT" "SOURCES" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS tests/guest/${name}_guest.cpp tests/guest/${name}_guest.mm)
  list(TRANSFORM G_SOURCES PREPEND tests/guest/ REGEX "^[^/]")
  if(G_LIBCXX)
    set(libcxx LIBCXX)
  endif()
  add_guest(${name}_guest SOURCES ${sources} ${G_SOURCES} ${libcxx} OUTPUT ${G_OUTPUT}
    FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -I${CMAKE_SOURCE_DIR}/tests
          -Wno-unused-command-line-argument -Wno-infinite-recursion)
  get_target_property(image ${name}_guest GUEST_IMAGE)
  set_property(GLOBAL APPEND PROPERTY TEST_IMAGES ${image})
  in_check(${image})
endfunction()

# guest_test(name [LIBCXX] [NOT_CHECKED] [HOST] [SOURCES more...]): an image and the test of it, in both libraries.
#   NOT_CHECKED  not in the checked one: what has little of the library in it for its time, or is about the way a
#                process ends
#   HOST         the host program's part of the test is a program of this name, else what the guest tests itself is run
function(guest_test name)
  cmake_parse_arguments(G "NOT_CHECKED;HOST" "" "" ${ARGN})
  guest_image(${name} ${G_UNPARSED_ARGUMENTS})
  if(NOT G_HOST)
    set(program PROGRAM guest)
  endif()
  host_case(${name} ${program} guests/${name}_guest.dylib)
  if(NOT G_NOT_CHECKED)
    checked_case(${name})
  endif()
endfunction()

guest_test(c_library)
guest_test(c_memory)
guest_test(cxx_runtime)
guest_test(cxx_strings LIBCXX)
guest_test(exceptions LIBCXX)
guest_test(files)
guest_test(foundation_system)
guest_test(foundation_values)
guest_test(frames SOURCES frame_cases.S)
guest_test(objc SOURCES objc_relative_class.S)
guest_test(start)
guest_test(system)
guest_test(threads)
guest_test(time)

# For what files_guest.cpp looks at.
file(CREATE_LINK ${CMAKE_BINARY_DIR}/guests ${CMAKE_BINARY_DIR}/link_to_guests SYMBOLIC)

# The C library's answers to generated input, ours against this machine's.
add_guest(differ_guest SOURCES tests/guest/differ.cpp FLAGS -isystem ${CMAKE_SOURCE_DIR}/sdk/darwin)
set_property(GLOBAL APPEND PROPERTY TEST_IMAGES $<TARGET_PROPERTY:differ_guest,GUEST_IMAGE>)
game_test(guest.differ bash -o pipefail -c "$0 $1 $2 print_answers | $3" ${CMAKE_SOURCE_DIR}/cmake/wine-run
  $<TARGET_FILE:host> $<TARGET_PROPERTY:differ_guest,GUEST_IMAGE> ${VLM_NATIVE_DIR}/differ)
check_case(differ LEFT_OUT "its answers are compared with those of another system")
check_case(checked LEFT_OUT "a second build of the library, with traps for undefined behaviour")

guest_image(echo)
host_case(forwarders guests/echo_guest.dylib)
checked_case(forwarders)
guest_image(local)
host_case(local_exports guests/local_guest.dylib)
checked_case(local_exports)
guest_image(uncaught SOURCES uncaught_frames.S)
host_case(endings)
host_case(title)

# Thousands of damaged files in ./test --long, else a few. They need no turn: each process has a folder of its own and
# takes no notice of other games.
function(damage_test name library)
  add_test(NAME ${name} COMMAND host damage ${library} ${ARGN})
endfunction()
damage_test(guest.damage GameAssembly.dll 0 120)
check_case(damage GameAssembly.dll 0 120)
set_tests_properties(guest.damage PROPERTIES LABELS in_check)
damage_test(checked.damage checked/GameAssembly.dll 200 80)
add_test(NAME long.damage CONFIGURATIONS long COMMAND host damage GameAssembly.dll 0 10000)
set_tests_properties(long.damage PROPERTIES TIMEOUT 3600)

guest_test(marshal HOST)
guest_image(reports)
host_case(reports)
# Every import traced: registers, results, exceptions and jumps are as without.
foreach(guest exceptions c_memory objc)
  host_case(traced_${guest} ENVIRONMENT VLM_TRACE=all PROGRAM guest guests/${guest}_guest.dylib)
endforeach()
guest_image(store)
host_case(store)
guest_image(cloud)
host_case(cloud)
add_test(NAME long.cloud CONFIGURATIONS long COMMAND host cloud)
set_tests_properties(long.cloud PROPERTIES RESOURCE_LOCK game ENVIRONMENT VLM_TEST_KILLS=500 TIMEOUT 900)

# Seconds of play.
guest_image(soak)
host_case(soak guests/soak_guest.dylib 10)
add_test(NAME long.soak CONFIGURATIONS long COMMAND host soak guests/soak_guest.dylib 600)
set_tests_properties(long.soak PROPERTIES RESOURCE_LOCK game TIMEOUT 900)

# Controllers, in a folder where a stand-in for XInput lies beside the library.
guest_image(controllers)
add_library(xinput_stand_in SHARED tests/support/xinput_stand_in.cpp)
target_include_directories(xinput_stand_in PRIVATE tests)
set_target_properties(xinput_stand_in PROPERTIES PREFIX "" OUTPUT_NAME xinput1_4
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/controllers)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/controllers/GameAssembly.dll
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:GameAssembly> ${CMAKE_BINARY_DIR}/controllers/GameAssembly.dll
  DEPENDS GameAssembly VERBATIM)
add_custom_target(controllers ALL DEPENDS ${CMAKE_BINARY_DIR}/controllers/GameAssembly.dll)
in_check(${CMAKE_BINARY_DIR}/controllers/GameAssembly.dll ${CMAKE_BINARY_DIR}/controllers/xinput1_4.dll)
# Wine prefers its own XInput.
host_case(controllers FOLDER controllers ENVIRONMENT WINEDLLOVERRIDES=xinput1_4=n,b VLM_KEYBOARD=1
  PROGRAM guest guests/controllers_guest.dylib)
host_case(no_keyboard FOLDER controllers ENVIRONMENT WINEDLLOVERRIDES=xinput1_4=n,b
  PROGRAM guest guests/controllers_guest.dylib keyboard_is_absent)

# Some thousand functions around gs accesses, and switches in every form that clang gives them, patched, against the
# same functions with plain memory: in an image whose jump tables the linker names, and in one where it does not.
set(GS_CASES_DIR ${CMAKE_BINARY_DIR}/gs_cases)
add_custom_command(OUTPUT ${GS_CASES_DIR}/cases.S
  COMMAND ${CMAKE_COMMAND} -E make_directory ${GS_CASES_DIR}
  COMMAND ${VLM_NATIVE_DIR}/make_gs_cases ${GS_CASES_DIR}/cases.S
  DEPENDS ${VLM_NATIVE_DIR}/make_gs_cases VERBATIM)
set(switch_objects)
foreach(level O0 O1 O2 O3)
  foreach(model "" _large)
    set(object ${GS_CASES_DIR}/switch_${level}${model}.o)
    set(model_flag)
    if(model)
      set(model_flag -mcmodel=large)
    endif()
    add_custom_command(OUTPUT ${object}
      COMMAND clang-19 ${GUEST_FLAGS} -${level} ${model_flag} -DFORM=${level}${model}
        -c ${CMAKE_SOURCE_DIR}/tests/guest/switch_cases.c -o ${object}
      DEPENDS ${CMAKE_SOURCE_DIR}/tests/guest/switch_cases.c VERBATIM)
    list(APPEND switch_objects ${object})
  endforeach()
endforeach()
foreach(kind named unnamed)
  set(folder ${GS_CASES_DIR}/${kind})
  set(link_flags)
  if(kind STREQUAL unnamed)
    set(link_flags -no_data_in_code_info)
  endif()
  add_guest(gs_cases_${kind}_guest SOURCES ${GS_CASES_DIR}/cases.S OBJECTS ${switch_objects}
    FLAGS -Wno-unused-command-line-argument LINK_FLAGS ${link_flags} OUTPUT ${folder}/GameAssembly.dylib)
  fit_library(${folder} gs_cases_${kind}_guest)
  add_custom_target(gs_cases_${kind} ALL DEPENDS ${folder}/GameAssembly.dll)
  in_check(${folder}/GameAssembly.dll ${folder}/GameAssembly.dylib)
  set_property(GLOBAL APPEND PROPERTY TEST_IMAGES ${folder}/GameAssembly.dylib)
  add_test(NAME native.tessera_check_${kind} COMMAND ${VLM_NATIVE_DIR}/tessera ${folder}/GameAssembly.dylib
    --library ${folder}/GameAssembly.dll --check)
endforeach()
host_case(gs_cases FOLDER gs_cases/unnamed)
host_case(gs_cases_expansion FOLDER gs_cases/named PROGRAM gs_cases expansion)

check_case(unit FOLDER unit EXECUTABLE unit/unit_tests.exe)
in_check(${CMAKE_BINARY_DIR}/unit/unit_tests.exe)
get_property(host_cases GLOBAL PROPERTY HOST_CASES)
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/include/host_cases.inc CONTENT "${host_cases}" @ONLY)

# ---- The sample ------------------------------------------------------------------------------------------------------
game_test(sample ${CMAKE_SOURCE_DIR}/cmake/wine-run $<TARGET_FILE:SamplePlayer> --frames 60)
set_tests_properties(sample PROPERTIES FAIL_REGULAR_EXPRESSION "there is no mod")
# The crash report names the game's function. The exit code does not count: it is the exception's.
game_test(sample_crash ${CMAKE_SOURCE_DIR}/cmake/wine-run $<TARGET_FILE:SamplePlayer> --crash)
set_tests_properties(sample_crash PROPERTIES FAIL_REGULAR_EXPRESSION "player: ERROR" PASS_REGULAR_EXPRESSION
  "EXCEPTION 0xc0000005 at 0x[0-9a-f]+ GameAssembly.dylib![^ ]*Game_Crash[^\n]*\n[^\n]*  read address 0x0")

# The archive that ./test has made before; its check runs all the cases above.
add_test(NAME package COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_package
  ${CMAKE_SOURCE_DIR}/build/package/velmora-loader-${PROJECT_VERSION}.zip ${SAMPLE_DIR})
set_tests_properties(package PROPERTIES RESOURCE_LOCK game)

# ---- Native programs -------------------------------------------------------------------------------------------------
add_test(NAME native.arrows COMMAND ${CMAKE_SOURCE_DIR}/tests/arrows)
add_test(NAME native.messages COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_messages)
add_test(NAME native.tessera COMMAND ${VLM_NATIVE_DIR}/tessera_test)
add_test(NAME native.port COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_port ${VLM_NATIVE_DIR}/tessera
  $<TARGET_FILE:GameAssembly> $<TARGET_PROPERTY:sample_game,GUEST_IMAGE> ${VLM_NATIVE_DIR}/port)
add_test(NAME native.mutate_images COMMAND ${VLM_NATIVE_DIR}/mutate_images)
set_tests_properties(native.tessera native.port native.mutate_images PROPERTIES TIMEOUT 60)

# Two readers of compact unwind information agree about every address.
foreach(guest frames uncaught exceptions cxx_strings)
  add_test(NAME native.unwind_info_${guest} COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_unwind_info
    ${VLM_NATIVE_DIR}/unwind_info_test $<TARGET_PROPERTY:${guest}_guest,GUEST_IMAGE>)
endforeach()

get_property(images GLOBAL PROPERTY TEST_IMAGES)
add_test(NAME native.rows COMMAND ${VLM_NATIVE_DIR}/rows_test $<TARGET_FILE:GameAssembly> ${images})

# The inspector agrees with other readers about real images, and says what is wrong with each.
add_test(NAME native.inspect COMMAND ${VLM_NATIVE_DIR}/inspect_test)
function(inspect_check name image status question)
  add_test(NAME native.inspect_${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_inspect
    ${VLM_NATIVE_DIR}/inspect $<TARGET_FILE:GameAssembly> ${image} ${status} ${question})
endfunction()
inspect_check(sample $<TARGET_PROPERTY:sample_game,GUEST_IMAGE> 0
  ".objective_c.brought_names == [\"Scoreboard\"] and .initializers.run == 3 and .thread_storage.list == \"none\"")
inspect_check(start $<TARGET_PROPERTY:start_guest,GUEST_IMAGE> 1
  "[.imports[] | select(.answer != \"shim\") | .name, .answer] == [\"_OBJC_CLASS_$_VLMUnknown\", \"empty object\",
    \"__ZNSt3__15ctypeIwE2idE\", \"empty object\", \"_absent_weak\", \"null, as weak imports may be\",
    \"_missing_function\", \"no implementation\", \"dyld_stub_binder\", \"never called\"]")
inspect_check(exceptions $<TARGET_PROPERTY:exceptions_guest,GUEST_IMAGE> 1 ".unwind.opaque == []")
inspect_check(uncaught $<TARGET_PROPERTY:uncaught_guest,GUEST_IMAGE> 1
  "[.unwind.opaque[].function | split(\" \")[1]] == [\"(_throw_from_dwarf_frame)\"]")
inspect_check(gs_cases $<TARGET_PROPERTY:gs_cases_named_guest,GUEST_IMAGE> 1 ".thread_storage.sites > 5")
# A library that was fitted to an image, with that image and with another one.
add_test(NAME native.inspect_fitted COMMAND bash -ec
  "$0 $1 --library $3 --json | jq -e '.status == 1 and .thread_storage.list == \"fits\"'
   $0 $2 --library $3 --json | jq -e '.status == 2 and .thread_storage.list == \"differs\"'" ${VLM_NATIVE_DIR}/inspect
  $<TARGET_PROPERTY:gs_cases_named_guest,GUEST_IMAGE> $<TARGET_PROPERTY:start_guest,GUEST_IMAGE>
  ${GS_CASES_DIR}/named/GameAssembly.dll)

# The button glyphs as the library draws them, read by another's reader.
set(GLYPHS_DIR ${CMAKE_BINARY_DIR}/glyphs)
add_test(NAME native.glyphs COMMAND bash -ec
  "mkdir -p ${GLYPHS_DIR}; ${CMAKE_SOURCE_DIR}/cmake/wine-run $0 --files ${GLYPHS_DIR}; ${VLM_NATIVE_DIR}/glyphs_test ${GLYPHS_DIR}"
  $<TARGET_FILE:glyph_sheet>)
set_tests_properties(native.glyphs PROPERTIES TIMEOUT 60)

# A short run of each fuzz target from the seeds of the build, the same every time: what it finds new is thrown away.
foreach(target fuzz_image fuzz_inspect fuzz_fixups fuzz_export_trie fuzz_patch_list fuzz_format fuzz_unwind_info fuzz_lsda fuzz_cloud_file fuzz_hid_reports)
  set(corpus ${CMAKE_BINARY_DIR}/corpus/${target})
  set(seeds ${VLM_NATIVE_DIR}/fuzz_seeds/${target})
  set(runs 20000)
  if(target STREQUAL fuzz_inspect)
    set(runs 4000)  # each is much work
  endif()
  add_test(NAME native.${target} COMMAND bash -c
    "rm -rf ${corpus}; mkdir -p ${corpus} ${seeds}; exec ${VLM_NATIVE_DIR}/${target} -runs=${runs} -seed=1 -max_len=32768 -verbosity=0 ${corpus} ${seeds}")
  set_tests_properties(native.${target} PROPERTIES TIMEOUT 120)
endforeach()
