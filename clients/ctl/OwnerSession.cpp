#include "clients/ctl/OwnerSession.h"

#include <unistd.h>

#include <cerrno>

#include "clients/core/DaemonBundle.h"
#include "clients/core/words/Printable.h"
#include "platform/text/Translation.h"

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
      throw CommandFailure(kNotTaken, tr("Only root and the daemon's own user may do this."));
    }
    throw CommandFailure(kUnreachable,
                         filled(tr("The backup daemon cannot be reached at %s."), link_->path()));
  }
}

std::unique_ptr<Deadline> OwnerSession::newDeadline() const {
  return std::make_unique<Deadline>(seconds_, silenceSentence(link_->path(), seconds_), kDeadlinePassed);
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
    throw CommandFailure(kUnreachable, filled(tr("The backup daemon at %s has hung up."), link_->path()));
  }
  if (!answer.isDictionary()) {
    throw CommandFailure(kNotTaken, tr("The daemon does not know how to do this."));
  }
  if (answer["error"]) {
    throw CommandFailure(kNotTaken, sentenceFrom(answer["error"]));
  }
  return answer;
}

std::string sentenceFrom(const PropertyList& text) {
  std::string sentence = daemonWords(text);
  if (!sentence.empty() && std::string_view(".!?").find(sentence.back()) == std::string_view::npos) {
    sentence += '.';
  }
  return sentence;
}

}  // namespace keldane
