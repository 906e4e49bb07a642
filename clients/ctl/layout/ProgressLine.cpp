#include "clients/ctl/layout/ProgressLine.h"

#include <algorithm>

#include "clients/core/words/Units.h"
#include "clients/ctl/layout/Text.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kNarrowestPath = 12, kNarrowestBar = 6;

}  // namespace

void FittedLine::add(const std::string& part) {
  const std::size_t columns = columnsOf(part) + (text_.empty() ? 0 : 2);
  if (!part.empty() && columns <= left_) {
    text_ += (text_.empty() ? "" : "  ") + part;
    left_ -= columns;
  }
}

void FittedLine::addBar(double fraction) {
  const std::string percent = std::to_string(static_cast<int>(fraction * 100)) + "%";
  const std::size_t columns = std::min(kWidestBar, left_ / 4);
  add((columns < kNarrowestBar ? "" : bar(fraction, columns) + ' ') + rightAligned(percent, 4));
}

void FittedLine::addPath(const std::string& path) {
  if (!path.empty() && left_ >= kNarrowestPath + 2) {
    add(lastColumns(path, left_ - 2));
  }
}

std::string rateText(const BackupProgress& progress) {
  const auto left = progress.timeLeft();
  return !left || progress.filesPerSecond() <= 0
             ? std::string()
             : filled(tr("%s/s, %s left"), bytesText(static_cast<std::uint64_t>(progress.bytesPerSecond())),
                      durationText(*left));
}

}  // namespace keldane
