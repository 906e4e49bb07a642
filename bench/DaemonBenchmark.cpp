// The daemon under many clients, and with a large folder. The clients are sockets of one thread. Each has one
// question under way at all times, so more clients mean more work for the daemon.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "Common/transport/KeldSocket.h"
#include "bench/peers/Floor.h"
#include "tests/support/Samples.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/PeerProcess.h"

namespace keldane::bench {
namespace {

using namespace keldane::testing;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kHeaderSize = kFrameMarker.size() + 8;
constexpr int kEntries = 100000;

Bytes questionAbout(const char* selector, const std::string& path, bool withDirSizes) {
  PropertyList::Array values = {8U, "@", selector, withDirSizes ? 2U : 1U, "@", path};
  if (withDirSizes) {
    values.insert(values.end(), {"c", 0});
  }
  const Bytes payload = bytesOf(PropertyList::array(values), PropertyListSerialization::Format::binary);
  Bytes frame(kFrameMarker.begin(), kFrameMarker.end());
  for (const std::uint32_t word : {1U, static_cast<std::uint32_t>(payload.size())}) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&word);
    frame.insert(frame.end(), bytes, bytes + sizeof(word));
  }
  frame.insert(frame.end(), payload.begin(), payload.end());
  return frame;
}

/// One connection.
class Client {
 public:
  explicit Client(const std::string& path) : socket_(connectTo(path)) {}
  int descriptor() const { return socket_.get(); }

  void ask(const Bytes& question) {
    received_ = 0;
    asked_ = Clock::now();
    if (::send(socket_.get(), question.data(), question.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(question.size())) {
      throw std::runtime_error("The daemon does not listen.");
    }
  }
  /// Reads the bytes that have come. Returns whether the answer is complete.
  bool read() {
    char part[65536];
    const ssize_t got = ::read(socket_.get(), part, sizeof(part));
    if (got < 1) {
      throw std::runtime_error("The daemon has hung up.");
    }
    // The header is at the beginning of the answer, however the pieces are cut.
    for (ssize_t i = 0; i < got && received_ + static_cast<std::size_t>(i) < kHeaderSize; ++i) {
      header_[received_ + static_cast<std::size_t>(i)] = part[i];
    }
    received_ += static_cast<std::size_t>(got);
    if (received_ < kHeaderSize) {
      return false;
    }
    std::uint32_t length = 0;
    std::memcpy(&length, header_ + kHeaderSize - sizeof(length), sizeof(length));
    return received_ == kHeaderSize + length;
  }
  std::size_t received() const { return received_; }
  double microseconds() const {
    return std::chrono::duration<double, std::micro>(Clock::now() - asked_).count();
  }

 private:
  Descriptor socket_;
  char header_[kHeaderSize] = {};
  std::size_t received_ = 0;
  Clock::time_point asked_;
};

/// The daemon, with a folder of many files under its root.
class Scene {
 public:
  static Scene& shared() {
    static Scene scene;
    return scene;
  }
  std::string socket() const { return folder_ / "d.sock"; }
  std::string files() const { return folder_ / "files"; }
  static std::string name(int i) { return "Quarterly report " + std::to_string(i) + ".odt"; }

 private:
  Scene() {
    for (int i = 0; i < kEntries; ++i) {
      if (i == 0) {
        folder_.write("files/" + name(i), "text");
      } else {
        std::ofstream(files() + "/" + name(i)) << i;
      }
    }
    daemon_ = std::make_unique<PeerProcess>(
        std::vector<std::string>{KELDANED_PROGRAM, "--foreground", "--socket", socket(), "--store",
                                 folder_ / "store", "--root", files()},
        socket());
  }
  TemporaryFolder folder_;
  std::unique_ptr<PeerProcess> daemon_;
};

void manyClients(benchmark::State& state) {
  const Scene& scene = Scene::shared();
  constexpr std::size_t kCalls = 5000;
  std::vector<std::unique_ptr<Client>> clients;
  std::vector<Bytes> questions;
  std::vector<pollfd> polled;
  for (int i = 0; i < state.range(0); ++i) {
    clients.push_back(std::make_unique<Client>(scene.socket()));
    questions.push_back(
        questionAbout("dictionaryForPath:withDirSizes:", scene.files() + "/" + Scene::name(i), true));
    polled.push_back({clients.back()->descriptor(), POLLIN, 0});
  }
  std::vector<double> times;
  times.reserve(kCalls + clients.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < clients.size(); ++i) {
      clients[i]->ask(questions[i]);
    }
    std::size_t waiting = clients.size();
    while (waiting > 0) {
      ::poll(polled.data(), polled.size(), -1);
      for (std::size_t i = 0; i < clients.size(); ++i) {
        if (polled[i].revents != 0 && clients[i]->read()) {
          times.push_back(clients[i]->microseconds());
          if (times.size() + waiting <= kCalls) {
            clients[i]->ask(questions[i]);
          } else {
            --waiting;
          }
        }
      }
    }
  }
  std::sort(times.begin(), times.end());
  const auto percentile = [&](double part) {
    return times[std::min(times.size() - 1,
                          static_cast<std::size_t>(part * static_cast<double>(times.size())))];
  };
  state.SetItemsProcessed(static_cast<std::int64_t>(times.size()));
  state.counters["p50"] = percentile(0.5);
  state.counters["p99"] = percentile(0.99);
  state.counters["p99.9"] = percentile(0.999);
}

void listing(benchmark::State& state) {
  const Scene& scene = Scene::shared();
  Client client(scene.socket());
  const Bytes question = questionAbout("childrenDictionariesForPath:", scene.files(), false);
  for (auto _ : state) {
    client.ask(question);
    while (!client.read()) {
    }
  }
  state.counters["bytes"] = static_cast<double>(client.received());
}

BENCHMARK(manyClients)
    ->Name("daemon/clients")
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Arg(500)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(listing)
    ->Name("daemon/children100000")
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace keldane::bench

BENCHMARK_MAIN();
