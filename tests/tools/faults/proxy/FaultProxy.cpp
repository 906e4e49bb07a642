#include "tests/tools/faults/proxy/FaultProxy.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sstream>
#include <system_error>

#include "tests/tools/faults/proxy/FaultStream.h"

namespace keldane::testing {

namespace {

using Clock = std::chrono::steady_clock;

// The proxy ends a connection that is left without an answer after this time without a byte. The first limit
// is longer, because the client may still be on its way.
constexpr auto kPatience = std::chrono::milliseconds(20);
constexpr auto kFirstPatience = std::chrono::milliseconds(200);
// Every peer reads sooner than this.
constexpr timeval kSendLimit = {5, 0};
// Every daemon completes the work that is left at the end of a connection sooner than this.
constexpr timeval kFarewellLimit = {20, 0};

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

/// Both directions of one connection, from its beginning to its end.
class Connection {
 public:
  Connection(const FaultPlan& plan, const RecordedFrames& recorded, int client, int daemon)
      : plan_(plan),
        client_(client),
        daemon_(daemon),
        requests_(Direction::requests, plan, recorded[0], client, daemon),
        answers_(Direction::answers, plan, recorded[1], daemon, client) {}

  ConnectionReport run() {
    Clock::time_point moved = Clock::now();
    while (write(false)) {
      const bool isQuiet = !requests_.due() && !answers_.due();
      const bool hasBegun = requests_.bytesRead() > 0;
      const bool mayStall = plan_.effect() != Effect::whole;
      const Clock::time_point end = moved + (hasBegun ? kPatience : kFirstPatience);
      if (mayStall && isQuiet && Clock::now() >= end) {
        break;
      }
      if (!transfer(mayStall && isQuiet ? std::optional(end) : earliestDue(), moved)) {
        break;
      }
    }
    ConnectionReport report;
    report.endedByClient = clientHasLeft_;
    report.requests = static_cast<std::uint32_t>(requests_.frames().size());
    report.early = early_;
    report.delivered = answers_.delivered();
    report.forwarded = requests_.delivered();
    return report;
  }

  bool anythingWasSaid() const { return requests_.bytesRead() > 0 || !clientHasLeft_; }
  RecordedFrames frames() const { return {requests_.frames(), answers_.frames()}; }

 private:
  bool write(bool all) {
    const bool open = requests_.write(all);
    return answers_.write(all) && open;
  }

  std::optional<Clock::time_point> earliestDue() const {
    const std::optional<Clock::time_point> one = requests_.due();
    const std::optional<Clock::time_point> other = answers_.due();
    return one && other ? std::min(one, other) : one ? one : other;
  }

  /// Waits until `until` at most for something to come, and reads it. Returns false at the end of the
  /// connection.
  bool transfer(const std::optional<Clock::time_point>& until, Clock::time_point& moved) {
    const auto events = [](const FaultStream& stream) {
      return static_cast<short>(stream.isReading() ? POLLIN : 0);
    };
    pollfd sources[2] = {{client_, events(requests_), 0}, {daemon_, events(answers_), 0}};
    int wait = -1;
    if (until) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
      wait = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left, 0));
    }
    if (poll(sources, 2, wait) <= 0) {
      return true;
    }
    moved = Clock::now();
    if (requests_.bytesRead() == 0) {
      early_ = static_cast<std::uint32_t>(answers_.delivered().size());
    }
    if (sources[0].revents != 0 && !(requests_.isReading() && requests_.read())) {
      clientHasLeft_ = true;
      write(true);
      return false;
    }
    if (sources[1].revents != 0 && !(answers_.isReading() && answers_.read())) {
      write(true);
      return false;
    }
    return true;
  }

  const FaultPlan& plan_;
  const int client_;
  const int daemon_;
  FaultStream requests_;
  FaultStream answers_;
  std::uint32_t early_ = 0;
  bool clientHasLeft_ = false;
};

/// Ends the connection for the client at once, and for the daemon when it has read and answered everything.
void partFrom(int client, int daemon) {
  ::shutdown(client, SHUT_RDWR);
  ::shutdown(daemon, SHUT_WR);
  setsockopt(daemon, SOL_SOCKET, SO_RCVTIMEO, &kFarewellLimit, sizeof(kFarewellLimit));
  char block[65536];
  ssize_t got = 1;
  while (got > 0) {
    got = ::recv(daemon, block, sizeof(block), 0);
  }
  if (got < 0 && errno == EAGAIN) {
    throw std::runtime_error("the daemon keeps a connection that has ended");
  }
}

/// Two hexadecimal digits for each byte after a colon, so the word is never empty.
std::string wordOf(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string word = ":";
  for (const char byte : bytes) {
    word += kDigits[static_cast<unsigned char>(byte) >> 4U];
    word += kDigits[static_cast<unsigned char>(byte) & 15U];
  }
  return word;
}

std::string bytesOf(const std::string& word) {
  std::string bytes;
  for (std::size_t at = 1; at + 1 < word.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(word.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

}  // namespace

std::string ConnectionReport::line() const {
  return std::string(endedByClient ? "client" : "proxy") + ' ' + std::to_string(requests) + ' ' +
         std::to_string(early) + ' ' + wordOf(delivered) + ' ' + wordOf(forwarded);
}

std::optional<ConnectionReport> ConnectionReport::parse(const std::string& line) {
  std::istringstream words(line);
  std::string who;
  std::string toClient;
  std::string toDaemon;
  ConnectionReport report;
  if (!(words >> who >> report.requests >> report.early >> toClient >> toDaemon)) {
    return std::nullopt;
  }
  report.endedByClient = who == "client";
  report.delivered = bytesOf(toClient);
  report.forwarded = bytesOf(toDaemon);
  return report;
}

FaultProxy::FaultProxy(const std::string& listenPath, std::string connectPath, Farewell farewell)
    : connectPath_(std::move(connectPath)),
      farewell_(farewell),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_un address = addressOf(listenPath);
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(listener_.get(), 10) != 0) {
    throw std::system_error(errno, std::generic_category(), listenPath);
  }
}

ConnectionReport FaultProxy::serve(const FaultPlan& plan) {
  for (;;) {
    const Descriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const Descriptor daemon(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(connectPath_);
    if (::connect(daemon.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::system_error(errno, std::generic_category(), connectPath_);
    }
    for (const Descriptor* end : {&client, &daemon}) {
      setsockopt(end->get(), SOL_SOCKET, SO_SNDTIMEO, &kSendLimit, sizeof(kSendLimit));
    }
    Connection connection(plan, recorded_, client.get(), daemon.get());
    ConnectionReport report = connection.run();
    if (farewell_ == Farewell::daemon) {
      partFrom(client.get(), daemon.get());
    }
    if (!connection.anythingWasSaid()) {
      continue;  // a client that is closed while it waits to be served comes and goes
    }
    if (plan.faults.empty()) {
      recorded_ = connection.frames();
    }
    return report;
  }
}

}  // namespace keldane::testing
