#include "clients/ctl/service/ServiceLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace keldane {

namespace fs = std::filesystem;

ServiceLog::ServiceLog(fs::path file, std::size_t largest) : file_(std::move(file)), largest_(largest) {
  std::error_code error;
  fs::create_directories(file_.parent_path(), error);
  open();
}

void ServiceLog::open() {
  descriptor_ =
      Descriptor(::open(file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
  struct stat status {};
  size_ = fstat(descriptor_.get(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

void ServiceLog::write(std::string_view text) {
  if (size_ > 0 && size_ + text.size() > largest_) {
    std::error_code error;
    fs::rename(file_, fs::path(file_).concat(".1"), error);
    open();
  }
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor_.get(), text.data(), text.size());
    if (written > 0) {
      size_ += static_cast<std::size_t>(written);
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace keldane
