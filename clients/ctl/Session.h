// What every command works with: the daemon, and where it is looked for.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "cli/Deadline.h"
#include "client-state/BackupState.h"

namespace keldane {

enum ExitStatus { kDone = 0, kNotTaken = 1, kUsage = 2, kUnreachable = 3, kDeadlinePassed = 4, kRests = 5 };

/// The options of all commands, and how the command went.
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

/// One sentence to standard error, after the program's name.
void complain(const std::string& sentence);

/// What is said, after the program's name, of a daemon that was silent for too long.
std::string silenceSentence(const std::string& socketPath, double seconds);
/// What the daemon says, in the user's language and fit for a terminal; empty when it says nothing.
std::string daemonWords(const PropertyList& text);

/// Why nothing can be asked, or was answered, about a path; a sentence.
std::string nothingKnownOf(const std::string& path);
/// The absolute path that a person means. Throws CommandFailure for one that is not UTF-8: the protocol has
/// no place for it.
std::string askablePath(const std::string& given);

/// The link to the daemon for the time of one command. Throws CommandFailure when no bundle says where it is.
class Session {
 public:
  explicit Session(const Globals& globals);
  ~Session() { state_.onEnd(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const std::string& socketPath() const { return socketPath_; }
  BackupState& state() { return state_; }
  std::shared_ptr<KeldaneProxy> proxy() const { return state_.proxy(); }

  /// Connects, once; false when the daemon cannot be reached. From here on no single wait for the daemon may
  /// be longer than the deadline.
  bool connect();
  /// The same, and throws CommandFailure for a daemon that cannot be reached.
  void requireDaemon();
  /// Throws CommandFailure when the daemon has gone meanwhile, so that its silence is not taken for an
  /// answer.
  void checkDaemon();
  /// What the daemon knows of a path, after connecting. Throws CommandFailure when that is nothing, and for a
  /// daemon that cannot be reached.
  PropertyList knownNode(const std::string& path);
  /// Whether this is root or the daemon's own user; not known of a daemon without a second socket, and true.
  bool mayChangeAll() const;
  /// Why a daemon that answers did not do what only root and its own user may have done, as far as can be
  /// told.
  CommandFailure refusal() const;
  /// Before each of many questions.
  void renewDeadline() { deadline_->renew(); }

 private:
  CommandFailure unreachable() const;

  const double seconds_;
  std::string socketPath_;
  BackupState state_;
  std::unique_ptr<Deadline> deadline_;
};

}  // namespace keldane
