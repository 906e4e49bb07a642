#include "clients/core/key/NewSecretFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "clients/core/words/Printable.h"
#include "platform/files/Descriptor.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  return fsync(descriptor) == 0;
}

}  // namespace

std::string writeNewSecretFile(const std::string& path, std::string_view text) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file && errno == EEXIST) {
    return filled(tr("%s is there already and is not overwritten."), printable(path));
  }
  if (!file || !writeAll(file.get(), text)) {
    const std::string reason = std::generic_category().message(errno);
    if (file) {
      unlink(path.c_str());
    }
    return filled(tr("The file %s cannot be written: %s."), printable(path), reason);
  }
  return {};
}

}  // namespace keldane
