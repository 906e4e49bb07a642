#include "clients/ctl/OwnerSession.h"

#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "clients/core/DaemonBundle.h"
#include "clients/core/Printable.h"

namespace keldane {

OwnerSession::OwnerSession(const Globals& globals) : seconds_(globals.deadline) {
  try {
    socketPath_ = findDaemonBundle(globals.bundle).socketPath;
  } catch (const NoDaemonBundle& nothing) {
    throw CommandFailure(kUnreachable, nothing.what());
  }
  link_ = std::make_unique<OwnerLink>(socketPath_);
  const std::unique_ptr<Deadline> deadline = newDeadline();
  if (!link_->connect()) {
    if (access(link_->path().c_str(), W_OK) != 0 && errno == EACCES) {
      throw CommandFailure(kNotTaken, "Only root and the daemon's own user may do this.");
    }
    throw CommandFailure(kUnreachable, "The backup daemon cannot be reached at " + link_->path() + ".");
  }
}

std::unique_ptr<Deadline> OwnerSession::newDeadline() const {
  std::ostringstream late;
  late << "keldanectl: The backup daemon at " << link_->path() << " has not answered for " << seconds_
       << " seconds.";
  return std::make_unique<Deadline>(seconds_, late.str(), kDeadlinePassed);
}

PropertyList OwnerSession::ask(std::string_view selector, PropertyList::Entries request) {
  const std::unique_ptr<Deadline> deadline = newDeadline();
  return answerTo(selector, std::move(request));
}

PropertyList OwnerSession::askForLong(std::string_view selector, PropertyList::Entries request) {
  return answerTo(selector, std::move(request));
}

PropertyList OwnerSession::answerTo(std::string_view selector, PropertyList::Entries request) {
  const PropertyList question = PropertyList::dictionary(std::move(request));
  const PropertyList answer = link_->call(selector, {RawValue::of<'@'>(question)}).as<'@'>();
  if (!answer && link_->isAtEnd()) {
    throw CommandFailure(kUnreachable, "The backup daemon at " + link_->path() + " has hung up.");
  }
  if (!answer.isDictionary()) {
    throw CommandFailure(kNotTaken, "The daemon does not know how to do this.");
  }
  if (answer["error"]) {
    throw CommandFailure(kNotTaken, sentenceFrom(answer["error"]));
  }
  return answer;
}

std::string sentenceFrom(const PropertyList& text) {
  std::string sentence = printable(text.description());
  if (!sentence.empty() && std::string_view(".!?").find(sentence.back()) == std::string_view::npos) {
    sentence += '.';
  }
  return sentence;
}

}  // namespace keldane
