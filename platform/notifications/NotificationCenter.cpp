#include "platform/notifications/NotificationCenter.h"

#include <algorithm>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>

#include "platform/threads/Mutex.h"

namespace keldane {

struct NotificationCenter::State {
  struct Registration {
    const void* observer;
    std::string name;
    const void* sender;
    Handler handler;
    std::uint64_t number = 0;
  };

  mutable Mutex mutex{{.name = "NotificationCenter", .innermost = true}};
  // The registrations are ordered by number. They are in a list, because elements can be moved out of a list
  // without asking for memory.
  std::list<std::shared_ptr<const Registration>> registrations KELDANE_GUARDED_BY(mutex);
  std::uint64_t lastNumber KELDANE_GUARDED_BY(mutex) = 0;
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
  const ScopedLock guard(state_->mutex);
  registration->number = state_->lastNumber + 1;
  state_->registrations.push_back(std::move(registration));
  ++state_->lastNumber;
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name, const void* sender) {
  std::list<std::shared_ptr<const State::Registration>> removed;  // handlers are freed outside the lock
  const ScopedLock guard(state_->mutex);
  auto& registrations = state_->registrations;
  for (auto at = registrations.begin(); at != registrations.end();) {
    const auto registration = at++;
    const bool fits = (*registration)->observer == observer &&
                      (name.empty() || (*registration)->name == name) &&
                      (sender == nullptr || (*registration)->sender == sender);
    if (fits) {
      removed.splice(removed.end(), registrations, registration);
    }
  }
}

void NotificationCenter::post(std::string_view name, const void* sender, PropertyList userInfo) {
  // This function allocates no memory, so that the end of a connection is announced even when memory has run
  // out.
  const Notification notification{name, sender, std::move(userInfo)};
  std::uint64_t told = 0;
  std::optional<std::uint64_t> last;  // observers that are added meanwhile have higher numbers
  for (;;) {
    std::shared_ptr<const State::Registration> next;
    {
      const ScopedLock guard(state_->mutex);
      last = last.value_or(state_->lastNumber);
      const auto found =
          std::find_if(state_->registrations.begin(), state_->registrations.end(), [&](const auto& other) {
            return other->number > told && other->number <= *last && other->name == name &&
                   (other->sender == nullptr || other->sender == sender);
          });
      if (found == state_->registrations.end()) {
        return;
      }
      next = *found;
    }
    told = next->number;
    next->handler(notification);
  }
}

std::size_t NotificationCenter::observerCount() const {
  const ScopedLock guard(state_->mutex);
  return state_->registrations.size();
}

}  // namespace keldane
