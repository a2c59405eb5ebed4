// Calls an export whose function the image lacks; endings_test looks at how that ends.
#include "support/game.h"

int main(int, char** argv) {
  vlm::test::load_library(argv[1]);
  vlm::test::library_function<void (*)(int)>("il2cpp_gc_collect")(0);
  return 0;
}
