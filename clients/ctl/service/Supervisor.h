// Keeps the daemon running in a session without systemd.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "clients/ctl/service/ServiceLog.h"
#include "platform/files/Descriptor.h"

namespace keldane {

/// The pauses between a crash and the next start: 5 seconds, then twice as long each time up to five minutes.
/// A daemon that ran for ten minutes begins at 5 again.
class RestartPause {
 public:
  std::chrono::seconds after(std::chrono::seconds ran);

 private:
  std::chrono::seconds next_{0};
};

/// Starts the daemon, writes what it says to the log, and starts it again after a crash. SIGTERM, SIGINT and
/// SIGHUP end both. SIGUSR1 is for a program that was replaced: the daemon ends, and `run` says to begin
/// anew. One thread, which has the signals.
class Supervisor {
 public:
  enum class End { done, renew };

  explicit Supervisor(std::string program);
  /// Until the daemon ends well or a signal ends it.
  End run();

 private:
  struct Child {
    pid_t process = 0;
    Descriptor output;
    std::chrono::steady_clock::time_point since;
  };

  bool startChild();
  /// Until the child has ended; answers its status as waitpid tells it.
  int watchChild();
  /// True when a signal came meanwhile.
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
