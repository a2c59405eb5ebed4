// The stub pool and the bytes of each stub.
//
// A chunk is one allocation: 1 MiB of stubs, cut off front to back, and behind them what Windows needs for walking
// the stack across those stubs. The pool cuts in address order, so the table of functions is sorted as it grows.
//
//   chunk                                    +1 MiB
//   | stub | stub | ...  -> free             | UnwindInfo, UnwindInfo | RUNTIME_FUNCTION, ... -> free |
//
// Record stubs have no entry there. They use neither the stack nor a register that must be kept, and that is what
// Windows assumes of a function without an entry.
#include "abi/stubs.h"

#include <windows.h>

#include <cstring>
#include <mutex>

#include "abi/entries.h"
#include "diag/log.h"
#include "support/locks.h"
#include "support/pages.h"
#include "support/procedures.h"

namespace vlm {
namespace {

/// `UNWIND_INFO` version 1 of the Windows x64 exception handling ABI, with room for the codes used here.
struct UnwindInfo {
  std::uint8_t version_and_flags;
  std::uint8_t size_of_prolog;
  std::uint8_t count_of_codes;
  std::uint8_t frame_register;  // number in the low four bits, scaled offset in the high four
  struct {
    std::uint8_t code_offset;  // of the end of the instruction, in the prologue
    std::uint8_t operation;    // UWOP_* in the low four bits, its operand in the high four
  } codes[4];                  // last instruction first; an even number of places
};
static_assert(sizeof(UnwindInfo) == 12);

enum UnwindOperation : std::uint8_t { UWOP_PUSH_NONVOL = 0, UWOP_ALLOC_SMALL = 2, UWOP_SET_FPREG = 3 };
constexpr std::uint8_t rbp_number = 5;

constexpr std::uint8_t operation(UnwindOperation code, unsigned operand) {
  return static_cast<std::uint8_t>(code | operand << 4);
}
constexpr std::uint8_t alloc_small(unsigned size) { return operation(UWOP_ALLOC_SMALL, size / 8 - 1); }

// push rbp; mov rbp, rsp; sub rsp, 0x30
constexpr UnwindInfo callback_unwind = {
    1, 8, 3, rbp_number, {{8, alloc_small(0x30)}, {4, UWOP_SET_FPREG}, {1, operation(UWOP_PUSH_NONVOL, rbp_number)}}};
// sub rsp, 0x68
constexpr UnwindInfo sysv_function_unwind = {1, 4, 1, 0, {{4, alloc_small(0x68)}}};

/// How the pool cuts a kind of stub. `fit` bytes must be left in the chunk, `slot` bytes are taken.
struct StubKind {
  std::size_t fit;
  std::size_t slot;
  const UnwindInfo* unwind;  // null: a leaf
};
constexpr StubKind callback_stub = {44, 48, &callback_unwind};
constexpr StubKind record_stub = {24, 32, nullptr};
constexpr std::size_t transparent_stub_size = 24;  // cut like record stubs
constexpr StubKind sysv_function_stub = {128, 128, &sysv_function_unwind};

/// What lies behind a chunk's stubs. Addresses in it count from the chunk's start.
struct ChunkTail {
  UnwindInfo callback;
  UnwindInfo sysv_function;
  RUNTIME_FUNCTION functions[stub_chunk_size / callback_stub.slot + 1];
};

// Both since Windows 8. Without them stubs work all the same; only stack walks end at them.
using AddGrowableFunctionTable = DWORD NTAPI(void**, RUNTIME_FUNCTION*, DWORD, DWORD, ULONG_PTR, ULONG_PTR);
using GrowFunctionTable = void NTAPI(void*, DWORD);

/// The chunk that stubs are cut from. Constant-initialised, because constructors of other files may make stubs.
struct StubPool {
  SrwLock lock;  // guards all below; a leaf, but for the lock inside Windows' function tables
  std::byte* chunk = nullptr;
  std::size_t offset = stub_chunk_size;
  DWORD function_count = 0;
  void* function_table = nullptr;  // null until the chunk's first described stub, or when Windows has none to offer
  AddGrowableFunctionTable* add_table = nullptr;
  GrowFunctionTable* grow_table = nullptr;

  ChunkTail* tail() { return reinterpret_cast<ChunkTail*>(chunk + stub_chunk_size); }

  /// A slot for a stub of `length` bytes, described to Windows before anything can run in it.
  std::byte* take(const StubKind& kind, std::size_t length) {
    const std::lock_guard guard(lock);
    if (offset + kind.fit > stub_chunk_size) open_chunk_locked();
    std::byte* slot = chunk + offset;
    if (kind.unwind != nullptr) describe_locked(kind, length);
    offset += kind.slot;
    return slot;
  }

  void open_chunk_locked() {
    if (chunk == nullptr) {
      const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
      add_table = find_procedure<AddGrowableFunctionTable>(ntdll, "RtlAddGrowableFunctionTable");
      grow_table = find_procedure<GrowFunctionTable>(ntdll, "RtlGrowFunctionTable");
    }
    chunk = static_cast<std::byte*>(allocate_stub_memory(stub_chunk_size + sizeof(ChunkTail)));
    tail()->callback = callback_unwind;
    tail()->sysv_function = sysv_function_unwind;
    offset = 0;
    function_count = 0;
    function_table = nullptr;
  }

  void describe_locked(const StubKind& kind, std::size_t length) {
    if (add_table == nullptr || grow_table == nullptr) return;
    const auto* unwind = kind.unwind == &callback_unwind ? &tail()->callback : &tail()->sysv_function;
    RUNTIME_FUNCTION& function = tail()->functions[function_count];
    function.BeginAddress = static_cast<DWORD>(offset);
    function.EndAddress = static_cast<DWORD>(offset + length);
    function.UnwindData = static_cast<DWORD>(reinterpret_cast<const std::byte*>(unwind) - chunk);
    ++function_count;
    if (function_table != nullptr) {
      grow_table(function_table, function_count);
    } else if (const auto start = reinterpret_cast<ULONG_PTR>(chunk);
               add_table(&function_table, tail()->functions, function_count,
                         static_cast<DWORD>(std::size(tail()->functions)), start, start + stub_chunk_size) != 0) {
      function_table = nullptr;
    }
  }
};

constinit StubPool pool;

/// Writes machine code front to back.
class CodeWriter {
 public:
  explicit CodeWriter(void* place) : at_(static_cast<std::byte*>(place)) {}

  template <std::size_t Size>
  CodeWriter& code(const std::uint8_t (&bytes)[Size]) {
    std::memcpy(at_, bytes, Size);
    at_ += Size;
    return *this;
  }
  CodeWriter& address(const void* value) {
    std::memcpy(at_, &value, sizeof value);
    at_ += sizeof value;
    return *this;
  }

 private:
  std::byte* at_;
};

bool is_readable(const void* address, std::size_t size) {
  return for_each_region(reinterpret_cast<std::uintptr_t>(address), size,
                         [](const MEMORY_BASIC_INFORMATION& region, std::uintptr_t, std::uint64_t) {
                           return region.State == MEM_COMMIT &&
                                  (region.Protect & (PAGE_NOACCESS | PAGE_GUARD | PAGE_EXECUTE)) == 0;
                         });
}

}  // namespace

void* allocate_stub_memory(std::size_t size) {
  void* memory = VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
  if (memory == nullptr) {
    fatal_error("out of memory: cannot allocate %zu bytes for generated code (error %lu)", size, GetLastError());
  }
  return memory;
}

void write_record_stub(void* place, const void* record, const void* entry) {
  CodeWriter(place)
      .code({0x48, 0xB8})
      .address(record)  // mov rax, record
      .code({0x49, 0xBB})
      .address(entry)             // mov r11, entry
      .code({0x41, 0xFF, 0xE3});  // jmp r11
}

void* make_record_stub(const void* record, const void* entry) {
  void* stub = pool.take(record_stub, record_stub_size);
  write_record_stub(stub, record, entry);
  return stub;
}

void* make_transparent_stub(const void* record, const void* entry) {
  void* stub = pool.take(record_stub, transparent_stub_size);
  CodeWriter(stub)
      .code({0x49, 0xBB})
      .address(record)                             // mov r11, record
      .code({0xFF, 0x25, 0x00, 0x00, 0x00, 0x00})  // jmp [rip]
      .address(entry);
  return stub;
}

void* record_of_stub(const void* address, const void* entry) {
  if (!is_readable(address, record_stub_size)) return nullptr;
  std::byte found[record_stub_size];
  std::memcpy(found, address, sizeof found);
  void* record;
  std::memcpy(&record, found + 2, sizeof record);
  std::byte expected[record_stub_size];
  write_record_stub(expected, record, entry);
  return std::memcmp(found, expected, sizeof found) == 0 ? record : nullptr;
}

void* make_callback_stub(const void* target) {
  void* stub = pool.take(callback_stub, callback_stub.fit);
  CodeWriter(stub)
      .code({0x55})                          // push rbp
      .code({0x48, 0x89, 0xE5})              // mov rbp, rsp
      .code({0x48, 0x83, 0xEC, 0x30})        // sub rsp, 0x30: shadow space and two stack arguments
      .code({0x4C, 0x89, 0x44, 0x24, 0x20})  // mov [rsp+0x20], r8
      .code({0x4C, 0x89, 0x4C, 0x24, 0x28})  // mov [rsp+0x28], r9
      .code({0x49, 0x89, 0xC9})              // mov r9, rcx
      .code({0x49, 0x89, 0xD0})              // mov r8, rdx
      .code({0x48, 0x89, 0xF2})              // mov rdx, rsi
      .code({0x48, 0x89, 0xF9})              // mov rcx, rdi
      .code({0x48, 0xB8})
      .address(target)      // mov rax, target
      .code({0xFF, 0xD0})   // call rax
      .code({0xC9, 0xC3});  // leave; ret
  return stub;
}

void* make_sysv_function_stub(const void* function, unsigned argument_count) {
  const std::size_t length = argument_count == 6 ? 95 : argument_count == 5 ? 82 : 69;
  void* stub = pool.take(sysv_function_stub, length);
  CodeWriter writer(stub);
  writer
      .code({0x48, 0x83, 0xEC, 0x68})         // sub rsp, 0x68: shadow space and six argument words
      .code({0x48, 0x89, 0x4C, 0x24, 0x20})   // mov [rsp+0x20], rcx
      .code({0x48, 0x89, 0x54, 0x24, 0x28})   // mov [rsp+0x28], rdx
      .code({0x4C, 0x89, 0x44, 0x24, 0x30})   // mov [rsp+0x30], r8
      .code({0x4C, 0x89, 0x4C, 0x24, 0x38})   // mov [rsp+0x38], r9
      .code({0x48, 0x31, 0xC0})               // xor rax, rax
      .code({0x48, 0x89, 0x44, 0x24, 0x40})   // mov [rsp+0x40], rax
      .code({0x48, 0x89, 0x44, 0x24, 0x48});  // mov [rsp+0x48], rax
  if (argument_count >= 5) {
    writer
        .code({0x48, 0x8B, 0x84, 0x24, 0x90, 0x00, 0x00, 0x00})  // mov rax, [rsp+0x90]
        .code({0x48, 0x89, 0x44, 0x24, 0x40});                   // mov [rsp+0x40], rax
  }
  if (argument_count >= 6) {
    writer
        .code({0x48, 0x8B, 0x84, 0x24, 0x98, 0x00, 0x00, 0x00})  // mov rax, [rsp+0x98]
        .code({0x48, 0x89, 0x44, 0x24, 0x48});                   // mov [rsp+0x48], rax
  }
  writer.code({0x48, 0xB9})
      .address(function)                     // mov rcx, function
      .code({0x48, 0x8D, 0x54, 0x24, 0x20})  // lea rdx, [rsp+0x20]
      .code({0x48, 0xB8})
      .address(reinterpret_cast<void*>(call_sysv))  // mov rax, call_sysv
      .code({0xFF, 0xD0})                           // call rax
      .code({0x48, 0x83, 0xC4, 0x68})               // add rsp, 0x68
      .code({0xC3});                                // ret
  FlushInstructionCache(GetCurrentProcess(), stub, sysv_function_stub.slot);
  return stub;
}

}  // namespace vlm
