// How the repository stands, in plain words.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// The meaning of the daemon's word for the health, in the user's language. An unknown word is returned
/// in printable form.
std::string healthText(std::string_view health);

}  // namespace keldane
