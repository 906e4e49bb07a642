// Checks numbers on a command line. Its message gives the bounds in plain digits.
#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <string>

#include "platform/text/Translation.h"

namespace keldane {

/// Accepts a number from `least` to `most`, both included.
inline CLI::Validator numberFrom(std::int64_t least, std::int64_t most) {
  return CLI::Validator(
      [=](const std::string& text) {
        double number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        const bool isNumber = error == std::errc() && end == text.data() + text.size();
        return isNumber && number >= static_cast<double>(least) && number <= static_cast<double>(most)
                   ? std::string()
                   : filled(tr("%s is not a number from %s to %s"), text, std::to_string(least),
                            std::to_string(most));
      },
      "");
}

}  // namespace keldane
