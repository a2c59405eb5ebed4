#include "reports/stack_report.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

#include "cxx/stack_walk.h"
#include "diag/log.h"
#include "macho/image.h"
#include "reports/memory.h"
#include "reports/recovery.h"
#include "reports/symbolize.h"
#include "support/procedures.h"

namespace vlm {
namespace {

constexpr std::size_t first_frames = 96;  // so many are named, and of a deeper stack so many of the last
constexpr std::size_t last_frames = 32;
constexpr std::size_t max_frames = 1'000'000;  // more than fit on a stack

bool is_game_code(std::uint64_t address) {
  return std::ranges::any_of(macho_images(), [&](const MachImage* image) { return image->contains(address); });
}

/// Where the memory around a stack pointer ends. A stack that is used up has its rsp in a page that cannot be read; the
/// frames lie above it.
std::uint64_t end_of_stack(std::uint64_t rsp, std::uint64_t stack_base) {
  constexpr std::uint64_t searched = 0x10000;
  const std::uint64_t own_end = rsp < stack_base && stack_base - rsp < searched ? stack_base : rsp + searched;
  for (std::uint64_t at = rsp; at < own_end; at = (at | 0xFFF) + 1) {
    if (const std::uint64_t end = end_of_readable_region(at)) return end;
  }
  return rsp;
}

/// Bytes that a function's prologue has put on the stack when it gets to `rip`; nothing when rip lies behind it, or
/// when rbp holds the frame already.
std::optional<std::uint64_t> size_in_prologue(std::uint64_t function, std::uint64_t rip) {
  std::uint64_t size = 0;
  for (std::uint64_t at = function; at < rip;) {
    std::array<std::uint8_t, 8> code;
    std::memcpy(code.data(), reinterpret_cast<const void*>(at), code.size());
    const bool has_rex_b = code[0] == 0x41;
    if (const std::uint8_t byte = code[has_rex_b ? 1u : 0u]; byte >= 0x50 && byte <= 0x57) {  // push
      size += 8;
      at += has_rex_b ? 2u : 1u;
    } else if (code[0] == 0x48 && code[1] == 0x83 && code[2] == 0xEC) {  // sub rsp, imm8
      size += code[3];
      at += 4;
    } else if (code[0] == 0x48 && code[1] == 0x81 && code[2] == 0xEC) {  // sub rsp, imm32
      std::uint32_t immediate;
      std::memcpy(&immediate, &code[3], sizeof immediate);
      size += immediate;
      at += 7;
    } else {
      return std::nullopt;
    }
    if (at > rip) return std::nullopt;
  }
  return size;
}

/// True for a function that begins with push rbp; mov rbp, rsp.
bool sets_frame_pointer(std::uint64_t function) {
  return std::memcmp(reinterpret_cast<const void*>(function), "\x55\x48\x89\xE5", 4) == 0;
}

/// A stack as a report walks it: it begins anywhere in a function, perhaps nowhere.
class ReportedStack {
 public:
  ReportedStack(const CONTEXT& context, std::uint64_t stack_end)
      : walk_({{context.Rax, context.Rdx, context.Rbx, context.Rbp, context.Rsp, context.R12, context.R13, context.R14,
                context.R15, context.Rip}},
              stack_end) {}

  std::uint64_t rip() const { return walk_.rip(); }
  bool is_first() const { return is_first_; }

  /// Goes to the caller. False at the end of the stack, or where it cannot be told.
  bool step() {
    bool stepped = false;
    const bool survived = try_in_report([&] { stepped = find_caller(); });
    is_first_ = false;
    return survived && stepped && is_code(rip() - 1);
  }

 private:
  bool find_caller() {
    const auto shape = find_shape(is_first_ ? rip() : rip() - 1);
    if (shape) return is_first_ ? leave_interrupted(*shape) : leave_caller(*shape);
    if (!is_game_code(rip()) && walk_.step_windows()) return true;
    // Code that nobody describes, such as a stub, or no code at all: as if it had just been called.
    return is_first_ && walk_.step_over(0);
  }

  bool leave_caller(FrameShape shape) {
    if (!shape.supported && sets_frame_pointer(shape.function)) shape = with_frame_pointer(shape.function);
    if (!shape.supported) return false;
    return walk_.step(shape.layout) || (shape.layout.from_rbp && follow_to_other_stack(shape.layout));
  }

  /// A function that has gone on with another stack, one that the game has made, has its frame on the first one.
  bool follow_to_other_stack(const FrameLayout& layout) {
    constexpr int most = 16;
    UnwindContext at = walk_.at();
    const std::uint64_t end = end_of_readable_region(at[in_rbp]);
    if (end == 0 || ++stacks_ > most) return false;
    at[in_rsp] = at[in_rbp] + 16 - layout.deepest;
    walk_ = StackWalk(at, end);
    return walk_.step(layout);
  }

  bool leave_interrupted(FrameShape shape) {
    if (const auto size = size_in_prologue(shape.function, rip())) return walk_.step_over(*size);
    if (!shape.supported) {
      if (!sets_frame_pointer(shape.function)) return walk_.step_over(0);  // a leaf, most likely
      shape = with_frame_pointer(shape.function);
    }
    FrameLayout& layout = shape.layout;
    if (layout.from_rbp) {  // what the prologue has not saved yet is still in its register
      const std::uint64_t cfa = walk_.at()[in_rbp] + layout.cfa_offset;
      layout.deepest = 0;
      for (std::uint16_t& below : layout.below_cfa) {
        if (cfa - below < walk_.rsp()) below = 0;
        layout.deepest = std::max(layout.deepest, below);
      }
    }
    return walk_.step(layout);
  }

  static FrameShape with_frame_pointer(std::uint64_t function) {
    FrameLayout layout{.cfa_offset = 16, .below_cfa = {}, .deepest = 0, .from_rbp = true};
    layout.save(in_rbp, 16);
    return {function, 0, true, layout};
  }

  StackWalk walk_;
  bool is_first_ = true;
  int stacks_ = 1;
};

void log_frame(std::size_t number, std::uint64_t rip, bool is_return_address, DWORD thread) {
  char name[symbol_text_size] = "unknown code";
  try_in_report([&] { is_return_address ? symbolize_return_address(rip, name) : symbolize_address(rip, name); });
  char line[640];
  std::snprintf(line, sizeof line, "  frame %zu %s", number, name);
  log_line(line, thread);
}

/// Names the frame where the walk is and all behind it.
void log_frames(ReportedStack& stack, DWORD thread) {
  std::array<std::uint64_t, last_frames> last{};
  std::size_t count = 0;
  do {
    if (count < first_frames) log_frame(count, stack.rip(), !stack.is_first(), thread);
    last[count % last_frames] = stack.rip();
    ++count;
  } while (count < max_frames && stack.step());
  const std::size_t from = std::max(first_frames, count - std::min(count, last_frames));
  if (from > first_frames && count > first_frames) {
    char line[64];
    std::snprintf(line, sizeof line, "  ... %zu more frames ...", from - first_frames);
    log_line(line, thread);
  }
  for (std::size_t number = from; number < count; ++number) log_frame(number, last[number % last_frames], true, thread);
}

/// "thread 1234 "Finalizer"", as Windows knows the name.
void log_thread(DWORD thread) {
  using GetThreadDescription = HRESULT WINAPI(HANDLE, wchar_t**);  // since Windows 10
  char name[128] = "";
  try_in_report([&] {
    const auto get = find_procedure<GetThreadDescription>(GetModuleHandleW(L"kernel32.dll"), "GetThreadDescription");
    const HANDLE handle = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, thread);
    wchar_t* wide = nullptr;
    if (get != nullptr && handle != nullptr && SUCCEEDED(get(handle, &wide)) && wide != nullptr) {
      WideCharToMultiByte(CP_UTF8, 0, wide, -1, name, sizeof name, nullptr, nullptr);
      name[sizeof name - 1] = '\0';
    }
    LocalFree(wide);
    if (handle != nullptr) CloseHandle(handle);
  });
  char line[256];
  if (name[0] != '\0') {
    std::snprintf(line, sizeof line, "  stack of thread %lu \"%s\":", thread, name);
  } else {
    std::snprintf(line, sizeof line, "  stack of thread %lu:", thread);
  }
  log_line(line, thread);
}

}  // namespace

void log_stack(const CONTEXT& context, DWORD thread, std::uint64_t stack_base) {
  log_thread(thread);
  ReportedStack stack(context, end_of_stack(context.Rsp, stack_base));
  log_frames(stack, thread);
}

void log_game_callers() {
  CONTEXT context;
  RtlCaptureContext(&context);
  const std::uint64_t end = end_of_stack(context.Rsp, 0);
  ReportedStack search(context, end);
  std::size_t before = 0;  // frames of the library in front of the game's
  while (!is_game_code(search.rip() - 1)) {
    if (before == max_frames || !search.step()) return;
    ++before;
  }
  log_thread(GetCurrentThreadId());
  ReportedStack stack(context, end);
  while (before-- > 1) stack.step();
  log_frames(stack, GetCurrentThreadId());
}

}  // namespace vlm
