#include "shared/workers.h"

#include <algorithm>
#include <exception>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <thread>
#endif

namespace vlm::tools {
namespace {

struct Worker {
  const std::function<void(bool)>* work;
  std::exception_ptr thrown;

  void run() noexcept {
    try {
      (*work)(false);
    } catch (...) {
      thrown = std::current_exception();
    }
  }
};

#ifdef _WIN32

// std::thread needs a library of its own there.
class Thread {
 public:
  explicit Thread(Worker& worker)
      : handle_(CreateThread(
            nullptr, 0,
            [](void* parameter) -> DWORD {
              static_cast<Worker*>(parameter)->run();
              return 0;
            },
            &worker, 0, nullptr)) {}
  void join() {
    if (handle_ == nullptr) return;  // the others do its work
    WaitForSingleObject(handle_, INFINITE);
    CloseHandle(handle_);
  }

 private:
  HANDLE handle_;
};

unsigned processors() {
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  return system.dwNumberOfProcessors;
}

#else

class Thread {
 public:
  explicit Thread(Worker& worker) {
    try {
      thread_ = std::thread(&Worker::run, &worker);
    } catch (const std::exception&) {
      thread_ = std::thread();  // the others do its work
    }
  }
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::thread thread_;
};

unsigned processors() { return std::thread::hardware_concurrency(); }

#endif

}  // namespace

void on_all_processors(std::size_t portions, const std::function<void(bool is_caller)>& work) {
  const std::size_t count = std::min<std::size_t>(portions, std::max(processors(), 1u));
  std::vector<Worker> workers(count > 0 ? count - 1 : 0, Worker{&work, nullptr});
  std::vector<Thread> threads;
  threads.reserve(workers.size());
  for (Worker& worker : workers) threads.emplace_back(worker);
  std::exception_ptr thrown;
  try {
    work(true);
  } catch (...) {
    thrown = std::current_exception();
  }
  for (Thread& thread : threads) thread.join();
  for (const Worker& worker : workers) {
    if (worker.thrown) thrown = worker.thrown;
  }
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace vlm::tools
