#include "clients/preferences/window/Lookout.h"

#include <glibmm/main.h>

#include <chrono>
#include <ctime>

namespace keldane {

namespace {

constexpr unsigned kLookInterval = 60;  // seconds
constexpr auto kLookoutPatience = std::chrono::minutes(1);

}  // namespace

void tellOf(const Headline& headline, const TellPerson& tell) {
  if (headline.alert) {
    tell(*headline.alert, headline.subject(), headline.sentence,
         headline.remedy == Remedy::showStorage ? WindowPlace::Kind::storage : WindowPlace::Kind::overview);
  }
}

Lookout::Lookout(const DaemonBundle& daemon, AlertKeeper& alerts, TellPerson tell)
    : alerts_(alerts),
      tell_(std::move(tell)),
      desk_(daemon, [this](const Update& update) { receive(update); }) {
  timer_ = Glib::signal_timeout().connect_seconds(
      [this] {
        look();
        return true;
      },
      kLookInterval);
}

Lookout::~Lookout() { timer_.disconnect(); }

void Lookout::receive(const Update& update) {
  if (const auto* const snapshot = std::get_if<StatusSnapshot>(&update)) {
    const bool isAnother = !status_ || status_->health != snapshot->health;
    status_ = *snapshot;
    if (snapshot->connected) {
      alerts_.noteReached();
    }
    if (isAnother && snapshot->connected) {
      look();
    }
  }
}

// A daemon that is away at first may be starting with the session, as this program is.
void Lookout::look() {
  if (!status_ || !status_->connected || desk_.silence() > kLookoutPatience) {
    if (const auto away = awayHeadline(alerts_.lastReached(), static_cast<double>(std::time(nullptr)))) {
      tellOf(*away, tell_);
    }
    return;
  }
  if (asking_) {
    return;
  }
  asking_ = true;
  desk_.ask("repository:", {}, [this](const OwnerAnswer& answer) {
    asking_ = false;
    if (status_ && status_->connected) {
      tellOf(headline(*status_, answer ? answer.values : PropertyList(),
                      static_cast<double>(std::time(nullptr))),
             tell_);
    }
  });
}

}  // namespace keldane
