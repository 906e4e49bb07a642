#include "daemon/engine/process/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "daemon/engine/process/ChildStart.h"
#include "platform/files/Descriptor.h"

namespace keldane {
namespace {

using Moment = std::chrono::steady_clock::time_point;
constexpr int kGlance = 100;  // milliseconds between looks at the job
// A program that writes line by line would wake both sides for each line. So output of this many milliseconds
// is read together, unless so many bytes came at once that the pipe might be full.
constexpr int kGathering = 5;
constexpr std::size_t kMuch = 8192;
constexpr auto kPatience = std::chrono::seconds(10);
constexpr std::size_t kKeptErrors = std::size_t{64} << 10;
constexpr std::size_t kLongestLine = std::size_t{256} << 20;  // a list of snapshots is one line

struct Pipe {
  Descriptor reader;
  Descriptor writer;
  bool open() {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      return false;
    }
    reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
    return ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
  }
};

/// Cuts what comes from a pipe into lines.
class LineReader {
 public:
  LineReader(Descriptor pipe, std::function<void(std::string_view line)> take)
      : pipe_(std::move(pipe)), take_(std::move(take)) {}

  int descriptor() const { return pipe_.get(); }
  /// Reads at most as much as a pipe can hold, so that the job is checked even if the output never ends.
  /// Returns the number of bytes. At the end of the output it closes the pipe.
  std::size_t read() {
    char block[65536];
    std::size_t bytes = 0;
    for (int blocks = 0; pipe_ && blocks < 16; ++blocks) {
      const ssize_t got = ::read(pipe_.get(), block, sizeof(block));
      if (got > 0) {
        add({block, static_cast<std::size_t>(got)});
        bytes += static_cast<std::size_t>(got);
      } else if (got < 0 && errno == EINTR) {
        continue;
      } else if (got < 0 && errno == EAGAIN) {
        break;
      } else {
        finish();
      }
    }
    return bytes;
  }
  /// Closes the pipe, because no process is left whose output is waited for.
  void finish() {
    pipe_ = Descriptor();
    if (!line_.empty()) {
      deliver(line_);
      line_.clear();
    }
  }

 private:
  void add(std::string_view text) {
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
      if (line_.empty()) {
        deliver(text.substr(0, end));
      } else {
        line_.append(text.substr(0, end));
        deliver(line_);
        line_.clear();
      }
      text.remove_prefix(end + 1);
    }
    if (line_.size() + text.size() <= kLongestLine) {
      line_.append(text);
    }
  }
  void deliver(std::string_view line) {
    if (take_) {
      take_(line);
    }
  }

  Descriptor pipe_;
  std::function<void(std::string_view line)> take_;
  std::string line_;
};

void addDescendants(pid_t process, std::vector<Descriptor>& found) {
  std::error_code error;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (std::filesystem::directory_iterator task(tasks, error), end; !error && task != end;
       task.increment(error)) {
    std::ifstream children(task->path() / "children");
    for (pid_t child = 0; children >> child;) {
      addDescendants(child, found);
      found.emplace_back(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    }
  }
}

/// A process that was started here. The destructor ends it and waits for it.
class Child {
 public:
  explicit Child(pid_t process)
      : process_(process), watch_(static_cast<int>(::syscall(SYS_pidfd_open, process, 0))) {}
  ~Child() {
    if (process_ > 0) {
      kill();
      while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
      }
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// A descriptor that becomes readable when the process ends.
  int descriptor() const { return watch_.get(); }
  void interrupt() const { ::kill(process_, SIGINT); }
  /// Kills the process and all processes that it started. One of them may hang without a network, in a
  /// process group of its own.
  void kill() const {
    std::vector<Descriptor> descendants;
    addDescendants(process_, descendants);
    ::kill(process_, SIGKILL);
    for (const Descriptor& descendant : descendants) {
      if (descendant) {
        ::syscall(SYS_pidfd_send_signal, descendant.get(), SIGKILL, nullptr, 0);
      }
    }
  }
  /// Whether the process has ended; `end` receives how.
  bool hasEnded(ChildEnd& end) {
    int status = 0;
    const pid_t got = ::waitpid(process_, &status, WNOHANG);
    if (got == 0 || (got < 0 && errno == EINTR)) {
      return false;
    }
    process_ = -1;
    if (got > 0 && WIFEXITED(status)) {
      end.exitStatus = WEXITSTATUS(status);
    } else if (got > 0) {
      end.signal = WTERMSIG(status);
    }
    return true;
  }

 private:
  pid_t process_;
  Descriptor watch_;
};

/// Ends the child when the job is cancelled.
class Ending {
 public:
  void look(const EngineJob& job, const Child& child, ChildEnd& end) {
    if (!end.cancelled) {
      if (job.cancelled) {
        end.cancelled = true;
        child.interrupt();
        last_ = std::chrono::steady_clock::now() + kPatience;
      }
    } else if (!killed_ && std::chrono::steady_clock::now() >= last_) {
      child.kill();
      killed_ = true;
    }
  }

 private:
  Moment last_;
  bool killed_ = false;
};

void keepLast(std::string& text, std::string_view line) {
  text.append(line).push_back('\n');
  if (text.size() > 2 * kKeptErrors) {
    text.erase(0, text.size() - kKeptErrors);
  }
}

void attend(Child& child, LineReader& output, LineReader& errors, const EngineJob& job, ChildEnd& end) {
  Ending ending;
  for (bool hasEnded = false; !hasEnded;) {
    pollfd sources[] = {
        {child.descriptor(), POLLIN, 0}, {output.descriptor(), POLLIN, 0}, {errors.descriptor(), POLLIN, 0}};
    ::poll(sources, 3, kGlance);
    hasEnded = child.hasEnded(end);  // asked before the last reading, so that no output is missed
    const std::size_t bytes = output.read() + errors.read();
    if (!hasEnded) {
      ending.look(job, child, end);
      if (bytes > 0 && bytes < kMuch) {
        ::poll(sources, 1, kGathering);  // the end of the process is still noticed at once
      }
    }
  }
  output.finish();
  errors.finish();
}

}  // namespace

Environment childEnvironment(const Environment& additions) {
  Environment environment = additions;
  for (const char* name : {"PATH", "HOME", "TMPDIR", "SSH_AUTH_SOCK"}) {
    if (const char* value = std::getenv(name)) {
      environment.try_emplace(name, value);
    }
  }
  environment.try_emplace("PATH", "/usr/local/bin:/usr/bin:/bin");
  environment["LANG"] = "C";
  return environment;
}

ChildEnd runChild(const ChildCommand& command, const EngineJob& job) {
  ChildEnd end;
  if (job.cancelled) {
    end.cancelled = true;
    return end;
  }
  Pipe output;
  Pipe errors;
  if (!output.open() || !errors.open()) {
    end.startError = errno;
    return end;
  }
  const int target = command.standardOutput >= 0 ? command.standardOutput : output.writer.get();
  const pid_t process = startChild(command, target, errors.writer.get(), job.lowPriority, &end.startError);
  output.writer = Descriptor();
  errors.writer = Descriptor();
  if (process < 0) {
    return end;
  }
  Child child(process);
  LineReader outputLines(std::move(output.reader), command.outputLine);
  LineReader errorLines(std::move(errors.reader), [&](std::string_view line) {
    keepLast(end.errorText, line);
    if (command.errorLine) {
      command.errorLine(line);
    }
  });
  attend(child, outputLines, errorLines, job, end);
  if (end.errorText.size() > kKeptErrors) {
    end.errorText.erase(0, end.errorText.size() - kKeptErrors);
  }
  return end;
}

}  // namespace keldane
