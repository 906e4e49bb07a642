#include "clients/preferences/window/Mailbox.h"

#include <glibmm/main.h>

namespace keldane {

Mailbox::Mailbox(std::function<void(Update)> handler) : handler_(std::move(handler)) {
  arrived_.connect([this] {
    if (!idle_.connected()) {
      idle_ = Glib::signal_idle().connect([this] { return handOver(); });
    }
  });
}

Mailbox::~Mailbox() { idle_.disconnect(); }

void Mailbox::put(Update update) {
  bool wasEmpty = false;
  {
    const std::lock_guard guard(mutex_);
    wasEmpty = updates_.empty();
    updates_.push_back(std::move(update));
  }
  if (wasEmpty) {
    arrived_.emit();
  }
}

bool Mailbox::handOver() {
  Update update;
  {
    const std::lock_guard guard(mutex_);
    if (updates_.empty()) {
      return false;
    }
    update = std::move(updates_.front());
    updates_.pop_front();
  }
  handler_(std::move(update));
  return true;
}

}  // namespace keldane
