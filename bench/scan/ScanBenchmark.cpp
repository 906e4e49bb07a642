// Scans a folder as the daemon does, and prints the cost.
//   bench-scan STORE FOLDER fresh|unchanged
// STORE is a file that is made here. With "fresh" nothing is stored, so every file becomes pending. With
// "unchanged" every file is first recorded as stored, which is not timed. Prints the seconds, the seconds of
// processor time, the pending files, and the bytes of memory for each of them.
#include <malloc.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "daemon/scan/Scanner.h"

namespace keldane {
namespace {

using Clock = std::chrono::steady_clock;

struct Look {
  double seconds = 0;
  double processor = 0;
  PendingFiles::Totals waiting;
};

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Look lookAt(Store& store, RuleBook& rules, const std::string& folder, PendingFiles& pending) {
  Watcher watcher([](const std::vector<Change>&) {});
  watcher.setPlaces([&rules] { return rules.places(); });
  watcher.start();
  Scanner scanner(store, rules, pending, &watcher);
  const std::atomic<bool> never = false;
  const double before = processorSeconds();
  const auto begin = Clock::now();
  scanner.scan(folder, never);
  const std::chrono::duration<double> took = Clock::now() - begin;
  return {took.count(), processorSeconds() - before, pending.totals()};
}

void storeAll(Store& store, const PendingFiles& pending) {
  std::vector<StoredFile> stored;
  pending.visit([&](const PendingFiles::File& file) {
    stored.push_back({file.path, fileStateOf(*statusOf(file.path))});
    return true;
  });
  store.addSnapshot({store.takeNumber(), "a snapshot", 1000, true, {}}, stored, {});
}

int run(const std::string& file, const std::string& folder, bool isUnchanged) {
  Store store(file);
  RuleBook rules(store, "/", {});
  rules.setRule(folder, true);
  if (isUnchanged) {
    PendingFiles pending;
    lookAt(store, rules, folder, pending);
    storeAll(store, pending);
  }
  PendingFiles pending;
  const Look look = lookAt(store, rules, folder, pending);
  const std::size_t before = mallinfo2().uordblks;
  pending.endScan("/", ~std::uint32_t{0});
  const auto freed = static_cast<double>(before - mallinfo2().uordblks);
  const auto files = look.waiting.files;
  std::printf("%.3f %.3f %llu %.1f\n", look.seconds, look.processor, static_cast<unsigned long long>(files),
              files == 0 ? 0.0 : freed / static_cast<double>(files));
  return 0;
}

}  // namespace
}  // namespace keldane

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("bench-scan STORE FOLDER fresh|unchanged\n", stderr);
    return 2;
  }
  try {
    return keldane::run(argv[1], argv[2], std::string(argv[3]) == "unchanged");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench-scan: %s\n", error.what());
    return 1;
  }
}
