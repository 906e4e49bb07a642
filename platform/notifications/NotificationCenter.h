// Tells observers, at once and on the poster's thread, that something happened.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/plist/PropertyList.h"

namespace keldane {

struct Notification {
  std::string_view name;
  const void* sender = nullptr;
  PropertyList userInfo;
};

/// The notification centre. `post` calls every observer that fits before it returns, in the order in which
/// they were added. Observers may add and remove observers, themselves included, while they are being told.
/// An observer that is removed is not told any more. One that is added is told from the next post on. Any
/// thread may use it, though this system posts and observes on the main thread only. The pointers to
/// observers and senders are only compared, never dereferenced. Only `addObserver` allocates memory, so an
/// object can always announce its end and unregister.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  static NotificationCenter& defaultCenter();

  /// A null `sender` stands for any sender.
  void addObserver(const void* observer, std::string_view name, const void* sender, Handler handler);
  /// Removes the registrations of `observer` for this name and sender. An empty name or a null sender fits
  /// all.
  void removeObserver(const void* observer, std::string_view name = {}, const void* sender = nullptr);
  void post(std::string_view name, const void* sender, PropertyList userInfo = {});
  /// The number of registrations, for leak checks.
  std::size_t observerCount() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace keldane
