// Calls an export whose function the image lacks; endings_test looks at how that ends.
#include <windows.h>

int main(int argc, char** argv) {
  SetEnvironmentVariableA("VLM_GAMEASSEMBLY", argv[1]);
  const HMODULE library = LoadLibraryA("GameAssembly.dll");
  if (library == nullptr) return 1;
  reinterpret_cast<void (*)(int)>(reinterpret_cast<void*>(GetProcAddress(library, "il2cpp_gc_collect")))(0);
  return 0;
}
