#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "bench/peers/Buses.h"
#include "bench/peers/Floor.h"

namespace keldane::bench {

namespace {

void check(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
  }
}

void appendEntry(sd_bus_message* reply, const std::string& key, const PropertyList& value) {
  sd_bus_message_open_container(reply, 'e', "sv");
  sd_bus_message_append(reply, "s", key.c_str());
  if (value.isString()) {
    sd_bus_message_append(reply, "v", "s", std::string(value.string()).c_str());
  } else if (value.isDate()) {
    sd_bus_message_append(reply, "v", "d", value.date().secondsSinceReference);
  } else if (value.numberKind() == PropertyList::NumberKind::boolean) {
    sd_bus_message_append(reply, "v", "b", static_cast<int>(value.boolValue()));
  } else {
    sd_bus_message_append(reply, "v", "t", value.unsignedLongLongValue());
  }
  sd_bus_message_close_container(reply);
}

int answerCall(sd_bus_message* call, void* data, sd_bus_error* /*error*/) {
  const auto& answer = *static_cast<const PropertyList*>(data);
  const char* path = nullptr;
  int withSizes = 0;
  sd_bus_message_read(call, "sb", &path, &withSizes);
  sd_bus_message* reply = nullptr;
  check(sd_bus_message_new_method_return(call, &reply), "no reply");
  sd_bus_message_open_container(reply, 'a', "{sv}");
  for (std::size_t i = 0; i < answer.count(); ++i) {
    const PropertyList::Entry entry = answer.entry(i);
    appendEntry(reply, std::string(entry.first.string()), entry.second);
  }
  sd_bus_message_close_container(reply);
  const int result = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return result;
}

}  // namespace

struct SdBusClient::Link {
  sd_bus* bus = nullptr;
};

void serveSdBus(const std::string& path, const PropertyList& answer) {
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("DictionaryForPath", "sb", "a{sv}", answerCall, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};
  const Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(listener.get(), 1) != 0) {
    throw std::runtime_error("nobody can listen at " + path);
  }
  const int socket = ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
  sd_bus* bus = nullptr;
  check(sd_bus_new(&bus), "no bus");
  check(sd_bus_set_fd(bus, socket, socket), "no descriptor");
  sd_id128_t id{};
  check(sd_bus_set_server(bus, 1, id), "no server");
  check(sd_bus_set_anonymous(bus, 1), "not anonymous");
  check(sd_bus_add_object_vtable(bus, nullptr, "/bench", "bench.Daemon", table,
                                 const_cast<PropertyList*>(&answer)),
        "no object");
  check(sd_bus_start(bus), "no start");
  while (sd_bus_process(bus, nullptr) >= 0 && sd_bus_wait(bus, UINT64_MAX) >= 0) {
  }
  sd_bus_unref(bus);
}

SdBusClient::SdBusClient(const std::string& path) : link_(std::make_unique<Link>()) {
  check(sd_bus_new(&link_->bus), "no bus");
  check(sd_bus_set_address(link_->bus, ("unix:path=" + path).c_str()), "no address");
  check(sd_bus_set_anonymous(link_->bus, 1), "not anonymous");
  check(sd_bus_start(link_->bus), "no start");
}

SdBusClient::~SdBusClient() { sd_bus_flush_close_unref(link_->bus); }

std::size_t SdBusClient::call(const std::string& file) {
  sd_bus_message* reply = nullptr;
  check(sd_bus_call_method(link_->bus, nullptr, "/bench", "bench.Daemon", "DictionaryForPath", nullptr,
                           &reply, "sb", file.c_str(), 0),
        "no answer");
  std::size_t entries = 0;
  sd_bus_message_enter_container(reply, 'a', "{sv}");
  while (sd_bus_message_enter_container(reply, 'e', "sv") > 0) {
    const char* key = nullptr;
    const char* type = nullptr;
    std::uint64_t value[2] = {};
    sd_bus_message_read_basic(reply, 's', static_cast<void*>(&key));
    sd_bus_message_peek_type(reply, nullptr, &type);
    sd_bus_message_enter_container(reply, 'v', type);
    sd_bus_message_read_basic(reply, type[0], value);
    sd_bus_message_exit_container(reply);
    sd_bus_message_exit_container(reply);
    ++entries;
  }
  sd_bus_message_unref(reply);
  return entries;
}

}  // namespace keldane::bench
