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
set_tests_properties(unit PROPERTIES TIMEOUT 300)

# ---- Guest tests -----------------------------------------------------------------------------------------------------
foreach(guest c_library c_memory cxx_runtime files start store echo local marshal system threads time)
  add_guest(${guest}_guest SOURCES tests/guest/${guest}_guest.cpp FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest)
endforeach()

# For what files_guest.cpp looks at.
file(CREATE_LINK ${CMAKE_BINARY_DIR}/guests ${CMAKE_BINARY_DIR}/link_to_guests SYMBOLIC)

# C++ with the headers of libc++.
foreach(guest cxx_strings exceptions)
  add_guest(${guest}_guest LIBCXX SOURCES tests/guest/${guest}_guest.cpp FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest)
endforeach()

add_guest(objc_guest SOURCES tests/guest/objc_guest.mm tests/guest/objc_relative_class.S
  FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -Wno-unused-command-line-argument)

add_guest(uncaught_guest SOURCES tests/guest/uncaught_guest.cpp tests/guest/uncaught_frames.S
  FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -Wno-unused-command-line-argument)
foreach(guest foundation_values foundation_system)
  add_guest(${guest}_guest SOURCES tests/guest/${guest}_guest.mm FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest)
endforeach()
add_guest(cloud_guest SOURCES tests/guest/cloud_guest.mm FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest)

add_guest(frames_guest SOURCES tests/guest/frames_guest.cpp tests/guest/frame_cases.S
  FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -Wno-unused-command-line-argument)

add_windows_test_program(guest_driver tests/guest/driver.cpp)
foreach(guest c_library c_memory cxx_runtime cxx_strings exceptions files foundation_system foundation_values frames start system threads time objc)
  game_test(guest.${guest} guest_driver $<TARGET_PROPERTY:${guest}_guest,GUEST_IMAGE>)
endforeach()

# The C library's answers to generated input, ours against this machine's.
add_guest(differ_guest SOURCES tests/guest/differ.cpp FLAGS -isystem ${CMAKE_SOURCE_DIR}/sdk/darwin)
game_test(guest.differ bash -o pipefail -c "$0 $1 $2 print_answers | $3" ${CMAKE_SOURCE_DIR}/cmake/wine-run
  $<TARGET_FILE:guest_driver> $<TARGET_PROPERTY:differ_guest,GUEST_IMAGE> ${VLM_NATIVE_DIR}/differ)

add_windows_test_program(forwarders_test tests/guest/forwarders_test.cpp tests/support/machine.S
  tests/support/game_process.cpp)
game_test(guest.forwarders forwarders_test $<TARGET_PROPERTY:echo_guest,GUEST_IMAGE>)
add_windows_test_program(local_exports_test tests/guest/local_exports_test.cpp)
game_test(guest.local_exports local_exports_test $<TARGET_PROPERTY:local_guest,GUEST_IMAGE>)

add_windows_test_program(marshal_test tests/guest/marshal_test.cpp tests/support/game_process.cpp)
game_test(guest.marshal marshal_test $<TARGET_PROPERTY:marshal_guest,GUEST_IMAGE>)

add_windows_test_program(missing_export tests/guest/missing_export.cpp)
add_windows_test_program(endings_test tests/guest/endings_test.cpp tests/support/game_process.cpp)
target_link_libraries(endings_test PRIVATE vlm)
game_test(guest.endings endings_test)
add_guest(crash_guest SOURCES tests/guest/crash_guest.cpp FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -Wno-infinite-recursion)
add_windows_test_program(crash_test tests/guest/crash_test.cpp tests/support/game_process.cpp)
game_test(guest.crashes crash_test $<TARGET_PROPERTY:crash_guest,GUEST_IMAGE>)
add_guest(reports_guest SOURCES tests/guest/reports_guest.cpp FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest
  -Wno-infinite-recursion)
add_windows_test_program(reports_test tests/guest/reports_test.cpp tests/support/game_process.cpp)
game_test(guest.reports reports_test $<TARGET_PROPERTY:reports_guest,GUEST_IMAGE>)
# Every import traced: registers, results, exceptions and jumps are as without.
foreach(guest exceptions c_memory format objc)
  game_test(traced.${guest} guest_driver $<TARGET_PROPERTY:${guest}_guest,GUEST_IMAGE>)
  set_tests_properties(traced.${guest} PROPERTIES ENVIRONMENT VLM_TRACE=all)
endforeach()
add_windows_test_program(store_test tests/guest/store_test.cpp tests/support/game_process.cpp)
add_dependencies(store_test guest_driver store_guest)
game_test(guest.store store_test)
add_windows_test_program(cloud_test tests/guest/cloud_test.cpp tests/support/game_process.cpp)
add_dependencies(cloud_test guest_driver cloud_guest)
game_test(guest.cloud cloud_test)
add_test(NAME long.cloud CONFIGURATIONS long COMMAND cloud_test)
set_tests_properties(long.cloud PROPERTIES RESOURCE_LOCK game ENVIRONMENT VLM_TEST_KILLS=500 TIMEOUT 900)
add_windows_test_program(title_test tests/guest/title_test.cpp tests/support/game_process.cpp)
game_test(guest.title title_test)
add_windows_test_program(damaged_images_test tests/guest/damaged_images_test.cpp tests/support/game_process.cpp)
game_test(guest.damaged_images damaged_images_test)

# Thousands of damaged files in ./test --long, else a few. They need no turn: each process has a folder of its own and
# takes no notice of other games.
add_windows_test_program(damage_start tests/guest/damage_start.cpp)
add_windows_test_program(damage_test tests/guest/damage_test.cpp tests/support/damage.cpp tests/support/game_process.cpp)
target_link_libraries(damage_test PRIVATE vlm)
add_dependencies(damage_test damage_start)
set(damage_test damage_test $<TARGET_FILE:GameAssembly> $<TARGET_PROPERTY:uncaught_guest,GUEST_IMAGE>)
add_test(NAME guest.damage COMMAND ${damage_test} 0 120)
add_test(NAME long.damage CONFIGURATIONS long COMMAND ${damage_test} 0 10000)
add_test(NAME checked.damage COMMAND damage_test $<TARGET_FILE:GameAssemblyChecked>
  $<TARGET_PROPERTY:uncaught_guest,GUEST_IMAGE> 200 80)
set_tests_properties(long.damage PROPERTIES TIMEOUT 3600)

# Seconds of play.
add_guest(soak_guest SOURCES tests/guest/soak_guest.cpp FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest)
add_windows_test_program(soak_test tests/guest/soak_test.cpp)
target_link_libraries(soak_test PRIVATE psapi)
game_test(guest.soak soak_test $<TARGET_PROPERTY:soak_guest,GUEST_IMAGE> 10)
add_test(NAME long.soak CONFIGURATIONS long COMMAND soak_test $<TARGET_PROPERTY:soak_guest,GUEST_IMAGE> 600)
set_tests_properties(long.soak PROPERTIES RESOURCE_LOCK game TIMEOUT 900)

# Controllers, in a folder where a stand-in for XInput lies beside the library.
set(CONTROLLERS_DIR ${CMAKE_BINARY_DIR}/controllers)
add_guest(controllers_guest SOURCES tests/guest/controllers_guest.cpp
  FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest -I${CMAKE_SOURCE_DIR}/tests)
add_library(xinput_stand_in SHARED tests/support/xinput_stand_in.cpp)
target_include_directories(xinput_stand_in PRIVATE tests)
set_target_properties(xinput_stand_in PROPERTIES PREFIX "" OUTPUT_NAME xinput1_4
  RUNTIME_OUTPUT_DIRECTORY ${CONTROLLERS_DIR})
add_windows_test_program(controllers_driver tests/guest/driver.cpp)
set_target_properties(controllers_driver PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CONTROLLERS_DIR})
add_custom_command(OUTPUT ${CONTROLLERS_DIR}/GameAssembly.dll
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:GameAssembly> ${CONTROLLERS_DIR}/GameAssembly.dll
  DEPENDS GameAssembly VERBATIM)
add_custom_target(controllers ALL DEPENDS ${CONTROLLERS_DIR}/GameAssembly.dll)
game_test(guest.controllers controllers_driver $<TARGET_PROPERTY:controllers_guest,GUEST_IMAGE>)
game_test(guest.no_keyboard controllers_driver $<TARGET_PROPERTY:controllers_guest,GUEST_IMAGE> keyboard_is_absent)
# Wine has an XInput of its own, which it would load first.
set_tests_properties(guest.controllers PROPERTIES ENVIRONMENT "WINEDLLOVERRIDES=xinput1_4=n;VLM_KEYBOARD=1")
set_tests_properties(guest.no_keyboard PROPERTIES ENVIRONMENT WINEDLLOVERRIDES=xinput1_4=n)

# The image with thread storage has a folder of its own, as a playable copy has.
set(STORAGE_DIR ${CMAKE_BINARY_DIR}/storage)
add_guest(storage_guest SOURCES tests/guest/storage_guest.cpp FLAGS -I${CMAKE_SOURCE_DIR}/tests/guest
  OUTPUT ${STORAGE_DIR}/GameAssembly.dylib)
fit_library(${STORAGE_DIR} storage_guest)
add_custom_target(storage ALL DEPENDS ${STORAGE_DIR}/GameAssembly.dll)
add_windows_test_program(storage_test tests/guest/storage_test.cpp)
set_target_properties(storage_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${STORAGE_DIR})
game_test(guest.storage storage_test)
game_test(guest.storage_expansion storage_test expansion)

# Some thousand functions around gs accesses, patched, against the same functions with plain memory.
set(GS_CASES_DIR ${CMAKE_BINARY_DIR}/gs_cases)
add_custom_command(OUTPUT ${GS_CASES_DIR}/cases.S
  COMMAND ${CMAKE_COMMAND} -E make_directory ${GS_CASES_DIR}
  COMMAND ${VLM_NATIVE_DIR}/make_gs_cases ${GS_CASES_DIR}/cases.S
  DEPENDS ${VLM_NATIVE_DIR}/make_gs_cases VERBATIM)
add_guest(gs_cases_guest SOURCES ${GS_CASES_DIR}/cases.S FLAGS -Wno-unused-command-line-argument
  OUTPUT ${GS_CASES_DIR}/GameAssembly.dylib)
fit_library(${GS_CASES_DIR} gs_cases_guest)
add_custom_target(gs_cases ALL DEPENDS ${GS_CASES_DIR}/GameAssembly.dll)
add_windows_test_program(gs_cases_test tests/guest/gs_cases_test.cpp tests/support/machine.S)
set_target_properties(gs_cases_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${GS_CASES_DIR})
game_test(guest.gs_cases gs_cases_test)
game_test(guest.gs_cases_expansion gs_cases_test expansion)
add_test(NAME native.tessera_check COMMAND ${VLM_NATIVE_DIR}/tessera ${GS_CASES_DIR}/GameAssembly.dylib
  --library ${GS_CASES_DIR}/GameAssembly.dll --check)

game_test(sample ${CMAKE_SOURCE_DIR}/cmake/wine-run $<TARGET_FILE:SamplePlayer> --frames 60)
set_tests_properties(sample PROPERTIES FAIL_REGULAR_EXPRESSION "there is no mod")
# The crash report names the game's function. The exit code does not count: it is the exception's.
game_test(sample_crash ${CMAKE_SOURCE_DIR}/cmake/wine-run $<TARGET_FILE:SamplePlayer> --crash)
set_tests_properties(sample_crash PROPERTIES FAIL_REGULAR_EXPRESSION "player: ERROR" PASS_REGULAR_EXPRESSION
  "EXCEPTION 0xc0000005 at 0x[0-9a-f]+ GameAssembly.dylib![^ ]*Game_Crash[^\n]*\n[^\n]*  read address 0x0")

# ---- The checked library ---------------------------------------------------------------------------------------------
# In a folder of its own with the programs that drive it. What is left out has little of the library in it for its time
# (the collector's stress) or is about the way a process ends.
set(checked_files)
foreach(program guest_driver forwarders_test marshal_test local_exports_test)
  add_custom_command(OUTPUT ${VLM_CHECKED_DIR}/${program}.exe
    COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:${program}> ${VLM_CHECKED_DIR}/${program}.exe
    DEPENDS ${program} VERBATIM)
  list(APPEND checked_files ${VLM_CHECKED_DIR}/${program}.exe)
endforeach()
add_custom_target(checked_programs ALL DEPENDS ${checked_files})

function(checked_test name program guest)
  game_test(checked.${name} ${CMAKE_SOURCE_DIR}/cmake/wine-run ${VLM_CHECKED_DIR}/${program}.exe
    $<TARGET_PROPERTY:${guest}_guest,GUEST_IMAGE>)
endfunction()
foreach(guest c_library c_memory cxx_runtime cxx_strings exceptions files foundation_system foundation_values frames start system threads time objc)
  checked_test(${guest} guest_driver ${guest})
endforeach()
checked_test(forwarders forwarders_test echo)
checked_test(local_exports local_exports_test local)
checked_test(marshal marshal_test marshal)

# The archive that ./test has made before.
add_test(NAME package COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_package
  ${CMAKE_SOURCE_DIR}/build/package/velmora-loader-${PROJECT_VERSION}.zip ${SAMPLE_DIR})

# ---- Native programs -------------------------------------------------------------------------------------------------
add_test(NAME native.arrows COMMAND ${CMAKE_SOURCE_DIR}/tests/arrows)
add_test(NAME native.messages COMMAND ${CMAKE_SOURCE_DIR}/tests/support/check_messages)
add_test(NAME native.tessera COMMAND ${VLM_NATIVE_DIR}/tessera_test)
add_test(NAME native.mutate_images COMMAND ${VLM_NATIVE_DIR}/mutate_images)
set_tests_properties(native.tessera native.mutate_images PROPERTIES TIMEOUT 60)

# Two readers of compact unwind information agree about every address.
foreach(guest frames uncaught exceptions cxx_strings)
  add_test(NAME native.unwind_info_${guest} COMMAND bash -o pipefail -c
    "llvm-objdump-19 --macho --unwind-info $0 | $1 $0" $<TARGET_PROPERTY:${guest}_guest,GUEST_IMAGE>
    ${VLM_NATIVE_DIR}/unwind_info_test)
endforeach()

set(images)
foreach(guest c_library c_memory cloud cxx_runtime cxx_strings exceptions files foundation_system
        foundation_values frames objc start storage system threads time)
  list(APPEND images $<TARGET_PROPERTY:${guest}_guest,GUEST_IMAGE>)
endforeach()
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
  "[.unwind.opaque[].function | split(\" \")[1]] == [\"(_throw_from_dwarf_frame)\", \"(_throw_from_seven_registers)\"]")
inspect_check(storage $<TARGET_PROPERTY:storage_guest,GUEST_IMAGE> 1 ".thread_storage.sites > 5")
# A library that was fitted to an image, with that image and with another one.
add_test(NAME native.inspect_fitted COMMAND bash -ec
  "$0 $1 --library $3 --json | jq -e '.status == 1 and .thread_storage.list == \"fits\"'
   $0 $2 --library $3 --json | jq -e '.status == 2 and .thread_storage.list == \"differs\"'" ${VLM_NATIVE_DIR}/inspect
  $<TARGET_PROPERTY:storage_guest,GUEST_IMAGE> $<TARGET_PROPERTY:gs_cases_guest,GUEST_IMAGE>
  ${STORAGE_DIR}/GameAssembly.dll)

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
