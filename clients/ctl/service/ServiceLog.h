// The log of a daemon that has no journal to write to.
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/files/Descriptor.h"

namespace keldane {

/// A file of at most a megabyte, readable to its owner alone; the one before it is kept with ".1" at its
/// name. What cannot be written is lost. One thread.
class ServiceLog {
 public:
  explicit ServiceLog(std::filesystem::path file, std::size_t largest = std::size_t{1} << 20);
  void write(std::string_view text);

 private:
  void open();

  const std::filesystem::path file_;
  const std::size_t largest_;
  std::size_t size_ = 0;
  Descriptor descriptor_;
};

}  // namespace keldane
