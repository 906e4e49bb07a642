// Carries work from the program's other threads to the window's thread.
#pragma once

#include <glibmm/dispatcher.h>

#include <deque>
#include <functional>

#include "platform/threads/Mutex.h"

namespace keldane {

/// Made and destroyed on the window's thread; `put` may be called from any thread. Work is done in the order
/// in which it was put, one piece whenever the window has nothing more urgent to do.
class Mailbox {
 public:
  Mailbox();
  ~Mailbox();
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  void put(std::function<void()> work);

 private:
  bool handOver();

  Glib::Dispatcher arrived_;
  sigc::connection idle_;
  Mutex mutex_;
  std::deque<std::function<void()>> work_ KELDANE_GUARDED_BY(mutex_);
};

}  // namespace keldane
