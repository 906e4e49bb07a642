#include "clients/preferences/window/DaemonDesk.h"

#include <thread>

#include "clients/core/OwnerLink.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr auto kFarewell = std::chrono::milliseconds(1000);

}  // namespace

DaemonDesk::DaemonDesk(const DaemonBundle& daemon, std::function<void(const Update&)> receive)
    : socketPath_(daemon.socketPath),
      mailbox_(std::make_shared<Mailbox>()),
      follower_(daemon.bundle,
                [mailbox = mailbox_, receive = std::move(receive)](Update update) {
                  mailbox->put([receive, update = std::move(update)] { receive(update); });
                }),
      quick_(daemon.socketPath,
             [mailbox = mailbox_](std::function<void()> work) { mailbox->put(std::move(work)); }),
      slow_(daemon.socketPath,
            [mailbox = mailbox_](std::function<void()> work) { mailbox->put(std::move(work)); }),
      slowest_(daemon.socketPath,
               [mailbox = mailbox_](std::function<void()> work) { mailbox->put(std::move(work)); }) {}

void DaemonDesk::aside(std::function<std::function<void()>()> work) {
  std::thread([mailbox = mailbox_, work = std::move(work)] { mailbox->put(work()); }).detach();
}

NodeTree::Past DaemonDesk::pastAt(double time) const {
  return [socket = socketPath_, time](const std::string& folder) -> PropertyList {
    OwnerLink link(socket);
    return link.connect() ? link.storedFolder(PropertyList::dictionary(
                                {{"path", folder}, {"before", Date::fromUnixTime(time)}}))["children"]
                          : PropertyList();
  };
}

bool DaemonDesk::end() {
  bool ended = follower_.end(kFarewell);
  for (OwnerThread* thread : {&quick_, &slow_, &slowest_}) {
    ended = thread->end(kFarewell) && ended;
  }
  return ended;
}

std::string problemOf(const OwnerAnswer& answer) {
  switch (answer.kind) {
    case OwnerAnswer::Kind::answered:
      return {};
    case OwnerAnswer::Kind::refused: {
      const bool isSentence = !answer.problem.empty() &&
                              std::string_view(".!?").find(answer.problem.back()) != std::string_view::npos;
      return isSentence ? answer.problem : answer.problem + '.';
    }
    case OwnerAnswer::Kind::forbidden:
      return tr("Only root and the daemon's own user may do this.");
    case OwnerAnswer::Kind::unreachable:
      break;
  }
  return tr("The backup daemon cannot be reached.");
}

}  // namespace keldane
