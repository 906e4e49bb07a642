// The state of the backup, in one sentence.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "clients/preferences/words/Alerts.h"
#include "clients/preferences/worker/StatusSnapshot.h"

namespace keldane {

/// The action that mends the trouble.
enum class Remedy {
  none,
  setUp,          ///< say where to store
  lookAgain,      ///< ask the repository itself
  showStorage,    ///< the page that tells of the repository
  chooseFiles,    ///< say what belongs into the backup
  showFailures,   ///< the list of files that could not be stored
  resume,         ///< end a pause
  switchOn,       ///< switch the backup on
  goOn,           ///< end recover mode
  backUpByItself  ///< switch automatic mode on
};

/// A sentence that is true at this time, and what mends the trouble that it tells of.
struct Headline {
  std::string sentence;
  bool isTrouble = false;
  std::optional<AlertKind> alert;  ///< set when a person must be told who does not look at the window
  Remedy remedy = Remedy::none;
  std::string button;  ///< the label of the button for the remedy; empty without a remedy

  /// The same text for the same trouble, whatever the numbers in the sentence are.
  std::string subject() const { return alert == AlertKind::noBackup ? "noBackup" : sentence; }
};

/// The headline for a connected daemon. `repository` is the daemon's answer to `repository:`, absent when it
/// has none; `now` is in seconds since the UNIX epoch.
Headline headline(const StatusSnapshot& status, const PropertyList& repository, double now);

/// The trouble of a daemon that has been away for days. Both times are in seconds since the UNIX epoch;
/// `lastReached` is 0 when the daemon was never reached.
std::optional<Headline> awayHeadline(double lastReached, double now);

/// "just now", "3 minutes ago", "2 hours ago", "5 days ago"; empty for no date.
std::string agoText(const PropertyList& date, double now);
/// "1 file", "1,234 files", in the user's language.
std::string filesWords(std::uint64_t count);

}  // namespace keldane
