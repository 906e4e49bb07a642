// The daemon's state at one time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "client-state/BackupState.h"
#include "clients/core/BackupProgress.h"

namespace keldane {

/// The account of the backup. The daemon reports it; it is remembered for when the daemon is away.
struct Account {
  std::string userEmail, serverURL, computerNumber;
};

/// The part of the daemon's state that the window shows, without the rules. A value: made on the daemon's
/// thread, read on the window's.
struct StatusSnapshot {
  bool connected = false;
  Account account;
  bool quotaLimited = false;       ///< remembered while the daemon is away
  std::uint32_t settingsMade = 0;  ///< number of changes of settings that the daemon had been sent

  // These fields have no meaning while the daemon is away.
  std::string status;  ///< in the daemon's words; empty when it reports none
  std::string currentFile;
  std::optional<std::uint32_t> backedUpFiles;
  std::optional<std::uint64_t> backedUpBytes;
  std::uint32_t pendingFiles = 0;
  std::uint64_t pendingBytes = 0;
  double fraction = 0;  ///< part of the work that is done, 0 to 1
  double bytesPerSecond = 0;
  std::optional<std::chrono::seconds> timeLeft;  ///< absent while nothing moves
  bool paused = false;
  std::uint32_t pausedMinutes = 0;  ///< remaining minutes
  bool automatic = false, lowPriority = false;
  bool overQuota = false;
  std::uint64_t quotaBytes = 0;
  std::string health;  ///< the daemon's word for the state of the repository; empty when it reports none
  std::string heldBy;  ///< the daemon's word for the reason why no waiting file is stored
  std::string restingBecause;    ///< why power or network let the backup rest; empty when they do not
  std::string storeTrouble;      ///< a sentence while the daemon cannot write its own data
  bool looksForMore = false;     ///< something waits, or is being looked for
  std::uint32_t failures = 0;    ///< files that could not be stored
  PropertyList lastGoodBackup;   ///< a date; absent before the first
  std::uint32_t restoreJob = 0;  ///< the number of the restore that runs; 0 for none

  /// Part of the quota that is used, 0 to 1; 1 for a quota of nothing.
  double quotaFraction() const;
};

/// Asks the daemon for the account, if it is there.
Account askForAccount(const BackupState& state);
/// Asks the daemon for everything that its last state does not hold, except the account.
StatusSnapshot statusSnapshot(const BackupState& state, const BackupProgress& progress, Account account);

}  // namespace keldane
