// The scene of a campaign: the daemon, and files with rules whose menus no longer change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"
#include "tests/tools/faults/CommandOracle.h"
#include "tests/tools/faults/MenuOracle.h"
#include "tests/tools/faults/campaign/ChildProcess.h"

namespace keldane::testing {

/// The files and the commands of a lane. "As soon as possible" is undone after it was chosen, and the other
/// commands change nothing any more. So each cycle finds the state that the one before it found.
struct Subject {
  std::vector<std::string> paths;
  std::vector<std::uint32_t> commands;
  Titles menu;
};

constexpr std::size_t kSubjects = 8;

class Scene {
 public:
  /// Makes files for `lanes` lanes. The remainders of a cycle's number by `lanes` and kSubjects give its lane
  /// and its subject. Throws std::runtime_error when the daemon does not do what it is told.
  explicit Scene(std::uint32_t lanes);

  std::string socket() const { return folder_ / "d.sock"; }
  Subject subject(std::uint32_t cycle) const;
  /// Ends the daemon. Returns a sentence when its threads or descriptors differ from those at the start;
  /// empty when not.
  std::string end();

 private:
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }
  /// A file that only this lane uses.
  std::string fileOf(std::uint32_t lane, const std::string& name) const;
  /// The number of entries in a folder of the daemon's in /proc whose links lead to something that begins
  /// with `beginning`.
  std::ptrdiff_t count(const char* what, const char* beginning = "") const;
  bool setRules() const;

  const std::uint32_t lanes_;
  TemporaryFolder folder_;
  Process daemon_;
  std::ptrdiff_t threads_ = 0;
  std::ptrdiff_t descriptors_ = 0;
};

}  // namespace keldane::testing
