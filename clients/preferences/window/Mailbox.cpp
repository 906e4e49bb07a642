#include "clients/preferences/window/Mailbox.h"

#include <glibmm/main.h>

namespace keldane {

Mailbox::Mailbox() {
  arrived_.connect([this] {
    if (!idle_.connected()) {
      idle_ = Glib::signal_idle().connect([this] { return handOver(); });
    }
  });
}

Mailbox::~Mailbox() { idle_.disconnect(); }

void Mailbox::put(std::function<void()> work) {
  bool wasEmpty = false;
  {
    const ScopedLock guard(mutex_);
    wasEmpty = work_.empty();
    work_.push_back(std::move(work));
  }
  if (wasEmpty) {
    arrived_.emit();
  }
}

bool Mailbox::handOver() {
  std::function<void()> work;
  {
    const ScopedLock guard(mutex_);
    if (work_.empty()) {
      return false;
    }
    work = std::move(work_.front());
    work_.pop_front();
  }
  work();
  return true;
}

}  // namespace keldane
