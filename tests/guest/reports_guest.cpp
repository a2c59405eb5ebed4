// Game code that crashes in places that are hard to reach, and tells beforehand who called whom; and code whose calls
// of imports are traced.
#include "reflection_runtime.h"

static constexpr const Type* (*int_type[])() = {&TypeOf<int>::get};
static const Method methods[] = {{"Call", false, 0x1000, 1, int_type, &TypeOf<int>::get}};
static const Class outer = {.name = "Outer", .name_space = "Game", .methods = methods, .method_count = 1};
static const Image image = {{&outer, nullptr}};
const Image* reflection::assemblies[] = {&image, nullptr};

extern "C" {

// Given by the host.
int64 (*call_on_windows)(void* guest_function, int64 argument) = nullptr;
int64 (*method_callback)(int32 value, const void* method) = nullptr;

int32 il2cpp_init(const char*) { return 0; }
const Method* call_method() { return &methods[0]; }

/// Writes down that the function of this name is called next.
void enter(const char* name) {
  const int32 file = open("callers.tmp", O_WRONLY | O_CREAT | O_APPEND, 0644);
  write(file, name, strlen(name));
  write(file, "\n", 1);
  close(file);
}
// A function with a frame of its own, which calls `next` from its middle.
#define CALLER(name, next)                 \
  __attribute__((noinline)) int64 name() { \
    enter("_" #name);                      \
    const int64 result = next;             \
    asm volatile("");                      \
    return result + 1;                     \
  }

void* readable() { return mmap(nullptr, 4096, 1, MAP_ANON | MAP_PRIVATE, -1, 0); }
__attribute__((always_inline)) inline int64 divide() {
  int32 quotient = 1;
  asm volatile("cltd\n\tidivl %1" : "+a"(quotient) : "r"(0) : "edx");
  return quotient;
}
/// The stack pointer in memory of the game's own, 64 bytes below a page that cannot be read.
__attribute__((always_inline)) inline int64 move_stack() {
  auto* const memory = static_cast<uint8*>(mmap(nullptr, 0x40000, 3, MAP_ANON | MAP_PRIVATE, -1, 0));
  mprotect(memory + 0x3F000, 0x1000, 0);
  asm volatile("movq %0, %%rsp\n\txorl %%eax, %%eax\n\tmovl (%%rax), %%eax" ::"r"(memory + 0x3EFC0) : "memory");
  return 0;
}

CALLER(reads_badly, *reinterpret_cast<volatile int64*>(0x10))
CALLER(leaf_crash, reads_badly())
CALLER(write_crash, __atomic_exchange_n(reinterpret_cast<int64*>(0x1234), 1, __ATOMIC_SEQ_CST))
CALLER(execute_crash, reinterpret_cast<int64 (*)()>(readable())())
CALLER(division_crash, divide())
CALLER(stack_crash, move_stack())

CALLER(outer_callback, call_on_windows(reinterpret_cast<void*>(&reads_badly), 0))
CALLER(callback_crash, call_on_windows(reinterpret_cast<void*>(&outer_callback), 0))

CALLER(bad_strlen, static_cast<int64>(strlen(reinterpret_cast<const char*>(0x10))))
CALLER(shim_crash, method_callback(1, &methods[0]))

CALLER(internal_call_crash, reinterpret_cast<int32 (*)(int32)>(il2cpp_resolve_icall("Game.Outer::Call"))(1))

int64 recurse(int64 depth) {
  volatile int64 frame[64] = {depth};
  return recurse(depth + 1) + frame[depth % 64];
}
CALLER(overflow_crash, (enter("_recurse"), recurse(0)))

CALLER(jump_crash, reinterpret_cast<int64 (*)()>(0x1230)())
CALLER(fatal_end, (abort(), 0))

// ---- Traced calls ---------------------------------------------------------------------------------------------------

int64 traced_calls() {
  open("ordner/\xC3\xBC-\xE3\x83\x95\xE3\x82\xA1.txt", O_RDONLY);
  rename("a \"b\"", "c\\d");
  char text[64];
  snprintf(text, sizeof text, "%s %d %.2f %s", "one", 2, 3.5, "four");
  return strcmp(text, "one 2 3.50 four");
}

/// More calls than a ring holds, faster than anything writes them.
int64 many_traced_calls() {
  for (int64 i = 0; i < 300'000; ++i) rename(nullptr, nullptr);
  abort();
}
}
