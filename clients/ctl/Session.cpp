#include "clients/ctl/Session.h"

#include <iostream>
#include <sstream>

#include "cli/AbsolutePath.h"
#include "platform/plugin/PlugIn.h"

namespace keldane {

namespace {

std::shared_ptr<Bundle> bundleNamed(const std::string& path) {
  if (!path.empty()) {
    return Bundle::bundleWithPath(path);
  }
  const auto installed = PlugIn::findBundleForType(contextualMenuTypeID());
  if (!installed) {
    throw CommandFailure(kUnreachable,
                         "No Keldane plug-in is installed that would say where the daemon is; --bundle names "
                         "one.");
  }
  return Bundle::bundleWithPath(*installed);
}

}  // namespace

void complain(const std::string& sentence) { std::cerr << "keldanectl: " << sentence << std::endl; }

Session::Session(const Globals& globals) : seconds_(globals.deadline) {
  const std::shared_ptr<Bundle> bundle = bundleNamed(globals.bundle);
  socketPath_ = bundle ? bundle->objectForInfoDictionaryKey("DaemonPath").string() : std::string_view();
  if (socketPath_.empty()) {
    throw CommandFailure(kUnreachable, globals.bundle + " does not say where the daemon is.");
  }
  state_.setBundle(bundle);
}

bool Session::connect() {
  std::ostringstream late;
  late << "keldanectl: The backup daemon at " << socketPath_ << " has not answered for " << seconds_
       << " seconds.";
  deadline_ = std::make_unique<Deadline>(seconds_, late.str(), kDeadlinePassed);
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
  if (!state_.connected()) {
    throw unreachable();
  }
}

CommandFailure Session::unreachable() const {
  return {kUnreachable, "The backup daemon cannot be reached at " + socketPath_ + "."};
}

std::string pathNamed(const std::string& text) {
  std::string path = absolutePath(text);
  while (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

}  // namespace keldane
