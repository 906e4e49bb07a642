#include "clients/preferences/words/ServerPlace.h"

#include "clients/core/place/Location.h"

namespace keldane {

namespace {

enum : std::size_t { kSftp, kRest, kS3 };

ServerPlace restPlace(std::string url, const std::string& user, const std::string& password) {
  constexpr std::string_view kKind = "rest:";
  url = url.starts_with(kKind) ? url.substr(kKind.size()) : url;
  std::string location = "rest:" + (url.find("://") == std::string::npos ? "https://" + url : url);
  if (!user.empty()) {
    location.insert(location.find("://") + 3, user + "@");
    location = withPassword(location, password);
  }
  return {location, {}};
}

}  // namespace

ServerPlace serverPlace(std::size_t kind, const std::vector<std::string>& fields, const std::string& secret,
                        std::string& problem) {
  problem.clear();
  const std::string first = fields.empty() ? "" : fields[0], second = fields.size() < 2 ? "" : fields[1];
  if (first.empty() || ((kind == kSftp || kind == kS3) && second.empty()) ||
      (kind == kS3 && secret.empty())) {
    problem = tr("Please fill in all that the server needs.");
    return {};
  }
  switch (kind) {
    case kSftp:
      return {"sftp:" + first + ":" + second, {}};
    case kRest:
      return restPlace(first, second, secret);
    case kS3:
      return {"s3:" + first, {{"AWS_ACCESS_KEY_ID", second}, {"AWS_SECRET_ACCESS_KEY", secret}}};
    default:
      if (isFolder(first)) {
        problem = tr("This is no place on a server: it begins with its kind, such as sftp: or rest:.");
      }
      return {first, {}};
  }
}

}  // namespace keldane
