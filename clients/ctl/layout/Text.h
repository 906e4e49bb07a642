// Text that fits where it is shown.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "clients/core/words/Printable.h"

namespace keldane {

/// Columns that printable text takes on a terminal: two for a wide character, none for a combining one.
std::size_t columnsOf(std::string_view text);
/// The text, filled up with blanks to this width.
std::string padded(const std::string& text, std::size_t columns);
std::string rightAligned(const std::string& text, std::size_t columns);
/// The end of a text that is too wide, after "…"; the end of a path tells most.
std::string lastColumns(std::string_view text, std::size_t columns);
/// A bar of this width in brackets, filled from the left by a part from 0 to 1, in characters that the locale
/// has.
std::string bar(double fraction, std::size_t columns);

}  // namespace keldane
