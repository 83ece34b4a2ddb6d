#include "exchange/hdf5/h5_apart.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <mutex>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "exchange/hdf5/h5_library.h"
#include "exchange/hdf5/h5_lock.h"

namespace qx::exchange {
namespace {

/// A process that goes away with the object.
class Child {
 public:
  /// `run` decides what it ends with; anything but 0 to 100 stands for a crash.
  Child(const std::function<int()>& run, std::uint64_t seconds) {
    std::string wrong;
    (void)H5Library::Get(wrong);  // loaded here, it is there in the copy, too
    // No other thread is in the library when the copy is made; there this is the only one.
    std::unique_lock lock(Hdf5Mutex());
    id_ = fork();
    if (id_ != 0) return;
    lock.unlock();
    const rlimit none{0, 0};
    const rlimit time{seconds, seconds};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_CPU, &time);
    for (const int fault : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) std::signal(fault, SIG_DFL);
    int result = 101;
    try {
      result = run();
    } catch (...) {
      result = 101;  // out of memory, say
    }
    _exit(result);
  }
  ~Child() {
    if (id_ <= 0) return;
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// What it ended with, or -1; `wait` is called now and then meanwhile.
  int Result(const std::function<void()>& wait) {
    if (id_ < 0) return -1;
    long pause = 200'000;  // nanoseconds
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(id_, &status, WNOHANG)) == 0) {
      const timespec time{0, pause};
      nanosleep(&time, nullptr);
      pause = std::min(2 * pause, 20'000'000L);
      wait();
    }
    id_ = 0;
    return done > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t id_ = -1;
};

}  // namespace

Outcome ComesToAnEnd(const std::string& file, std::uint64_t size, const ReadOptions& options,
                     const std::function<void()>& read) {
  constexpr std::uint64_t kBytesASecond = std::uint64_t{4} << 20;
  const auto run = [&] {
    read();
    return 0;
  };
  Child child(run, 3 + size / kBytesASecond);
  const int result = child.Result([&] {
    if (options.progress) options.progress(0.01);
  });
  if (result == 0) return {};
  return Failure{file, "", "is a damaged HDF5 file: the library cannot go through it",
                 "write the file again"};
}

bool IsTrueApart(const std::function<bool()>& ask) {
  Child child([&] { return ask() ? 1 : 0; }, 3);
  return child.Result([] {}) == 1;
}

}  // namespace qx::exchange
