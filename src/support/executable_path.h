// What game code is told wherever macOS would report the path of the running executable.
#pragma once

namespace vlm {

/// UTF-8. The start-up driver puts the library's own directory in front of it before game code runs; read-only from
/// then on.
inline constinit char emulated_executable_path[1024] = "/Applications/Velmora.app/Contents/MacOS/Velmora";

}  // namespace vlm
