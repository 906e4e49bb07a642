#include "platform/syslog/SystemLog.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "platform/files/Descriptor.h"
#include "platform/threads/Mutex.h"

namespace keldane {

namespace {

using Receiver = std::function<void(std::string_view)>;

struct ReceiverSlot {
  Mutex mutex{{.name = "log receiver", .innermost = true}};
  std::shared_ptr<const Receiver> receiver KELDANE_GUARDED_BY(mutex);
};

ReceiverSlot& receiverSlot() {
  static ReceiverSlot& slot = *new ReceiverSlot;  // threads may still log while the process ends
  return slot;
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

/// The prefix of a line for the log daemon. The month's name is in English, whatever the host's language is.
std::string systemLogPrefix() {
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  return stringWithFormat("<%d>%s %2d %02d:%02d:%02d %s[%d]: ", LOG_USER | LOG_NOTICE, kMonths[parts.tm_mon],
                          parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                          program_invocation_short_name, getpid());
}

void writeWhole(std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    if (written > 0) {
      line.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;  // nobody reads standard error, but the system log has the line
    }
  }
}

}  // namespace

void logLine(std::string_view text) {
  std::shared_ptr<const Receiver> receiver;
  {
    ReceiverSlot& slot = receiverSlot();
    const ScopedLock guard(slot.mutex);
    receiver = slot.receiver;
  }
  if (receiver) {
    (*receiver)(text);
    return;
  }
  sendToSystemLog(text, "/dev/log");
  writeWhole(linePrefix().append(text) + "\n");
}

void sendToSystemLog(std::string_view text, const char* socketPath) {
  const Descriptor log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socketPath, sizeof(address.sun_path) - 1);
  const std::string line = systemLogPrefix().append(text);
  if (log) {
    ::sendto(log.get(), line.data(), line.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
             sizeof(address));
  }
}

void setLogReceiver(Receiver receiver) {
  auto next = receiver ? std::make_shared<const Receiver>(std::move(receiver)) : nullptr;
  ReceiverSlot& slot = receiverSlot();
  const ScopedLock guard(slot.mutex);
  slot.receiver.swap(next);
}

}  // namespace keldane
