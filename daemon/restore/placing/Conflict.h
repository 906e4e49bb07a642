// The treatment of an item that is already at the place of a restored file.
#pragma once

#include <cstdint>

namespace keldane {

/// `keepBoth` gives the restored file another name, `replace` puts it in the place of a file or link (never
/// of a folder), `skip` leaves it out.
enum class Conflict : std::uint32_t { keepBoth = 0, replace = 1, skip = 2 };

}  // namespace keldane
