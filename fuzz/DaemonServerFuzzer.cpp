// The daemon under a hostile client, with a socket, a store and a root of its own.
#include "daemon/server/DaemonServer.h"

#include <algorithm>

#include "fuzz/FrameStream.h"
#include "fuzz/plist/PropertyLists.h"
#include "platform/syslog/SystemLog.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/DaemonOptions.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

/// A request whose answer contains this word.
Bytes requestFor(const std::string& word) {
  Bytes bytes;
  const PropertyList elements = PropertyList::array({8, "@", "mappedUserAsString:", 1, "@", word});
  appendFrame(bytes, kRequestFrame, written(elements, Format::binary));
  return bytes;
}

struct Service {
  Service() {
    setLogReceiver([](std::string_view) {});
    folder.write("root/file.txt", "content");
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    options.socket = folder / "d.sock";
    options.store = folder / "store.sqlite";
    options.root = folder / "root";
    daemon = keldane::testing::recordingDaemon(options);
    DaemonOptions others = options;
    others.store = folder / "others.sqlite";
    others.data = folder / "others";
    untouched = keldane::testing::recordingDaemon(others);
    server = std::make_shared<DaemonServer>(daemon, options.socket);
    std::string error;
    require(server->start(&error), error.c_str());
  }
  ~Service() { server->stop(); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  keldane::testing::TemporaryFolder folder;
  DaemonOptions options;
  std::shared_ptr<Daemon> daemon;
  std::shared_ptr<Daemon> untouched;  // peers with rights do not use it
  std::shared_ptr<DaemonServer> server;
};

/// A connection as any program would open it.
Connection connected(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  Connection peer(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  require(::connect(peer.descriptor(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0,
          "the daemon accepts");
  return peer;
}

/// Reads everything up to the answer to a last request, and checks that it consists of whole frames.
void checkAnswers(const Connection& peer) {
  static int runs = 0;
  const std::string word = "run " + std::to_string(++runs);
  peer.write(requestFor(word));
  Bytes stream;
  for (;;) {
    const Bytes more = peer.read(20000);
    require(!more.empty(), "the daemon answers");
    append(stream, more.data(), more.size());
    const FrameStream answers(stream);
    bool answered = false;
    for (const Frame& frame : answers.frames) {
      require(frame.type == kResponseFrame || frame.type == kRequestFrame, "a frame has a meaning");
      const PropertyList value =
          frame.payload.empty() ? PropertyList() : readBack(frame.payload, Format::binary);
      answered = answered || (frame.type == kResponseFrame && value.string() == word);
    }
    if (answered && answers.missing == 0) {
      return;
    }
  }
}

/// The settings that only the daemon's own user may change.
PropertyList settings(Daemon& daemon) {
  PropertyList::Array values = {daemon.store().value(Store::Table::settings, "pausedUntil").value_or("")};
  for (const char* key : {"enabled", "includeRequired", "recoverMode", "lowerPriorityMode", "delayShutdown",
                          "automaticMode", "serviceState", "backupControl", "overQuotaTest"}) {
    values.emplace_back(daemon.setting(key));
  }
  values.emplace_back(daemon.rules().type(".txt"));
  values.emplace_back(daemon.store().value(Store::Table::profile, "UserEmail").value_or(""));
  return PropertyList::array(std::move(values));
}

/// Performs a request of a user without rights on this thread.
void askAsNobody(const std::shared_ptr<Daemon>& daemon, BytesView request) {
  const PropertyList before = settings(*daemon);
  static const auto share =
      std::make_shared<UserShare>(std::make_shared<WalkTurns>(1, 1), 0, nullptr, 0, nullptr);
  const auto service = std::make_shared<DaemonService>(daemon, PeerAccess({65534, 65534, {}}), share,
                                                       [](DaemonService::Subject, bool) {});
  const std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
  proxy->setDelegate(service);
  const Bytes payload(request.begin(), request.end());
  proxy->processData(&payload, kRequestFrame);
  require(settings(*daemon) == before, "without rights nothing is changed");
  require(service->dictionaryForPath("/etc/shadow", 0).isAbsent(), "without rights nothing is learnt");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Service service;
  static std::optional<Connection> peer;
  if (!peer) {
    peer = connected(service.options.socket);
  }
  Input input(data, size);
  Bytes stream;
  switch (input.below(3)) {
    case 0:
      appendFrame(stream, kRequestFrame, input.rest());
      break;
    case 1:
      stream.assign(input.rest().begin(), input.rest().end());
      break;
    default:
      askAsNobody(service.untouched, input.rest());
      return 0;
  }
  const bool ends = complete(stream);
  const std::vector<Frame> sent = FrameStream(stream).frames;
  peer->write(stream);
  // Unexpected answers and failure signals affect their own connection only.
  if (!ends || !std::all_of(sent.begin(), sent.end(),
                            [](const Frame& frame) { return frame.type == kRequestFrame; })) {
    peer = connected(service.options.socket);
  }
  checkAnswers(*peer);
  return 0;
}
