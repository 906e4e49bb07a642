// Removes secrets from texts that people read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "daemon/engine/RepositoryConfig.h"

namespace keldane {

/// Knows a repository's secrets and removes them from texts. Immutable, so any thread may use it.
class Secrets {
 public:
  Secrets() = default;
  /// The secrets are the key, the users and passwords in the location, and every value of the environment
  /// that is not known to be harmless.
  Secrets(const RepositoryConfig& configuration, const std::string& key,
          const std::map<std::string, std::string>& environment);
  void add(const std::string& secret);
  void add(const Secrets& others);

  /// The text on one line, with "…" in place of each secret and of the part before an @ in a URL.
  std::string scrubbed(std::string_view text) const;

 private:
  std::vector<std::string> secrets_;  // the longest first
};

}  // namespace keldane
