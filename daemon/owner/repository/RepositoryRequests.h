// Performs the requests of the daemon's own user on the daemon's parts.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "daemon/Daemon.h"
#include "daemon/owner/OwnerRequests.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// Performs the requests of the second socket. Set-up, recovery and keys take turns. Another repository is
/// tried out in a folder of its own and replaces the current one only when it works. The files of the former
/// one are set aside, not lost.
class RepositoryRequests final : public OwnerRequests {
 public:
  RepositoryRequests(std::shared_ptr<Daemon> daemon, EngineFactory engine)
      : daemon_(std::move(daemon)), engine_(std::move(engine)) {}

  PropertyList repository(const PropertyList& request) override;
  PropertyList setUpRepository(const PropertyList& request) override;
  PropertyList recover(const PropertyList& request) override;
  PropertyList exportKey(const PropertyList& request) override;
  PropertyList importKey(const PropertyList& request) override;
  PropertyList verifyKey(const PropertyList& request) override;
  PropertyList addPassphrase(const PropertyList& request) override;
  PropertyList check(const PropertyList& request) override;
  PropertyList find(const PropertyList& request) override;
  PropertyList failures(const PropertyList& request) override;
  PropertyList settings(const PropertyList& request) override;
  PropertyList surroundings(const PropertyList& request) override;
  PropertyList restore(const PropertyList& request) override;
  PropertyList restoreReport(const PropertyList& request) override;
  PropertyList cancelRestore(const PropertyList& request) override;
  PropertyList backups(const PropertyList& request) override;
  PropertyList storedFolder(const PropertyList& request) override;
  PropertyList changeKey(const PropertyList& request) override;
  PropertyList moveRepository(const PropertyList& request) override;
  PropertyList moveReport(const PropertyList& request) override;
  PropertyList cancelMove(const PropertyList& request) override;
  PropertyList previewPattern(const PropertyList& request) override;

  /// Ends the running calls of the engine.
  void stop();

 private:
  /// A call of the engine that stop() can end.
  class Call;
  class Trial;

  std::optional<PropertyList> refusedPlace(const PropertyList& request) const;
  using Change = std::function<PropertyList(EngineJob& job)>;
  /// Returns what `work` returns. No other change runs meanwhile; an exception is answered as an error.
  PropertyList change(const Change& work);
  EngineAnswer tryKey(const std::string& key, EngineJob& job);
  void takeOver(const Trial& trial, bool isRecovery);
  /// The files of the repository have been replaced.
  void useNewPlace();
  void waitForRestores(const EngineJob& job) const;
  EngineAnswer move(Trial& trial, EngineJob& job);
  EngineAnswer compareCopy(Trial& trial, std::map<std::uint32_t, std::string>& ids, EngineJob& job) const;
  void noteMove(const char* status);
  PropertyList computersIn(const std::vector<Snapshot>& snapshots) const;

  const std::shared_ptr<Daemon> daemon_;
  const EngineFactory engine_;
  // Held by the one request that changes the repository.
  Mutex changing_{{.name = "RepositoryRequests.changing", .heldWhileWaiting = true}};
  /// The progress of a move.
  struct Move {
    std::string status = "none", location, message;
    std::size_t done = 0, all = 0;
    EngineJob* job = nullptr;  // while it runs
  };
  Mutex moveMutex_;
  Move move_ KELDANE_GUARDED_BY(moveMutex_);
  Mutex callsMutex_;
  std::set<EngineJob*> calls_ KELDANE_GUARDED_BY(callsMutex_);
  bool stopping_ KELDANE_GUARDED_BY(callsMutex_) = false;
};

}  // namespace keldane
