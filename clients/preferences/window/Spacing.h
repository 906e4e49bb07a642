// How far widgets stand apart.
#pragma once

namespace keldane {

/// Pixels between what belongs together; the window's own parts stand twice as far apart.
constexpr int kGap = 6;

}  // namespace keldane
