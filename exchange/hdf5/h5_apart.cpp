#include "exchange/hdf5/h5_apart.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include "qx_db/platform/raw_file.h"
#include "qx_db/platform/text.h"

#include "exchange/hdf5/h5_library.h"
#include "exchange/hdf5/h5_lock.h"

namespace qx::exchange {
namespace {

using Clock = std::chrono::steady_clock;

/// Bounds this process. What the parent has mapped already does not count.
void TakeLimits(const ApartLimits& limits) {
  const auto set = [](int what, std::uint64_t soft, std::uint64_t hard) {
    const rlimit limit{static_cast<rlim_t>(soft), static_cast<rlim_t>(hard)};
    setrlimit(what, &limit);
  };
  set(RLIMIT_CORE, 0, 0);
  set(RLIMIT_CPU, limits.processor_seconds, limits.processor_seconds + 2);
#ifdef __linux__
  std::uint64_t pages = 0;
  if (std::ifstream("/proc/self/statm") >> pages) {
    const std::uint64_t most =
        pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) + limits.bytes;
    set(RLIMIT_AS, most, most);
  }
#endif
}

/// A process that goes away with the object, and says what it has to say as one byte of a pipe:
/// its status can be gone, where the program lets the system collect its children.
class Child {
 public:
  Child(const std::function<bool()>& ask, const ApartLimits& limits)
      : ends_(Clock::now() + std::chrono::seconds(limits.clock_seconds)) {
    std::string wrong;
    (void)H5Library::Get(wrong);  // loaded here, it is there in the copy, too
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0) return;
    for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
    // No other thread is in the library when the copy is made; there this is the only one.
    std::unique_lock lock(Hdf5Mutex());
    const pid_t parent = getpid();
    id_ = fork();
    if (id_ == 0) {
      lock.unlock();
      close(ends[0]);
      Run(ask, limits, parent, ends[1]);
    }
    const int error = errno;
    close(ends[1]);
    from_ = ends[0];
    errno = error;
  }
  ~Child() {
    if (from_ >= 0) close(from_);
    if (id_ <= 0) return;
    kill(id_, SIGKILL);
    Collect(0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  ApartEnd End(const std::function<void()>& wait) {
    if (id_ < 0) return ApartEnd::kNoProcess;
    int pause = 1;  // milliseconds
    while (Clock::now() < ends_) {
      pollfd said{from_, POLLIN, 0};
      if (poll(&said, 1, pause) > 0) return Hear();
      // Another copy of the process may hold the pipe open.
      if (Collect(WNOHANG)) return Hear();
      pause = std::min(2 * pause, 20);
      wait();
    }
    return ApartEnd::kTime;
  }

 private:
  [[noreturn]] static void Run(const std::function<bool()>& ask, const ApartLimits& limits,
                               pid_t parent, int to) {
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
#else
    (void)parent;
#endif
    for (const int fault : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGXCPU}) {
      std::signal(fault, SIG_DFL);
    }
    TakeLimits(limits);
    char said = 0;
    try {
      said = ask() ? 't' : 'f';
    } catch (const std::bad_alloc&) {
      said = 'm';
    } catch (...) {
      _exit(1);
    }
    _exit(write(to, &said, 1) == 1 ? 0 : 1);
  }

  /// Whether the process is over; its status is there unless the system has collected it.
  bool Collect(int how) {
    if (id_ <= 0) return true;
    pid_t done = 0;
    while ((done = waitpid(id_, &status_, how)) < 0 && errno == EINTR) {
    }
    if (done == 0) return false;
    if (done < 0) status_ = 0;
    id_ = 0;
    return true;
  }

  /// What was said, once something was or the process is over.
  ApartEnd Hear() {
    char said = 0;
    fcntl(from_, F_SETFL, O_NONBLOCK);
    const auto heard = read(from_, &said, 1);
    Collect(0);
    if (heard == 1) {
      return said == 't' ? ApartEnd::kTrue : said == 'f' ? ApartEnd::kFalse : ApartEnd::kMemory;
    }
    const bool is_late =
        WIFSIGNALED(status_) && (WTERMSIG(status_) == SIGXCPU || WTERMSIG(status_) == SIGKILL);
    return is_late ? ApartEnd::kTime : ApartEnd::kCrash;
  }

  Clock::time_point ends_;
  pid_t id_ = -1;
  int from_ = -1;
  int status_ = 0;
};

}  // namespace

ApartEnd RunApart(const std::function<bool()>& ask, const ApartLimits& limits,
                  const std::function<void()>& wait) {
  Child child(ask, limits);
  return child.End(wait);
}

Outcome ComesToAnEnd(const std::string& file, std::uint64_t size, const ReadOptions& options,
                     const std::function<void()>& read) {
  constexpr std::uint64_t kBytesASecond = std::uint64_t{1} << 20;
  constexpr std::uint64_t kMemoryOfByte = 512;  // a file may be packed
  ApartLimits limits;
  limits.processor_seconds += size / kBytesASecond;
  limits.clock_seconds = 4 * limits.processor_seconds;
  limits.bytes += kMemoryOfByte * size;
  const auto run = [&] {
    read();
    return true;
  };
  const auto wait = [&] {
    if (options.progress) options.progress(0.01);
  };
  switch (RunApart(run, limits, wait)) {
    case ApartEnd::kNoProcess:
      return Failure{file, "",
                     fmt::format("cannot be read: the system makes no process to try it in ({})",
                                 ErrorText(errno)),
                     "end other programs"};
    case ApartEnd::kTime:
      return Failure{file, "",
                     fmt::format("takes longer to read than {} s of the processor or {} s: it is "
                                 "damaged, or the machine too busy",
                                 limits.processor_seconds, limits.clock_seconds),
                     "try again, or write the file again"};
    case ApartEnd::kMemory:
      return Failure{file, "", "takes more memory to read than there is for it",
                     "write the file again"};
    case ApartEnd::kCrash:
      return Failure{file, "", "is a damaged HDF5 file: the library cannot go through it",
                     "write the file again"};
    default:
      return {};
  }
}

bool IsTrueApart(const std::function<bool()>& ask) {
  return RunApart(ask, {}, [] {}) == ApartEnd::kTrue;
}

void TellOfLinks(const H5Reader& in, const std::string& name, std::optional<Deck>& deck,
                 std::vector<Failure>& faults, std::size_t before) {
  std::vector<Failure> missing;
  for (const auto& [path, is_outer] : in.Links()) {
    const std::string place = IsUtf8(path) ? path.substr(1) : "?";
    if (deck) {
      deck->report.Lost(is_outer ? "links into other files were left out" : "links were left out",
                        1, place,
                        is_outer ? "it lies in another file, which is not followed"
                                 : "a node is read where it stands itself");
    } else if (is_outer) {
      missing.push_back(
          {name, place, "lies in another file, which is not followed", "put all into one file"});
    }
  }
  // What is missing below is missing because of them.
  if (faults.size() > before) {
    faults.insert(faults.begin() + static_cast<std::ptrdiff_t>(before), missing.begin(),
                  missing.end());
  }
}

}  // namespace qx::exchange
