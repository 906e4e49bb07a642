// What a campaign's menus are about: the reference daemon, and files with rules whose menus no longer change.
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

/// What a lane's menus are about. Of its commands, "as soon as possible" is taken back after it was chosen
/// and the others change nothing any more, so that each cycle finds what the one before it found.
struct Subject {
  std::vector<std::string> paths;
  std::vector<std::uint32_t> commands;
  Titles menu;
};

constexpr std::size_t kSubjects = 8;

class Scene {
 public:
  /// Has files for that many lanes; lane and subject of a cycle are its remainders by `lanes` and kSubjects.
  /// Throws std::runtime_error when the daemon does not do what it is told.
  explicit Scene(std::uint32_t lanes);

  std::string socket() const { return folder_ / "d.sock"; }
  Subject subject(std::uint32_t cycle) const;
  /// Ends the daemon. Why it is not as it was before; empty when it is.
  std::string end();

 private:
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }
  /// A file that nobody else's menus are about.
  std::string fileOf(std::uint32_t lane, const std::string& name) const;
  /// Entries of a folder of the daemon's in /proc, of which the links lead to something that begins like
  /// this.
  std::ptrdiff_t count(const char* what, const char* beginning = "") const;
  bool setRules() const;

  const std::uint32_t lanes_;
  TemporaryFolder folder_;
  Process daemon_;
  std::ptrdiff_t threads_ = 0;
  std::ptrdiff_t descriptors_ = 0;
};

}  // namespace keldane::testing
