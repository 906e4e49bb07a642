#include "clients/core/key/QrCode.h"

#include <qrencode.h>

#include <memory>
#include <stdexcept>

namespace keldane {

QrCode::QrCode(const std::string& text) {
  // The library itself chooses the shorter encoding for capitals and digits.
  const std::unique_ptr<QRcode, void (*)(QRcode*)> code(
      text.empty() ? nullptr : QRcode_encodeString(text.c_str(), 0, QR_ECLEVEL_M, QR_MODE_8, 1), QRcode_free);
  if (!code) {
    throw std::runtime_error("The text cannot be made a QR code.");
  }
  size_ = static_cast<std::size_t>(code->width);
  for (std::size_t i = 0; i < size_ * size_; ++i) {
    dark_.push_back((code->data[i] & 1U) != 0);
  }
}

bool QrCode::isDark(std::size_t column, std::size_t row) const {
  return column < size_ && row < size_ && dark_[row * size_ + column];
}

std::vector<std::string> QrCode::lines(bool blocks) const {
  const std::size_t whole = size_ + 2 * kMargin;
  // `x` and `y` include the margin. Left of the code or above it, the subtraction wraps round to a large
  // number, which is light.
  const auto dark = [&](std::size_t x, std::size_t y) { return isDark(x - kMargin, y - kMargin); };
  std::vector<std::string> lines;
  for (std::size_t y = 0; y < whole; y += blocks ? 2 : 1) {
    std::string line;
    for (std::size_t x = 0; x < whole; ++x) {
      if (blocks) {
        const bool above = dark(x, y), below = dark(x, y + 1);
        line += above && below ? "█" : above ? "▀" : below ? "▄" : " ";
      } else {
        line += dark(x, y) ? "##" : "  ";
      }
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace keldane
