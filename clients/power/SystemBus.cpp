#include "clients/power/SystemBus.h"

#include <poll.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace keldane {

namespace {

constexpr std::uint64_t kPatience = 2'000'000;  // microseconds that a service may take to answer
// Values of NetworkManager's "Metered".
constexpr std::uint32_t kMetered = 1, kProbablyMetered = 3;

constexpr const char* kPower = "org.freedesktop.UPower";
constexpr const char* kNetwork = "org.freedesktop.NetworkManager";
// The service for power profiles has had two names.
constexpr const char* kProfiles = "org.freedesktop.UPower.PowerProfiles";
constexpr const char* kOldProfiles = "net.hadess.PowerProfiles";

struct Followed {
  const char* service;
  const char* path;
};
constexpr Followed kFollowed[] = {
    {kPower, "/org/freedesktop/UPower"},           {kPower, "/org/freedesktop/UPower/devices/DisplayDevice"},
    {kNetwork, "/org/freedesktop/NetworkManager"}, {kProfiles, "/org/freedesktop/UPower/PowerProfiles"},
    {kOldProfiles, "/net/hadess/PowerProfiles"},
};

int check(int result, const char* what) {
  if (result < 0) {
    throw NoSystemBus(std::string("The system bus ") + what + ": " + std::strerror(-result) + ".");
  }
  return result;
}

/// Whether an error of a call means that the connection has ended.
bool isOver(int result) {
  return result == -ECONNRESET || result == -ENOTCONN || result == -EPIPE || result == -ESHUTDOWN;
}

int noteNews(sd_bus_message* /*message*/, void* news, sd_bus_error* /*error*/) {
  *static_cast<bool*>(news) = true;
  return 0;
}

struct MessageEnd {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageEnd>;

/// The answer with a service's property of a basic type, which the caller reads next; null when no service
/// answers. No service is started for it.
Message propertyOf(sd_bus* bus, const Followed& object, const char* interface, const char* name,
                   const char* type) {
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_call(bus, &made, object.service, object.path,
                                       "org.freedesktop.DBus.Properties", "Get"),
        "takes no question");
  const Message call(made);
  check(sd_bus_message_set_auto_start(call.get(), 0), "takes no question");
  check(sd_bus_message_append(call.get(), "ss", interface, name), "takes no question");
  sd_bus_message* answer = nullptr;
  const int result = sd_bus_call(bus, call.get(), 0, nullptr, &answer);
  Message reply(answer);
  if (isOver(result)) {
    check(result, "has gone");
  }
  const bool isTold = result >= 0 && sd_bus_message_enter_container(reply.get(), 'v', type) > 0;
  return isTold ? std::move(reply) : nullptr;
}

template <class Number>
Number numberOf(sd_bus* bus, const Followed& object, const char* interface, const char* name,
                const char* type) {
  Number number{};
  const Message reply = propertyOf(bus, object, interface, name, type);
  return reply && sd_bus_message_read_basic(reply.get(), *type, &number) > 0 ? number : Number{};
}

}  // namespace

void SystemBus::Closer::operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

SystemBus::SystemBus() {
  sd_bus* bus = nullptr;
  check(sd_bus_open_system(&bus), "cannot be reached");
  bus_.reset(bus);
  check(sd_bus_set_method_call_timeout(bus, kPatience), "does not take a time limit");
  follow();
}

void SystemBus::follow() {
  for (const Followed& followed : kFollowed) {
    const std::string sender = std::string("type='signal',sender='") + followed.service;
    const std::string changes =
        sender + "',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged',path='" +
        followed.path + "'";
    const std::string owner = std::string(
                                  "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                                  "arg0='") +
                              followed.service + "'";
    for (const std::string& match : {changes, owner}) {
      check(sd_bus_add_match(bus_.get(), nullptr, match.c_str(), noteNews, &news_), "takes no question");
    }
  }
}

PowerAndNetwork SystemBus::read() {
  news_ = false;
  sd_bus* bus = bus_.get();
  const auto& [power, battery, network, profiles, oldProfiles] = kFollowed;
  constexpr const char* kDevice = "org.freedesktop.UPower.Device";
  PowerAndNetwork found;
  if (numberOf<int>(bus, power, kPower, "OnBattery", "b") != 0 &&
      numberOf<int>(bus, battery, kDevice, "IsPresent", "b") != 0) {
    const auto percent = numberOf<double>(bus, battery, kDevice, "Percentage", "d");
    found.batteryPercent = static_cast<std::uint32_t>(std::clamp(percent, 0.0, 100.0));
  }
  const auto metered = numberOf<std::uint32_t>(bus, network, kNetwork, "Metered", "u");
  found.metered = metered == kMetered || metered == kProbablyMetered;
  for (const Followed& service : {profiles, oldProfiles}) {
    const Message reply = propertyOf(bus, service, service.service, "ActiveProfile", "s");
    const char* name = nullptr;
    if (reply && sd_bus_message_read_basic(reply.get(), 's', &name) > 0) {
      found.powerSaver = std::string_view(name) == "power-saver";
      break;
    }
  }
  return found;
}

bool SystemBus::waitForNews(std::chrono::milliseconds time, const sigset_t& blocked) {
  const auto end = std::chrono::steady_clock::now() + time;
  for (;;) {
    while (check(sd_bus_process(bus_.get(), nullptr), "has gone") > 0) {
    }
    const auto left = end - std::chrono::steady_clock::now();
    if (news_ || left.count() <= 0) {
      return news_;
    }
    // No call is under way, so the bus has no time limit of its own.
    const int events = check(sd_bus_get_events(bus_.get()), "has gone");
    pollfd bus{sd_bus_get_fd(bus_.get()), static_cast<short>(events), 0};
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timespec rest{seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
    if (::ppoll(&bus, 1, &rest, &blocked) < 0) {
      check(errno == EINTR ? 0 : -errno, "has gone");
      return news_;
    }
  }
}

}  // namespace keldane
