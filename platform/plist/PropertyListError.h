// The exception with which the readers and writers of this folder report an error.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace keldane {

/// Thrown inside the readers and writers only. It is turned into an error text before it reaches a caller.
class PropertyListError : public std::runtime_error {
 public:
  explicit PropertyListError(const std::string& sentence) : std::runtime_error(sentence) {}
  PropertyListError(const std::string& what, std::size_t offset)
      : std::runtime_error(what + " at byte offset " + std::to_string(offset)) {}
};

}  // namespace keldane
