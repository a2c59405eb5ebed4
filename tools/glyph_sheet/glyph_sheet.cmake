# Draws docs/glyphs.png, after ./test has built it and made a Wine prefix:
#   WINEPREFIX=$PWD/build/wine-tests xvfb-run -a cmake/wine-run build/windows/glyph_sheet.exe docs/glyphs.png
add_executable(glyph_sheet tools/glyph_sheet/main.cpp)
target_compile_options(glyph_sheet PRIVATE ${VLM_WARNINGS})
target_link_libraries(glyph_sheet PRIVATE vlm gdiplus shlwapi ole32)
