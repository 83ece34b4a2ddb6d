#include "adapters/occt/trial.h"

#ifdef __unix__
#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace qx::occt {

#ifdef __unix__

TrialResult Try(const std::function<int()>& work, unsigned seconds) {
  const pid_t child = fork();
  if (child < 0) return {true, work()};
  if (child == 0) {
    const rlimit time{seconds, seconds + 1};
    const rlimit core{0, 0};
    setrlimit(RLIMIT_CPU, &time);
    setrlimit(RLIMIT_CORE, &core);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    _exit(work());
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return {};
  }
  // Above 100 are the answers of a sanitizer that ended the child.
  const bool ended = WIFEXITED(status) && WEXITSTATUS(status) <= 100;
  return {ended, ended ? WEXITSTATUS(status) : 0};
}

#else

TrialResult Try(const std::function<int()>& work, unsigned) { return {true, work()}; }

#endif

}  // namespace qx::occt
