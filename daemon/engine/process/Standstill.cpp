#include "daemon/engine/process/Standstill.h"

#include <charconv>

namespace keldane {

namespace {

constexpr std::chrono::seconds kPatience(60);
constexpr std::string_view kStatus = R"({"message_type":"status")";
constexpr std::string_view kDone = R"("percent_done":)";
constexpr std::string_view kTotalBytes = R"("total_bytes":)";

}  // namespace

bool Standstill::isSeenIn(std::string_view line, Moment now) {
  const std::size_t done = line.find(kDone);
  if (!line.starts_with(kStatus) || done == std::string_view::npos || line.substr(done) != status_) {
    status_ = line.starts_with(kStatus) && done != std::string_view::npos ? line.substr(done) : "";
    since_ = now;
    if (const std::size_t total = line.find(kTotalBytes); total != std::string_view::npos) {
      const char* begin = line.data() + total + kTotalBytes.size();
      std::from_chars(begin, line.data() + line.size(), totalBytes_);
    }
    return false;
  }
  return now - since_ >= kPatience;
}

}  // namespace keldane
