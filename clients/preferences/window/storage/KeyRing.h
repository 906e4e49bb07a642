// The desktop's key ring.
#pragma once

#include <functional>
#include <string>

namespace keldane {

/// Puts the key into the user's key ring and replaces an entry for the same repository. `then` is called on
/// this thread with a sentence about the failure, which is empty on success.
void storeInKeyRing(const std::string& key, const std::string& repositoryId, const std::string& label,
                    std::function<void(const std::string& problem)> then);

}  // namespace keldane
