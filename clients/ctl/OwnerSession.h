// A connection to the daemon's second socket for one command.
#pragma once

#include <memory>
#include <string>

#include "clients/core/OwnerLink.h"
#include "clients/ctl/Session.h"

namespace keldane {

/// Connected by its constructor, which throws CommandFailure when the daemon cannot be reached or belongs to
/// another user. Used on one thread.
class OwnerSession {
 public:
  explicit OwnerSession(const Globals& globals);

  /// The daemon's answer, within the deadline. Throws CommandFailure with the daemon's own sentence for an
  /// "error", and when the daemon has gone.
  PropertyList ask(std::string_view selector, PropertyList::Entries request = {});
  /// The same for a request without a deadline, because it may take the daemon long.
  PropertyList askForLong(std::string_view selector, PropertyList::Entries request);

 private:
  PropertyList answerTo(std::string_view selector, PropertyList::Entries request);
  std::unique_ptr<Deadline> newDeadline() const;

  const double seconds_;
  std::string socketPath_;
  std::unique_ptr<OwnerLink> link_;
};

/// The daemon's sentence in the user's language, safe for a terminal and with a full stop at its end.
std::string sentenceFrom(const PropertyList& text);

}  // namespace keldane
