#include "daemon/engine/process/ChildStart.h"

#include <fcntl.h>
#include <linux/ioprio.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/files/Descriptor.h"

namespace keldane {
namespace {

/// Everything that the child needs. It is made before the fork: afterwards the child may take neither memory
/// nor a lock, because another thread of the parent may have held the lock.
struct Preparation {
  char* const* arguments;
  char* const* environment;
  const char* folder;
  int input, output, errors, report;  ///< all above 2
  pid_t parent;
  bool lowPriority;
};

/// Lowers the priority. If the system refuses, the program runs all the same.
void lowerPriority() {
  ::setpriority(PRIO_PROCESS, 0, 19);
  ::syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_BE, 7));
}

void restoreSignals() {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) {
    ::sigaction(number, &standard, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Turns the child into the program. It makes only calls that are safe in a signal handler.
[[noreturn]] void becomeProgram(const Preparation& it) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != it.parent) {
    ::_exit(127);  // the parent died before it could be watched
  }
  ::setsid();  // no terminal, so that no program asks for a password there
  ::umask(S_IRWXG | S_IRWXO);
  restoreSignals();
  if (it.lowPriority) {
    lowerPriority();
  }
  if (::dup2(it.input, 0) == 0 && ::dup2(it.output, 1) == 1 && ::dup2(it.errors, 2) == 2 &&
      ::chdir(it.folder) == 0) {
    ::syscall(SYS_close_range, 3U, ~0U, 4U /* CLOSE_RANGE_CLOEXEC */);
    ::execve(it.arguments[0], it.arguments, it.environment);
  }
  const int error = errno;
  [[maybe_unused]] const ssize_t written = ::write(it.report, &error, sizeof(error));
  ::_exit(127);
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> assignments(const Environment& environment) {
  std::vector<std::string> lines;
  for (const auto& [name, value] : environment) {
    lines.emplace_back(name).append("=").append(value);
  }
  return lines;
}

/// A copy whose number is above those of standard input, output and error.
Descriptor aboveStandard(int descriptor) { return Descriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3)); }

pid_t forkInto(const Preparation& preparation) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // so that no signal handler of the parent runs in the child
  const pid_t child = ::fork();
  if (child == 0) {
    becomeProgram(preparation);
  }
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return child;
}

/// The error number that the child reports, or 0 when it became the program.
int reportedError(int report) {
  int error = 0;
  ssize_t got = 0;
  do {
    got = ::read(report, &error, sizeof(error));
  } while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(sizeof(error)) ? error : 0;
}

}  // namespace

pid_t startChild(const ChildCommand& command, int output, int errors, bool lowPriority, int* error) {
  std::vector<std::string> arguments = command.arguments;
  std::vector<std::string> environment = assignments(command.environment);
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    *error = errno;
    return -1;
  }
  const Descriptor reportReader(ends[0]);
  Descriptor lowReportWriter(ends[1]);
  const Descriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const Descriptor input = aboveStandard(null.get());
  const Descriptor childOutput = aboveStandard(output);
  const Descriptor childErrors = aboveStandard(errors);
  Descriptor reportWriter = aboveStandard(lowReportWriter.get());
  if (!input || !childOutput || !childErrors || !reportWriter) {
    *error = errno;
    return -1;
  }
  const pid_t child = forkInto({argumentPointers.data(), environmentPointers.data(),
                                command.workingFolder.c_str(), input.get(), childOutput.get(),
                                childErrors.get(), reportWriter.get(), ::getpid(), lowPriority});
  if (child < 0) {
    *error = errno;
    return -1;
  }
  lowReportWriter = Descriptor();  // otherwise the end of the report would never be noticed
  reportWriter = Descriptor();
  *error = reportedError(reportReader.get());
  if (*error != 0) {
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return -1;
  }
  return child;
}

}  // namespace keldane
