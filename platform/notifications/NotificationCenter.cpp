#include "platform/notifications/NotificationCenter.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

namespace keldane {

struct NotificationCenter::State {
  struct Registration {
    const void* observer;
    std::string name;
    const void* sender;
    Handler handler;
    bool removed = false;  // guarded by the state's mutex
  };

  mutable std::mutex mutex;
  std::vector<std::shared_ptr<Registration>> registrations;  // guarded by mutex
};

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter& center = *new NotificationCenter;
  return center;
}

void NotificationCenter::addObserver(const void* observer, std::string_view name, const void* sender,
                                     Handler handler) {
  auto registration = std::make_shared<State::Registration>();
  registration->observer = observer;
  registration->name = name;
  registration->sender = sender;
  registration->handler = std::move(handler);
  const std::lock_guard guard(state_->mutex);
  state_->registrations.push_back(std::move(registration));
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name, const void* sender) {
  std::vector<std::shared_ptr<State::Registration>> removed;  // handlers are freed outside the lock
  const std::lock_guard guard(state_->mutex);
  std::erase_if(state_->registrations, [&](const std::shared_ptr<State::Registration>& registration) {
    const bool fits = registration->observer == observer && (name.empty() || registration->name == name) &&
                      (sender == nullptr || registration->sender == sender);
    if (fits) {
      registration->removed = true;
      removed.push_back(registration);
    }
    return fits;
  });
}

void NotificationCenter::post(std::string_view name, const void* sender, PropertyList userInfo) {
  std::vector<std::shared_ptr<State::Registration>> told;
  {
    const std::lock_guard guard(state_->mutex);
    std::copy_if(state_->registrations.begin(), state_->registrations.end(), std::back_inserter(told),
                 [&](const std::shared_ptr<State::Registration>& registration) {
                   return registration->name == name &&
                          (registration->sender == nullptr || registration->sender == sender);
                 });
  }
  const Notification notification{name, sender, std::move(userInfo)};
  for (const std::shared_ptr<State::Registration>& registration : told) {
    {
      const std::lock_guard guard(state_->mutex);
      if (registration->removed) {
        continue;
      }
    }
    registration->handler(notification);
  }
}

std::size_t NotificationCenter::observerCount() const {
  const std::lock_guard guard(state_->mutex);
  return state_->registrations.size();
}

}  // namespace keldane
