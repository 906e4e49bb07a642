#include "clients/preferences/words/BackupTimes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

namespace keldane {

BackupTimes::BackupTimes(std::vector<double> times, double now) : times_(std::move(times)), now_(now) {
  std::erase_if(times_, [&](double time) { return time >= now_; });
}

double BackupTimes::upTo(double time) const {
  const auto after = std::upper_bound(times_.begin(), times_.end(), time);
  return after == times_.begin() ? begin() : *(after - 1);
}

double BackupTimes::nearest(double time) const {
  const auto after = std::lower_bound(times_.begin(), times_.end(), time);
  const double later = after == times_.end() ? now_ : *after;
  if (after == times_.begin()) {
    return later;
  }
  const double earlier = *(after - 1);
  return time - earlier <= later - time ? earlier : later;
}

double BackupTimes::stepped(double time, int steps) const {
  const auto size = static_cast<std::ptrdiff_t>(times_.size());
  const std::ptrdiff_t at = std::lower_bound(times_.begin(), times_.end(), nearest(time)) - times_.begin();
  const std::ptrdiff_t place = std::clamp<std::ptrdiff_t>(at + steps, 0, size);
  return place == size ? now_ : times_[static_cast<std::size_t>(place)];
}

std::vector<double> BackupTimes::marks(std::size_t most) const {
  std::vector<double> marks;
  const double gap = (now_ - begin()) / static_cast<double>(std::max<std::size_t>(1, most));
  for (const double time : times_) {
    if (marks.empty() || time - marks.back() >= gap) {
      marks.push_back(time);
    }
  }
  return marks;
}

std::string exactTimeText(double time) {
  const auto seconds = static_cast<std::time_t>(std::ceil(time));
  std::tm local{};
  std::array<char, 64> text{};
  return localtime_r(&seconds, &local) != nullptr &&
                 std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local) > 0
             ? text.data()
             : std::string();
}

}  // namespace keldane
