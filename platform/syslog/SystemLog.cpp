#include "platform/syslog/SystemLog.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>

namespace keldane {

namespace {

using Receiver = std::function<void(std::string_view)>;

std::mutex receiverMutex;

std::shared_ptr<const Receiver>& receiverSlot() {
  static auto& receiver = *new std::shared_ptr<const Receiver>;  // guarded by receiverMutex
  return receiver;
}

std::string linePrefix() {
  timeval now{};
  gettimeofday(&now, nullptr);
  std::tm parts{};
  localtime_r(&now.tv_sec, &parts);
  char stamp[40];
  std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &parts);
  return stringWithFormat("%s.%03ld %s[%d:%ld] ", stamp, now.tv_usec / 1000, program_invocation_short_name,
                          getpid(), syscall(SYS_gettid));
}

void writeWhole(std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    if (written > 0) {
      line.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;  // nobody reads it; the line stands in the system log all the same
    }
  }
}

}  // namespace

void logLine(std::string_view text) {
  std::shared_ptr<const Receiver> receiver;
  {
    const std::lock_guard guard(receiverMutex);
    receiver = receiverSlot();
  }
  if (receiver) {
    (*receiver)(text);
    return;
  }
  const std::string line(text);
  syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
  writeWhole(linePrefix() + line + '\n');
}

void setLogReceiver(Receiver receiver) {
  auto next = receiver ? std::make_shared<const Receiver>(std::move(receiver)) : nullptr;
  const std::lock_guard guard(receiverMutex);
  receiverSlot().swap(next);
}

}  // namespace keldane
