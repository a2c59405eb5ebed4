// What ./bench measures of exceptions: thrown beneath frames with a destructor each, caught above them. Compiled as
// game code, where throwing is the library's, and natively by two compilers.

namespace {

volatile int destroyed;

struct Guard {
  ~Guard() { destroyed = destroyed + 1; }
};

[[gnu::noinline]] int descend(long depth) {
  Guard guard;
  if (depth == 1) throw 1;
  return descend(depth - 1) + destroyed;
}

[[gnu::noinline]] void throw_beneath(long depth) {
  try {
    descend(depth);
  } catch (int) {
  }
}

constexpr long depths[] = {1, 10, 100};

}  // namespace

extern "C" {
/// Names and goals, in the order of run_case(); a null ends them.
extern const char* const case_names[] = {
    "throw and catch, 1 frame between | 0.08",
    "throw and catch, 10 frames between | 0.07",
    "throw and catch, 100 frames between | 0.06",
    nullptr,
};

void run_case(long which, long times) {
  for (long i = 0; i < times; ++i) throw_beneath(depths[which]);
}

#ifdef __APPLE__
int il2cpp_init(const char*) { return 0; }
#endif
}
