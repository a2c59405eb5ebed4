# Sourced by package and test: the archive to hand out, build/package/<name>.zip.

package_version=$(sed -nE 's/^project\(.* VERSION ([0-9.]+).*/\1/p' "$root/CMakeLists.txt")
package_name=velmora-loader-$package_version
package_folder=$build/package/$package_name
package_archive=$package_folder.zip

# build_release_tools: the tools for both systems, in build/tools-linux and build/tools-windows.
build_release_tools() {
  local zydis=$build/zydis system
  "$root/cmake/fetch_source" "$zydis" zydis
  for system in linux windows; do
    local options=(-DCMAKE_BUILD_TYPE=Release "-DZYDIS_SOURCE=$zydis/zydis")
    if [[ $system == windows ]]; then
      options+=("-DCMAKE_TOOLCHAIN_FILE=$root/cmake/windows-toolchain.cmake")
    else
      options+=(-DCMAKE_C_COMPILER=clang-19 -DCMAKE_CXX_COMPILER=clang++-19)
    fi
    [[ -e $build/tools-$system/build.ninja ]] || cmake -S "$root" -B "$build/tools-$system" -G Ninja "${options[@]}"
    cmake --build "$build/tools-$system" --target tessera inspect port
  done
}

# make_package: what build_all and build_release_tools have built, in one archive.
make_package() {
  rm -rf "$package_folder" "$package_archive"
  mkdir -p "$package_folder"/{linux,windows,include,mod,docs,licences}
  cd "$root"
  cp docs/package.md "$package_folder/README.md"
  cp "$build/windows/GameAssembly.dll" "$package_folder/"
  cp "$build/tools-linux/"{tessera,inspect,port} "$package_folder/linux/"
  cp "$build/tools-windows/"{tessera,inspect,port}.exe "$package_folder/windows/"
  cp include/vlm.h "$package_folder/include/"
  cmake --build "$build/windows" --target check_benches
  cmake --install "$build/windows" --component check --prefix "$package_folder/check" >/dev/null
  cmake/make_il2cpp_header src/host/il2cpp_exports.def > "$package_folder/include/il2cpp.h"
  cp sample/mod/mod.{cpp,h} "$build/windows/sample/SampleMod.dll" "$build/windows/libGameAssembly.dll.a" "$package_folder/mod/"
  # What developers read stays in the repository; links lead to where things are in the archive.
  cp docs/*.svg "$package_folder/docs/"
  for page in porting modding; do
    sed -e 's|(\.\./sample/mod/|(../mod/|g; s|\[sample/mod/|[mod/|g' \
        -e 's|\[\(sample/sample.cmake\)\](../sample/sample.cmake)|`\1`|g' "docs/$page.md" > "$package_folder/docs/$page.md"
  done
  cp "$build/zydis/zydis/LICENSE" "$package_folder/licences/zydis.txt"
  cp /usr/share/doc/libzycore-dev/copyright "$package_folder/licences/zycore.txt"
  cp /usr/share/doc/mingw-w64-common/copyright "$package_folder/licences/mingw-w64.txt"
  cp /usr/share/doc/gcc-mingw-w64-base/copyright "$package_folder/licences/gcc-runtime.txt"
  cp /usr/share/doc/libc6/copyright "$package_folder/licences/glibc.txt"
  (cd "$build/package" && cmake -E tar cf "$package_archive" --format=zip "$package_name")
}
