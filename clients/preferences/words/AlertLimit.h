// How often a person is told of the same thing.
#pragma once

#include <map>
#include <string>

namespace keldane {

/// Lets the same sentence through once a day. The window's thread.
class AlertLimit {
 public:
  /// Whether it may be told at this time, seconds of any clock that goes forward; then it counts as told.
  bool mayTell(const std::string& sentence, double now);

 private:
  std::map<std::string, double> told_;
};

}  // namespace keldane
