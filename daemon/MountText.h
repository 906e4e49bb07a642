// The text of /proc/self/mountinfo.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Replaces the octal escapes, such as "\040", with which the kernel writes space, tab, line feed and
/// backslash.
inline std::string unescapedMountText(std::string_view text) {
  const auto isOctal = [](char letter) { return letter >= '0' && letter <= '7'; };
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
        isOctal(text[i + 3])) {
      plain.push_back(
          static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0')));
      i += 3;
    } else {
      plain.push_back(text[i]);
    }
  }
  return plain;
}

}  // namespace keldane
