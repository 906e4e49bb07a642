// The desktop's key ring.
#pragma once

#include <functional>
#include <string>

namespace keldane {

/// Puts the key into the user's key ring, in place of one that is there for the same repository. `then` is
/// called on this thread with a sentence about what went wrong, empty when nothing did.
void storeInKeyRing(const std::string& key, const std::string& repositoryId, const std::string& label,
                    std::function<void(const std::string& problem)> then);

}  // namespace keldane
