// The program's texts in the user's language.
#pragma once

#include "platform/text/Translation.h"

namespace keldane {

/// The catalogue of the window's own texts.
inline constexpr char kPreferencesCatalogue[] = "keldane-preferences";

}  // namespace keldane
