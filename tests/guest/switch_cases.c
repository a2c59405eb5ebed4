// Switches as clang compiles them, with a short gs access in front of every place that a table leads to. Compiled once
// for each optimization level and code model; see make_gs_cases.cpp for the rest of the image.
//   -DFORM=name  what the function is called
typedef unsigned long u64;

#define CONCAT_(a, b) a##b
#define CONCAT(a, b) CONCAT_(a, b)

// `plain` is added in the one form, gs in the other: movq %gs:(%rax), %rax has four bytes, too few for a jump.
#define LOAD(place, at)                                       \
  ({                                                          \
    u64 word_ = (at);                                         \
    __asm__ volatile("movq " place "(%0), %0" : "+a"(word_)); \
    word_;                                                    \
  })

#define SWITCHES(name, place)                                                   \
  __attribute__((noinline)) static u64 CONCAT(name, _inner)(u64 kind, u64 at) { \
    u64 word = at;                                                              \
    switch (kind) {                                                             \
      case 0: word = LOAD(place, word) * 3; break;                              \
      case 1: word = LOAD(place, word + 8); break;                              \
      case 2: word = LOAD(place, word ^ 16) + 5; /* fall through */             \
      case 3: word = LOAD(place, word % 64 * 8); break;                         \
      case 5: word = LOAD(place, word) << 7; break;                             \
      case 6: word = LOAD(place, word + 24) - 1; break;                         \
      case 9: word = LOAD(place, word | 32); break;                             \
      default: word = ~word;                                                    \
    }                                                                           \
    return word;                                                                \
  }                                                                             \
  u64 CONCAT(name, FORM)(u64 seed) {                                            \
    u64 sum = 0;                                                                \
    for (u64 i = 0; i < 64; ++i) {                                              \
      const u64 kind = (seed + i * 7) % 11, at = (seed + i) % 32 * 64;          \
      switch (i % 8) {                                                          \
        case 0: sum += CONCAT(name, _inner)(kind, at); break;                   \
        case 1: sum ^= CONCAT(name, _inner)(kind + 1, at); break;               \
        case 3: sum = sum * 31 + LOAD(place, at); break;                        \
        case 6: sum += CONCAT(name, _inner)(kind, at + 8) * 5; break;           \
        default: sum += i;                                                      \
      }                                                                         \
    }                                                                           \
    return sum;                                                                 \
  }

SWITCHES(gs_switch_, "%%gs:")
SWITCHES(plain_switch_, "0x20000000")
