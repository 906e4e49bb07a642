// What two processes hold at intervals, and whether it stays.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace keldane::soak {

/// What one process holds.
struct Holdings {
  long resident = 0;  ///< KiB
  long heap = 0;      ///< KiB in use, which only a process itself can tell; else 0
  long threads = 0;
  long descriptors = 0;

  static Holdings ofThisProcess();
  static Holdings of(pid_t process);
  bool sameThreadsAndDescriptors(const Holdings& other) const {
    return threads == other.threads && descriptors == other.descriptors;
  }
};

/// Taken while nothing is under way: no menu is open, and no client is connected.
struct Sample {
  double seconds = 0;  ///< since the start
  std::uint64_t steps = 0;
  Holdings host, daemon;
};

/// A heading, and a line for each sample.
std::string tableHeading();
std::string tableLine(const Sample& sample);

/// What did not stay, in sentences; none when all is well. The first third of the samples is warm-up. From
/// there on threads and descriptors must be those of the first sample of all. Of memory, which goes up and
/// down by itself, the median of the last third may be above that of the second by 1 % and 64 KiB of the
/// heap, or 1 % and 512 KiB of what is resident, unless `withMemory` is false: sanitizers keep what was
/// freed.
std::vector<std::string> findings(const std::vector<Sample>& samples, bool withMemory);

}  // namespace keldane::soak
