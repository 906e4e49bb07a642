// What the daemon says to people, in the user's language.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// A sentence or a state of the daemon's ("Backed up"), which are in English whoever asks: one daemon serves
/// users of several languages, and programs compare them. What is not known stays as it is. Any thread.
std::string daemonText(std::string_view text);

}  // namespace keldane
