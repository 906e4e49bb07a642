// How the repository stands, in plain words.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// What the daemon's word for it means, in the user's language; a word that is not known stands for itself.
std::string healthText(std::string_view health);

}  // namespace keldane
