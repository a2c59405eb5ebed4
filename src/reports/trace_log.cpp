#include "reports/trace_log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "diag/log.h"
#include "reports/symbolize.h"
#include "reports/trace_ring.h"
#include "support/locks.h"
#include "tls/thread_record.h"

namespace vlm {
namespace {

constexpr std::size_t line_size = 2048;
constexpr std::uint64_t calls_in_report = 64;
constexpr int patience_ms = 1000;

// Written once by start_trace_log().
HANDLE trace_file = nullptr;
std::int64_t frequency = 1;  // of the performance counter
std::int64_t zero = 0;       // what it showed when the log's time began

SrwLock trace_lock;  // guards what follows and what the writer keeps in the rings; a leaf
std::array<char, 0x10000> buffer;
std::size_t buffered = 0;

/// A line in the making; what does not fit is left out.
class Line {
 public:
  [[gnu::format(__printf__, 2, 3)]] void add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int size = std::vsnprintf(text_.data() + size_, text_.size() - size_, format, arguments);
    va_end(arguments);
    size_ = std::min(size_ + static_cast<std::size_t>(std::max(size, 0)), text_.size() - 1);
  }
  void put(char c) {
    if (size_ < text_.size() - 1) text_[size_++] = c, text_[size_] = '\0';
  }
  const char* text() const { return text_.data(); }
  std::size_t size() const { return size_; }

 private:
  std::array<char, line_size> text_{};
  std::size_t size_ = 0;
};

void add_text(Line& line, std::string_view text, bool is_cut) {
  line.add(" \"");
  for (const char c : text) {
    switch (c) {
      case '\n': line.add("\\n"); break;
      case '\r': line.add("\\r"); break;
      case '\t': line.add("\\t"); break;
      case '"':
      case '\\': line.add("\\%c", c); break;
      default: line.put(c);
    }
  }
  line.add(is_cut ? "\"..." : "\"");
}

/// "_open(0x1c0 "/a/file", 0x0, ...) from GameAssembly.dylib!_load+0x12"
void add_call(Line& line, const TracedCall& call) {
  line.add("%s(", call.import->name);
  std::size_t text = 0;
  for (std::size_t i = 0; i < TracedCall::argument_count; ++i) {
    line.add(i == 0 ? "0x%llx" : ", 0x%llx", static_cast<unsigned long long>(call.arguments[i]));
    if (call.text_sizes[i] == 0) continue;
    add_text(line, {call.texts.data() + text, call.text_sizes[i]}, call.is_cut[i]);
    text += call.text_sizes[i];
  }
  char caller[symbol_text_size];
  line.add(") from %s", symbolize_address(call.caller, caller) ? caller : "unknown code");
}

void add_time(Line& line, std::int64_t time) {
  const std::int64_t elapsed = std::max<std::int64_t>(time - zero, 0);
  const std::int64_t seconds = elapsed / frequency, rest = elapsed % frequency;
  line.add("[%5lld.%06lld]", static_cast<long long>(seconds), static_cast<long long>(rest * 1'000'000 / frequency));
}

// ---- The file -------------------------------------------------------------------------------------------------------

void empty_buffer_locked() {
  DWORD written = 0;
  if (buffered != 0) WriteFile(trace_file, buffer.data(), static_cast<DWORD>(buffered), &written, nullptr);
  buffered = 0;
}

void write_line_locked(const Line& line) {
  if (buffer.size() - buffered < line_size + 2) empty_buffer_locked();
  std::copy_n(line.text(), line.size(), buffer.data() + buffered);
  buffered += line.size();
  buffer[buffered++] = '\r';
  buffer[buffered++] = '\n';
}

/// Takes the next call of a ring that is older than `end`.
void take_head_locked(TraceRing& ring, std::uint64_t end) {
  while (!ring.has_head && ring.written < end) {
    const std::uint64_t recorded = ring.recorded();
    if (recorded - ring.written > TraceRing::capacity) {
      const std::uint64_t oldest = recorded - TraceRing::capacity;
      ring.lost += oldest - ring.written;
      ring.written = oldest;
    }
    ring.has_head = ring.copy(ring.written++, ring.head);
    if (!ring.has_head) ++ring.lost;
  }
}

void write_head_locked(TraceRing& ring) {
  if (ring.lost != 0) {
    Line line;
    add_time(line, ring.head.time);
    line.add(" [%5lu] (%llu earlier calls are lost: there were too many to write)", ring.head.thread,
             static_cast<unsigned long long>(ring.lost));
    write_line_locked(line);
    ring.lost = 0;
  }
  Line line;
  add_time(line, ring.head.time);
  line.add(" [%5lu] ", ring.head.thread);
  add_call(line, ring.head);
  write_line_locked(line);
  ring.has_head = false;
}

/// Writes all that is recorded by now. Calls that meanwhile come are for the next time, so that this ends.
void write_recorded_locked() {
  TraceRing* const first = first_trace_ring();
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  for (;;) {
    TraceRing* oldest = nullptr;
    for (TraceRing* ring = first; ring != nullptr; ring = ring->next) {
      take_head_locked(*ring, ring->recorded());
      if (!ring->has_head || ring->head.time > now.QuadPart) continue;
      if (oldest == nullptr || ring->head.time < oldest->head.time) oldest = ring;
    }
    if (oldest == nullptr) break;
    write_head_locked(*oldest);
  }
  empty_buffer_locked();
}

DWORD WINAPI write_continually(void*) {
  for (;;) {
    {
      const std::lock_guard guard(trace_lock);
      write_recorded_locked();
    }
    Sleep(1);
  }
}

/// When the process ends, its other threads are gone, the writer perhaps in the middle of its work.
void write_rest() {
  trace_lock.try_lock();
  write_recorded_locked();
}

}  // namespace

bool start_trace_log(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  trace_file = file;
  LARGE_INTEGER now, per_second;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&per_second);
  frequency = per_second.QuadPart;
  zero = now.QuadPart - static_cast<std::int64_t>(log_milliseconds()) * frequency / 1000;
  start_own_thread(write_continually, nullptr);
  std::atexit(write_rest);
  return true;
}

void write_trace_now() {
  if (trace_file == nullptr) return;
  for (int ms = 0; !trace_lock.try_lock(); ++ms) {
    if (ms == patience_ms) return;
    Sleep(1);
  }
  write_recorded_locked();
  trace_lock.unlock();
}

void log_last_calls(DWORD thread) {
  TracedCall call;
  for (const TraceRing* ring = first_trace_ring(); ring != nullptr; ring = ring->next) {
    const std::uint64_t end = ring->recorded();
    if (end == 0 || !ring->copy(end - 1, call) || call.thread != thread) continue;
    log_line("  last traced calls of this thread:", thread);
    for (std::uint64_t number = end - std::min(end, calls_in_report); number < end; ++number) {
      if (!ring->copy(number, call) || call.thread != thread) continue;
      Line line;
      line.add("  ");
      add_time(line, call.time);
      line.add(" ");
      add_call(line, call);
      log_line(line.text(), thread);
    }
    return;
  }
}

}  // namespace vlm
