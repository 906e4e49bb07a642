// Carries what the daemon's thread delivers to the window's thread.
#pragma once

#include <glibmm/dispatcher.h>

#include <deque>
#include <functional>
#include <mutex>

#include "clients/preferences/worker/Updates.h"

namespace keldane {

/// Made and destroyed on the window's thread; `put` may be called from any. What was put is handed over in
/// its order, a piece whenever the window has nothing more urgent to do.
class Mailbox {
 public:
  explicit Mailbox(std::function<void(Update)> handler);
  ~Mailbox();
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  void put(Update update);

 private:
  bool handOver();

  const std::function<void(Update)> handler_;
  Glib::Dispatcher arrived_;
  sigc::connection idle_;
  std::mutex mutex_;
  std::deque<Update> updates_;  // guarded by the mutex
};

}  // namespace keldane
