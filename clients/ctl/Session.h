// The daemon as every command uses it, and the options that say where it is looked for.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "cli/Deadline.h"
#include "client-state/BackupState.h"

namespace keldane {

enum ExitStatus { kDone = 0, kNotTaken = 1, kUsage = 2, kUnreachable = 3, kDeadlinePassed = 4, kRests = 5 };

/// The options of all commands, and the command's result.
struct Globals {
  std::string bundle;
  double deadline = 30;
  int status = kDone;
};

/// Ends a command with a sentence for standard error.
class CommandFailure : public std::runtime_error {
 public:
  CommandFailure(ExitStatus status, const std::string& sentence)
      : std::runtime_error(sentence), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

/// Writes one sentence to standard error, after the program's name.
void complain(const std::string& sentence);

/// The sentence about a daemon that was silent for too long.
std::string silenceSentence(const std::string& socketPath, double seconds);
/// The daemon's words in the user's language, safe for a terminal; empty when there are none.
std::string daemonWords(const PropertyList& text);

/// The sentence for a path about which nothing can be asked, or about which the daemon knows nothing.
std::string nothingKnownOf(const std::string& path);
/// The absolute form of a path that a person typed. Throws CommandFailure for a path that is not UTF-8,
/// because the protocol cannot carry it.
std::string askablePath(const std::string& given);

/// The link to the daemon for one command. Throws CommandFailure when no bundle says where the daemon is.
class Session {
 public:
  explicit Session(const Globals& globals);
  ~Session() { state_.onEnd(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const std::string& socketPath() const { return socketPath_; }
  BackupState& state() { return state_; }
  std::shared_ptr<KeldaneProxy> proxy() const { return state_.proxy(); }

  /// Connects once. Returns false when the daemon cannot be reached. From here on no single wait for the
  /// daemon is longer than the deadline.
  bool connect();
  /// Connects, and throws CommandFailure when the daemon cannot be reached.
  void requireDaemon();
  /// Throws CommandFailure when the daemon has gone meanwhile, so that its silence does not count as an
  /// answer.
  void checkDaemon();
  /// Connects and returns the daemon's dictionary for a path. Throws CommandFailure when the daemon knows
  /// nothing of the path or cannot be reached.
  PropertyList knownNode(const std::string& path);
  /// Whether this is root or the daemon's own user. True, too, for a daemon without a second socket, where it
  /// is unknown.
  bool mayChangeAll() const;
  /// The probable reason why a daemon that answers did not do something that only root and its own user may
  /// request.
  CommandFailure refusal() const;
  /// Starts the deadline again; called before each of many questions.
  void renewDeadline() { deadline_->renew(); }

 private:
  CommandFailure unreachable() const;

  const double seconds_;
  std::string socketPath_;
  BackupState state_;
  std::unique_ptr<Deadline> deadline_;
};

}  // namespace keldane
