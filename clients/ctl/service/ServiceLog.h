// The log of a daemon without a journal.
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/files/Descriptor.h"

namespace keldane {

/// A file of at most one megabyte that only its owner can read; the file before it is kept with ".1" at its
/// name. Text that cannot be written is lost. Used on one thread.
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
