// The daemon's sentences in the user's language.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Translates a sentence or a state of the daemon, such as "Backed up". The daemon always answers in English,
/// because it serves users of several languages and programs compare its texts. An unknown text is returned
/// unchanged. Any thread may call it.
std::string daemonText(std::string_view text);

}  // namespace keldane
