#include "tests/soak/Samples.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>
#include <utility>

namespace keldane::soak {

namespace {

constexpr std::size_t kFewestSamples = 6;
constexpr long kSharePercent = 1;
constexpr long kHeapMargin = 64;       // KiB
constexpr long kResidentMargin = 512;  // KiB; the allocator's pools and the page cache of a database vary

long entriesOf(const std::filesystem::path& folder) {
  std::error_code error;
  const std::filesystem::directory_iterator first(folder, error);
  return error ? 0 : static_cast<long>(std::distance(first, std::filesystem::directory_iterator()));
}

using Quantity = std::function<long(const Sample&)>;

long medianOf(std::span<const Sample> samples, const Quantity& quantity) {
  std::vector<long> values(samples.size());
  std::transform(samples.begin(), samples.end(), values.begin(), quantity);
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

Holdings Holdings::of(pid_t process) {
  const std::filesystem::path place = std::filesystem::path("/proc") / std::to_string(process);
  Holdings holdings;
  std::ifstream memory(place / "statm");
  long size = 0;
  memory >> size >> holdings.resident;
  holdings.resident *= sysconf(_SC_PAGESIZE) / 1024;
  holdings.threads = entriesOf(place / "task");
  holdings.descriptors = entriesOf(place / "fd");
  return holdings;
}

Holdings Holdings::ofThisProcess() {
  Holdings holdings = of(getpid());
  const struct mallinfo2 heap = mallinfo2();
  holdings.heap = static_cast<long>((heap.uordblks + heap.hblkhd) / 1024);
  return holdings;
}

std::string tableHeading() {
  return "                     |              host               |        daemon\n"
         " seconds       steps | resident     heap  thr.  desc.  | resident  thr.  desc.\n"
         "                     |      KiB      KiB               |      KiB";
}

std::string tableLine(const Sample& sample) {
  char line[200];
  std::snprintf(line, sizeof(line), "%8.1f %11llu | %8ld %8ld %5ld %6ld  | %8ld %5ld %6ld", sample.seconds,
                static_cast<unsigned long long>(sample.steps), sample.host.resident, sample.host.heap,
                sample.host.threads, sample.host.descriptors, sample.daemon.resident, sample.daemon.threads,
                sample.daemon.descriptors);
  return line;
}

std::vector<std::string> findings(const std::vector<Sample>& samples, bool withMemory) {
  std::vector<std::string> found;
  if (samples.size() < kFewestSamples) {
    return {"There are " + std::to_string(samples.size()) + " samples, which are too few to tell anything."};
  }
  const std::size_t third = samples.size() / 3;
  const std::span<const Sample> all(samples);

  const std::pair<const char*, Quantity> counts[] = {
      {"threads of the host", [](const Sample& sample) { return sample.host.threads; }},
      {"descriptors of the host", [](const Sample& sample) { return sample.host.descriptors; }},
      {"threads of the daemon", [](const Sample& sample) { return sample.daemon.threads; }},
      {"descriptors of the daemon", [](const Sample& sample) { return sample.daemon.descriptors; }}};
  for (const auto& [name, quantity] : counts) {
    const long first = quantity(samples.front());
    for (const Sample& sample : all.subspan(third)) {
      if (quantity(sample) != first) {
        found.push_back("The " + std::string(name) + " were " + std::to_string(first) + " and are " +
                        std::to_string(quantity(sample)) + " after " + std::to_string(sample.seconds) +
                        " seconds.");
        break;
      }
    }
  }

  const struct {
    const char* name;
    Quantity quantity;
    long margin;
  } memory[] = {{"heap of the host", [](const Sample& sample) { return sample.host.heap; }, kHeapMargin},
                {"resident memory of the host", [](const Sample& sample) { return sample.host.resident; },
                 kResidentMargin},
                {"resident memory of the daemon", [](const Sample& sample) { return sample.daemon.resident; },
                 kResidentMargin}};
  for (const auto& [name, quantity, margin] : memory) {
    const long before = medianOf(all.subspan(third, third), quantity);
    const long after = medianOf(all.last(third), quantity);
    if (withMemory && after > before + before * kSharePercent / 100 + margin) {
      found.push_back("The " + std::string(name) + " grew from " + std::to_string(before) + " to " +
                      std::to_string(after) + " KiB.");
    }
  }
  return found;
}

}  // namespace keldane::soak
