# The tools as they are handed out: programs for Linux and for Windows that need nothing but the system they run on.
# Debian has Zydis for Linux alone and only as a shared library, so it is compiled from its source here.
#   ZYDIS_SOURCE  the folder of that source
enable_language(C)
file(GLOB zydis_sources ${ZYDIS_SOURCE}/src/*.c)
add_library(Zydis STATIC ${zydis_sources})
# Of Zycore, which it builds on, headers are enough. They are taken out of the host's include folder, whose others must
# not be seen when this is compiled for Windows.
file(COPY /usr/include/Zycore DESTINATION ${CMAKE_BINARY_DIR}/include)
target_include_directories(Zydis PRIVATE ${ZYDIS_SOURCE}/src)
target_include_directories(Zydis SYSTEM PUBLIC ${ZYDIS_SOURCE}/include ${CMAKE_BINARY_DIR}/include)
target_compile_definitions(Zydis PUBLIC ZYDIS_STATIC_BUILD ZYCORE_STATIC_BUILD)
target_compile_options(Zydis PRIVATE -w)

add_link_options(-static -s)
include(tools/tools.cmake)
