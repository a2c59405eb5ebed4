# A small macOS game, and a Windows player for it, in the places of the real ones.
#
#   sample/GameAssembly.dylib   the game: macOS code
#   sample/GameAssembly.dll     the library, with the patch list for exactly this game behind it
#   sample/SamplePlayer.exe     the player: loads the DLL beside it
#   sample/SampleMod.dll        a mod, loaded by the player
set(SAMPLE_DIR ${CMAKE_BINARY_DIR}/sample)
set(SAMPLE_GAME ${CMAKE_CURRENT_LIST_DIR}/game)

# The image exports the interface and nothing else.
set(SAMPLE_EXPORTS ${CMAKE_BINARY_DIR}/guests/sample_exports.txt)
file(STRINGS ${CMAKE_SOURCE_DIR}/src/host/il2cpp_exports.def rows REGEX "^IL2CPP_[A-Z]+\\(")
list(TRANSFORM rows REPLACE "^[^,]*, (il2cpp_[a-z0-9_]+).*" "_\\1" OUTPUT_VARIABLE export_names)
list(JOIN export_names "\n" export_lines)
file(CONFIGURE OUTPUT ${SAMPLE_EXPORTS} CONTENT "${export_lines}\n" @ONLY)

# What the game takes from the library. Anything else that stays undefined is an error of the game, not an import.
set(SAMPLE_IMPORTS
  _calloc _malloc _free _memcpy ___bzero _memcmp _strlen _strcmp _strchr _strdup
  _strtol _fprintf _snprintf _fflush ___stdoutp _fopen _fclose _fread _fwrite _rename
  _dlopen _dlsym _dlerror
  _time _localtime _strftime _sysctl
  _objc_msgSend _objc_retainAutoreleasedReturnValue _objc_release ___CFConstantStringClassReference
  _OBJC_CLASS_$_NSUbiquitousKeyValueStore _OBJC_CLASS_$_NSObject _OBJC_METACLASS_$_NSObject __objc_empty_cache
  _memmove _memchr ___cxa_atexit ___cxa_guard_acquire ___cxa_guard_release ___cxa_guard_abort
  __ZNSt3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEE6appendEPKc
  __ZNSt3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEED1Ev
  ___cxa_allocate_exception ___cxa_throw ___gxx_personality_v0 __Unwind_Resume ___cxa_begin_catch ___cxa_end_catch
  __ZTVN10__cxxabiv117__class_type_infoE __ZSt9terminatev
  dyld_stub_binder)
set(import_flags)
foreach(symbol ${SAMPLE_IMPORTS})
  list(APPEND import_flags -U ${symbol})
endforeach()

# corlib first: assemblies join the domain in link order.
file(GLOB SAMPLE_SOURCES CONFIGURE_DEPENDS ${SAMPLE_GAME}/*/*.cpp ${SAMPLE_GAME}/*/*.m)
list(REMOVE_ITEM SAMPLE_SOURCES ${SAMPLE_GAME}/runtime/corlib.cpp)
add_guest(sample_game LIBCXX
  SOURCES ${SAMPLE_GAME}/runtime/corlib.cpp ${SAMPLE_SOURCES}
  OUTPUT ${SAMPLE_DIR}/GameAssembly.dylib
  FLAGS -I${SAMPLE_GAME} -Wmissing-prototypes
  LINK_FLAGS -exported_symbols_list ${SAMPLE_EXPORTS} -undefined error ${import_flags})

file(GLOB SAMPLE_PLAYER_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/player/*.cpp)
add_executable(SamplePlayer ${SAMPLE_PLAYER_SOURCES})
target_include_directories(SamplePlayer PRIVATE src include sample/player)
target_link_libraries(SamplePlayer PRIVATE gdi32)
set_target_properties(SamplePlayer PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${SAMPLE_DIR})

# Finds the library's exports by its file name: in the process that is the GameAssembly.dll of the player's folder.
add_library(SampleMod SHARED sample/mod/mod.cpp)
target_include_directories(SampleMod PRIVATE include)
target_link_libraries(SampleMod PRIVATE GameAssembly)
set_target_properties(SampleMod PROPERTIES PREFIX "" RUNTIME_OUTPUT_DIRECTORY ${SAMPLE_DIR})

fit_library(${SAMPLE_DIR} sample_game)
add_custom_target(sample ALL DEPENDS ${SAMPLE_DIR}/GameAssembly.dll SamplePlayer SampleMod)
