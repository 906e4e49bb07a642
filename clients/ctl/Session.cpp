#include "clients/ctl/Session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <sstream>

#include "Common/DaemonText.h"
#include "Common/calls/OwnerProtocol.h"
#include "clients/core/DaemonBundle.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Printable.h"
#include "platform/text/Translation.h"
#include "platform/text/Unicode.h"

namespace keldane {

void complain(const std::string& sentence) { std::cerr << "keldanectl: " << sentence << std::endl; }

std::string silenceSentence(const std::string& socketPath, double seconds) {
  std::ostringstream number;
  number << seconds;
  return "keldanectl: " + filled(tr("The backup daemon at %s has not answered for %s seconds."), socketPath,
                                 localNumber(number.str()));
}

std::string daemonWords(const PropertyList& text) {
  return text ? printable(daemonText(text.description())) : std::string();
}

std::string nothingKnownOf(const std::string& path) {
  if (!isValidUtf8(path)) {
    return filled(
        tr("The name of %s is not UTF-8. The daemon cannot be asked about it alone: it goes with the "
           "folder that it is in."),
        printable(path));
  }
  struct stat status {};
  const bool isAbsent = lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
  return filled(isAbsent ? tr("The daemon knows nothing of %s: nothing is there.")
                         : tr("The daemon knows nothing of %s, or may not tell you."),
                printable(path));
}

std::string askablePath(const std::string& given) {
  const std::string path = pathNamed(given);
  if (!isValidUtf8(path)) {
    throw CommandFailure(kNotTaken, nothingKnownOf(path));
  }
  return path;
}

Session::Session(const Globals& globals) : seconds_(globals.deadline) {
  try {
    const DaemonBundle found = findDaemonBundle(globals.bundle);
    socketPath_ = found.socketPath;
    state_.setBundle(found.bundle);
  } catch (const NoDaemonBundle& nothing) {
    throw CommandFailure(kUnreachable, nothing.what());
  }
}

bool Session::connect() {
  deadline_ = std::make_unique<Deadline>(seconds_, silenceSentence(socketPath_, seconds_), kDeadlinePassed);
  state_.disableConnectTimer();
  state_.onBegin();
  return state_.connected();
}

void Session::requireDaemon() {
  if (!connect()) {
    throw unreachable();
  }
}

void Session::checkDaemon() {
  RunLoop::current().runDue();
  // The event for the end of the link reaches this thread's queue a moment after the waiting call has
  // returned.
  const std::shared_ptr<KeldaneProxy> link = proxy();
  if (!link || link->isLinkAtEnd()) {
    throw unreachable();
  }
}

PropertyList Session::knownNode(const std::string& path) {
  requireDaemon();
  PropertyList node = state_.dictionaryForPath(path);
  checkDaemon();
  if (!node) {
    throw CommandFailure(kNotTaken, nothingKnownOf(path));
  }
  return node;
}

bool Session::mayChangeAll() const {
  return access(ownerSocketPath(socketPath_).c_str(), W_OK) == 0 || errno != EACCES;
}

CommandFailure Session::refusal() const {
  return {kNotTaken, mayChangeAll()
                         ? tr("The daemon did not take it. Perhaps it cannot write to its store "
                              "because the disk is full; its log tells.")
                         : tr("The daemon did not take it: only root and the daemon's own user may "
                              "change this.")};
}

CommandFailure Session::unreachable() const {
  return {kUnreachable, filled(tr("The backup daemon cannot be reached at %s."), socketPath_)};
}

}  // namespace keldane
