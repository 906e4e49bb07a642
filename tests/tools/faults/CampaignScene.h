// What a campaign's menus are about: the reference daemon, and files with rules whose menus no longer change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/FourCharCode.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/tools/faults/ChildProcess.h"
#include "tests/tools/faults/MenuOracle.h"

namespace keldane::testing {

constexpr std::uint32_t kNoCommand = 0;
constexpr std::uint32_t kBackup = fourCharCode("r2d<");
constexpr std::uint32_t kExclude = fourCharCode("r2d=");

/// What a lane's menus are about. Its command changes nothing any more, so that each cycle finds what the one
/// before it found.
struct Subject {
  std::vector<std::string> paths;
  std::uint32_t command = kNoCommand;
  Titles menu;
};

constexpr std::size_t kSubjects = 8;

class Scene {
 public:
  /// Throws std::runtime_error when the daemon does not do what it is told.
  Scene();

  std::string socket() const { return folder_ / "d.sock"; }
  Subject subject(std::uint32_t cycle) const;
  /// Ends the daemon. Why it is not as it was before; empty when it is.
  std::string end();

 private:
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }
  /// Entries of a folder of the daemon's in /proc, of which the links lead to something that begins like
  /// this.
  std::ptrdiff_t count(const char* what, const char* beginning = "") const;
  bool setRules() const;

  TemporaryFolder folder_;
  Process daemon_;
  std::ptrdiff_t threads_ = 0;
  std::ptrdiff_t descriptors_ = 0;
};

}  // namespace keldane::testing
