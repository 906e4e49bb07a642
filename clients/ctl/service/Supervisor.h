// Keeps the daemon running in a session without systemd.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "clients/ctl/service/ServiceLog.h"
#include "platform/files/Descriptor.h"

namespace keldane {

/// The pause between a crash and the next start: 5 seconds at first, then twice as long each time, up to five
/// minutes. After a run of ten minutes the pause is 5 seconds again.
class RestartPause {
 public:
  std::chrono::seconds after(std::chrono::seconds ran);

 private:
  std::chrono::seconds next_{0};
};

/// Starts the daemon, writes its output to the log, and starts it again after a crash. SIGTERM, SIGINT and
/// SIGHUP end the daemon and the supervisor. SIGUSR1 tells that the program was replaced: the daemon ends,
/// and `run` returns that the supervisor is to start anew. Used on one thread, which receives the signals.
class Supervisor {
 public:
  enum class End { done, renew };

  explicit Supervisor(std::string program);
  /// Runs until the daemon ends without a failure or a signal ends it.
  End run();

 private:
  struct Child {
    pid_t process = 0;
    Descriptor output;
    std::chrono::steady_clock::time_point since;
  };

  bool startChild();
  /// Waits until the child has ended and returns its status as waitpid gives it.
  int watchChild();
  /// Waits. Returns true when a signal came meanwhile.
  bool rest(std::chrono::seconds time);
  void noteSignal();
  bool copyOutput();

  const std::string program_;
  ServiceLog log_;
  Descriptor signals_;
  Child child_;
  std::optional<End> wanted_;
};

}  // namespace keldane
