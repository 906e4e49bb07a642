#include "clients/preferences/window/Lookout.h"

#include <glibmm/main.h>

#include <ctime>

namespace keldane {

namespace {

constexpr unsigned kLookInterval = 60;  // seconds

}  // namespace

void tellOf(const Headline& headline, const TellPerson& tell) {
  if (headline.alert) {
    tell(*headline.alert, headline.subject(), headline.sentence,
         headline.remedy == Remedy::showStorage ? WindowPlace::Kind::storage : WindowPlace::Kind::overview);
  }
}

Lookout::Lookout(const DaemonBundle& daemon, TellPerson tell)
    : tell_(std::move(tell)), desk_(daemon, [this](const Update& update) { receive(update); }) {
  timer_ = Glib::signal_timeout().connect_seconds(
      [this] {
        askForRepository();
        return true;
      },
      kLookInterval);
}

Lookout::~Lookout() { timer_.disconnect(); }

void Lookout::receive(const Update& update) {
  if (const auto* const snapshot = std::get_if<StatusSnapshot>(&update)) {
    const bool isAnother = !status_ || status_->health != snapshot->health;
    status_ = *snapshot;
    if (isAnother) {
      askForRepository();
    }
  }
}

void Lookout::askForRepository() {
  if (asking_ || !status_ || !status_->connected) {
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
