#include "tests/tools/faults/FaultProxy.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

#include "platform/plist/PropertyListSerialization.h"

namespace keldane::testing {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kMarker = "8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04";
constexpr std::size_t kTypeAt = kMarker.size();
constexpr std::size_t kLengthAt = kTypeAt + 4;
static_assert(kHeader == kLengthAt + 4);

// A call that nobody will answer is ended after this time without a byte; before the first byte the client
// may still be on its way.
constexpr auto kPatience = std::chrono::milliseconds(20);
constexpr auto kFirstPatience = std::chrono::milliseconds(200);
// Frames that are to be one write are waited for this long.
constexpr auto kJoinPatience = std::chrono::milliseconds(5);
// Nobody lets the proxy wait this long for a write.
constexpr timeval kSendLimit = {5, 0};
// No daemon is busy for so long with what was left to do at the end of a connection.
constexpr timeval kFarewellLimit = {20, 0};

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

std::uint32_t numberAt(const std::string& frame, std::size_t at) {
  std::uint32_t number = 0;
  std::memcpy(&number, frame.data() + at, sizeof(number));
  return number;
}

void setNumberAt(std::string& frame, std::size_t at, std::uint32_t number) {
  std::memcpy(frame.data() + at, &number, sizeof(number));
}

/// Always the same for the same fault, and without a marker in it.
std::string garbageOf(const Fault& fault) {
  std::mt19937 engine(fault.at * 1000003U + fault.amount);
  std::string bytes(fault.amount, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(engine()); });
  return bytes;
}

PropertyList ofAnotherKind(const PropertyList& value) {
  switch (value.kind()) {
    case PropertyList::Kind::string:
      return 7;
    case PropertyList::Kind::number:
      return value.numberKind() == PropertyList::NumberKind::boolean ? PropertyList(1.5)
                                                                     : PropertyList(value.description());
    case PropertyList::Kind::array:
      return PropertyList::dictionary({{"simpleFlags", 2}});
    case PropertyList::Kind::dictionary:
      return PropertyList::array({value});
    default:
      return PropertyList::data({});
  }
}

/// The value with its `left`-th value, itself first and then depth first, of another kind. Counts down.
PropertyList withOneSwapped(const PropertyList& value, std::uint32_t& left) {
  if (left-- == 0) {
    return ofAnotherKind(value);
  }
  if (value.isArray()) {
    PropertyList::Array elements;
    for (std::size_t i = 0; i < value.count(); ++i) {
      elements.push_back(withOneSwapped(value[i], left));
    }
    return PropertyList::array(std::move(elements));
  }
  if (value.isDictionary()) {
    PropertyList::Entries entries;
    for (std::size_t i = 0; i < value.count(); ++i) {
      entries.emplace_back(value.entry(i).first, withOneSwapped(value.entry(i).second, left));
    }
    return PropertyList::dictionary(std::move(entries));
  }
  return value;
}

std::string withValueSwapped(const std::string& frame, std::uint32_t number) {
  const std::string payload = frame.substr(kHeader);
  const PropertyList value = PropertyListSerialization::propertyListFromData(
      {reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()}, nullptr);
  std::uint32_t left = number;
  const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
      withOneSwapped(value, left), PropertyListSerialization::Format::binary, nullptr);
  if (!bytes) {
    return frame;  // it had no payload
  }
  std::string swapped = frame.substr(0, kHeader) + std::string(bytes->begin(), bytes->end());
  setNumberAt(swapped, kLengthAt, static_cast<std::uint32_t>(bytes->size()));
  return swapped;
}

/// One direction of one connection.
class Stream {
 public:
  Stream(Direction direction, const FaultPlan& plan, const std::vector<std::string>& foretold, int from,
         int to)
      : direction_(direction), plan_(plan), foretold_(foretold), from_(from), to_(to) {
    if (const Fault* fault = find(FaultKind::early)) {
      const std::size_t count = std::min<std::size_t>(fault->amount, foretold.size());
      for (std::size_t i = 0; i < count; ++i) {
        queue(foretold[i]);
        if (fault->at == 1) {
          leftOut_.insert(static_cast<std::uint32_t>(i));
        }
      }
    }
  }

  bool isReading() const { return !isStopped() && !ended_; }
  /// How many frames and bytes were read, and what went out.
  const std::vector<std::string>& frames() const { return frames_; }
  std::size_t bytesRead() const { return bytesRead_; }
  const std::string& delivered() const { return delivered_; }
  /// When there is something to write; nothing while there is not.
  std::optional<Clock::time_point> due() const {
    return pieces_.empty() ? std::nullopt : std::optional(pieces_.front().due);
  }

  /// One read, of what has come. False at the end.
  bool read() {
    char block[65536];
    std::size_t count = sizeof(block);
    if (const Fault* fault = find(FaultKind::stop)) {
      count = std::min(count, fault->at - bytesRead_);
    }
    const ssize_t got = ::recv(from_, block, count, 0);
    if (got <= 0) {
      ended_ = true;
      return false;
    }
    bytesRead_ += static_cast<std::size_t>(got);
    unread_.append(block, static_cast<std::size_t>(got));
    takeFrames();
    return true;
  }

  /// Writes what is due, or all. False when that ends the connection.
  bool write(bool all) {
    while (!isClosing() && !pieces_.empty() && (all || pieces_.front().due <= Clock::now())) {
      const Piece piece = std::move(pieces_.front());
      pieces_.pop_front();
      if (!transmit(piece)) {
        return false;
      }
    }
    return !isClosing();
  }

 private:
  struct Piece {
    std::string bytes;
    Clock::time_point due;
    bool isSplit = false;
    std::uint32_t joins = 0;  // further frames that belong to this write
  };

  const Fault* find(FaultKind kind) const { return plan_.find(direction_, kind); }
  /// The fault of that kind if it strikes this frame.
  const Fault* striking(FaultKind kind, std::uint32_t frame) const {
    const Fault* fault = find(kind);
    return fault != nullptr && fault->at == frame ? fault : nullptr;
  }
  bool isStopped() const {
    const Fault* fault = find(FaultKind::stop);
    return fault != nullptr && bytesRead_ >= fault->at;
  }
  bool isClosing() const {
    const Fault* fault = find(FaultKind::close);
    return fault != nullptr && offset_ >= fault->at;
  }

  void takeFrames() {
    while (unread_.size() >= kHeader) {
      if (!unread_.starts_with(kMarker)) {
        // No frame: passed on as it is.
        queue(std::exchange(unread_, {}));
        return;
      }
      const std::size_t size = kHeader + numberAt(unread_, kLengthAt);
      if (unread_.size() < size) {
        return;
      }
      frames_.push_back(unread_.substr(0, size));
      unread_.erase(0, size);
      pass(static_cast<std::uint32_t>(frames_.size() - 1), frames_.back());
    }
  }

  /// Frame number `index` has come.
  void pass(std::uint32_t index, std::string frame) {
    if (leftOut_.contains(index)) {
      return;
    }
    if (const Fault* fault = striking(FaultKind::swapType, index)) {
      setNumberAt(frame, kTypeAt, fault->amount);
    }
    if (const Fault* fault = striking(FaultKind::swapValue, index)) {
      frame = withValueSwapped(frame, fault->amount);
    }
    if (striking(FaultKind::reorder, index) != nullptr && index + 1 < foretold_.size()) {
      queue(foretold_[index + 1]);
      leftOut_.insert(index + 1);
    }
    if (const Fault* fault = striking(FaultKind::garbage, index)) {
      queue(garbageOf(*fault));
    }
    const Fault* split = find(FaultKind::split);
    const Fault* delay = striking(FaultKind::delay, index);
    const Fault* join = find(FaultKind::join);
    if (join != nullptr && index > join->at && !pieces_.empty() && pieces_.back().joins > 0) {
      Piece& piece = pieces_.back();
      piece.bytes += frame;
      piece.due = --piece.joins == 0 ? Clock::now() : piece.due;
    } else {
      queue(frame,
            delay == nullptr ? std::chrono::milliseconds(0) : std::chrono::milliseconds(delay->amount));
      pieces_.back().isSplit = split != nullptr && index >= split->at && index - split->at < split->amount;
      if (join != nullptr && index == join->at && join->amount > 1) {
        pieces_.back().joins = join->amount - 1;
        pieces_.back().due = std::max(pieces_.back().due, Clock::now() + kJoinPatience);
      }
    }
    if (const Fault* fault = find(FaultKind::repeat)) {
      if (fault->at == index) {
        repeated_ = frame;
      }
      if (fault->at + fault->amount == index) {
        queue(repeated_);
      }
    }
  }

  void queue(std::string bytes, std::chrono::milliseconds delay = {}) {
    pieces_.push_back({std::move(bytes), Clock::now() + delay});
  }

  /// False when nobody takes it.
  bool transmit(const Piece& piece) {
    const Fault* cut = find(FaultKind::cut);
    std::string bytes;
    for (char byte : piece.bytes) {
      if (isClosing()) {
        break;
      }
      for (const Fault& fault : plan_.faults) {
        if (fault.is(direction_, FaultKind::flip) && fault.at == offset_) {
          byte = static_cast<char>(byte ^ static_cast<char>(1U << (fault.amount % 8)));
        }
      }
      if (cut == nullptr || offset_ < cut->at || offset_ - cut->at >= cut->amount) {
        bytes.push_back(byte);
      }
      ++offset_;
    }
    const std::size_t step = piece.isSplit ? 1 : std::max<std::size_t>(bytes.size(), 1);
    for (std::size_t at = 0; at < bytes.size(); at += step) {
      if (!send(std::string_view(bytes).substr(at, step))) {
        return false;
      }
      if (piece.isSplit) {
        waitUntilRead();
      }
    }
    return true;
  }

  bool send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written = ::send(to_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (written <= 0) {
        return false;
      }
      delivered_.append(bytes.substr(0, static_cast<std::size_t>(written)));
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

  /// For a moment, in which a peer that reads does so.
  void waitUntilRead() const {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(1);
    int left = 0;
    while (ioctl(to_, SIOCOUTQ, &left) == 0 && left > 0 && Clock::now() < end) {
      sched_yield();
    }
  }

  const Direction direction_;
  const FaultPlan& plan_;
  const std::vector<std::string>& foretold_;
  const int from_;
  const int to_;
  std::string unread_;
  std::size_t bytesRead_ = 0;
  bool ended_ = false;
  std::vector<std::string> frames_;
  std::set<std::uint32_t> leftOut_;
  std::string repeated_;
  std::deque<Piece> pieces_;
  std::size_t offset_ = 0;  // in what goes out, with what is cut
  std::string delivered_;
};

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

  /// Waits until something comes, at most until then, and reads it. False at the end of the connection.
  bool transfer(const std::optional<Clock::time_point>& until, Clock::time_point& moved) {
    const auto events = [](const Stream& stream) {
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
  Stream requests_;
  Stream answers_;
  std::uint32_t early_ = 0;
  bool clientHasLeft_ = false;
};

/// Ends the connection for the client, and for the daemon once that has read and answered everything.
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

/// Two digits a byte; never empty, as the words of a line.
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
      continue;  // it came and went, as a client does that is closed while it waits to be served
    }
    if (plan.faults.empty()) {
      recorded_ = connection.frames();
    }
    return report;
  }
}

}  // namespace keldane::testing
