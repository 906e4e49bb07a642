// The resources of two processes at intervals, and whether they stay the same.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace keldane::soak {

/// The resources of one process.
struct Holdings {
  long resident = 0;  ///< KiB
  long heap = 0;      ///< KiB in use, which only a process itself can tell; otherwise 0
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

/// Sentences about resources that have grown; none when all is well. The first third of the samples is
/// warm-up. After it, threads and descriptors must be those of the very first sample. Memory varies by
/// itself, so the median of the last third may exceed that of the second third: by 1 % and 64 KiB for the
/// heap, by 1 % and 512 KiB for resident memory. Memory is not compared when `withMemory` is false, because
/// sanitizers keep freed memory.
std::vector<std::string> findings(const std::vector<Sample>& samples, bool withMemory);

}  // namespace keldane::soak
