# Sourced by run, test, bench and package: makes sure that what they need is installed, builds, and readies Wine.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build

# program or file that shows the package is there : Debian package
needs=(
  clang-19:clang-19 clang++-19:clang-19 ld64.lld-19:lld-19 llvm-ar-19:llvm-19 clang-tidy-19:clang-tidy-19 clang-format-19:clang-format-19
  cmake:cmake ninja:ninja-build
  /usr/lib/llvm-19/lib/clang/19/lib/linux/libclang_rt.asan-x86_64.a:libclang-rt-19-dev
  /usr/x86_64-w64-mingw32/include/windows.h:mingw-w64-x86-64-dev
  x86_64-w64-mingw32-g++:g++-mingw-w64-x86-64
  jq:jq wine:wine wine:wine64 xvfb-run:xvfb xauth:xauth
  /usr/include/doctest/doctest.h:doctest-dev /usr/include/Zydis/Zydis.h:libzydis-dev
  /usr/lib/llvm-19/include/c++/v1/string:libc++-19-dev /usr/lib/llvm-19/lib/libc++abi.so:libc++abi-19-dev
  /usr/lib/llvm-19/lib/libunwind.so:libunwind-19-dev g++:g++ /usr/include/x86_64-linux-gnu/ffi.h:libffi-dev
  /usr/include/png.h:libpng-dev dpkg-source:dpkg-dev
  /usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf:fonts-dejavu-core # for the letters of button glyphs
)

# What `./test --real` needs besides.
needs_of_real_programs=(make:make gcc:gcc tclsh:tcl sqlite3:sqlite3)

missing_packages() {
  local need
  for need in "${needs[@]}"; do
    local thing=${need%%:*} package=${need##*:}
    if [[ $thing == /* ]]; then [[ -e $thing ]] || echo "$package"; else command -v "$thing" >/dev/null || echo "$package"; fi
  done | sort -u
}

set_up() {
  local missing
  missing=$(missing_packages | tr '\n' ' ')
  [[ -z $missing ]] && return
  if [[ -e /etc/debian_version ]] && command -v apt-get >/dev/null && { [[ $EUID == 0 ]] || command -v sudo >/dev/null; }; then
    echo "installing: $missing"
    local as_root=()
    [[ $EUID == 0 ]] || as_root=(sudo)
    "${as_root[@]}" apt-get update -q
    # shellcheck disable=SC2086 # a list of names
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -q -y --no-install-recommends $missing
    missing=$(missing_packages | tr '\n' ' ')
  fi
  if [[ -n $missing ]]; then
    echo "These packages are missing (names as in Debian): $missing" >&2
    echo "Install them and run this command again." >&2
    exit 1
  fi
}

# The formatter's own complaints say where.
check_format() {
  git -C "$root" ls-files -z '*.cpp' '*.h' | (cd "$root" && xargs -0 clang-format-19 --dry-run --Werror)
}

build_all() {
  local preset
  for preset in native windows; do
    [[ -e $build/$preset/build.ninja ]] || cmake -S "$root" --preset "$preset"
    cmake --build "$build/$preset"
  done
}

build_real_programs() {
  "$root/tests/real/fetch" "$build/real/src"
  cmake -S "$root/tests/real" -B "$build/real" -G Ninja -DCMAKE_C_COMPILER=clang-19
  cmake --build "$build/real"
}

# ready_wine NAME: a Wine prefix of our own in build/NAME; making one takes some seconds.
# The tests' prefix has no window manager to work with: an unmanaged window need not wait for one.
ready_wine() {
  export WINEPREFIX=$build/$1
  local wine=$root/cmake/wine-run
  [[ -e $WINEPREFIX/.ready ]] && return
  echo "making a Wine prefix in build/$1"
  xvfb-run -a "$wine" wineboot --init >/dev/null 2>&1
  if [[ $1 == wine-tests ]]; then
    xvfb-run -a "$wine" reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null
  fi
  wineserver -w
  touch "$WINEPREFIX/.ready"
}

# on_a_screen COMMAND...: runs it on a virtual screen, and ends Wine before the screen goes away.
on_a_screen() {
  xvfb-run -a bash -c 'status=0; "$@" || status=$?; wineserver -k || true; exit $status' on_a_screen "$@"
}

# with_services COMMAND...: on_a_screen, with Wine's services started first. As children of the first test they would hold
# its output open, and ctest waits. Not for benchmarks, which the services would disturb.
with_services() {
  on_a_screen bash -c '"$0" wineboot >/dev/null 2>&1; exec "$@"' "$root/cmake/wine-run" "$@"
}
