// Keeps secrets out of what people read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "daemon/engine/RepositoryConfig.h"

namespace keldane {

/// Knows a repository's secrets and takes them out of texts. Immutable; any thread.
class Secrets {
 public:
  Secrets() = default;
  /// The key, what the location has of users and passwords, and every value of the environment that is no
  /// known harmless one.
  Secrets(const RepositoryConfig& configuration, const std::string& key,
          const std::map<std::string, std::string>& environment);
  void add(const std::string& secret);
  void add(const Secrets& others);

  /// The text on one line, with "…" for each secret and for whatever stands before an @ in a URL.
  std::string scrubbed(std::string_view text) const;

 private:
  std::vector<std::string> secrets_;  // the longest first
};

}  // namespace keldane
