#include "daemon/engine/BackupEngine.h"

#include <fcntl.h>
#include <nettle/sha2.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <span>
#include <vector>

#include "daemon/backup/FileFacts.h"
#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 17;

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

}  // namespace

std::optional<BackupRecord> RecordingEngine::backUp(const std::string& path, BackupJob& job) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  sha256_ctx digest;
  sha256_init(&digest);
  std::vector<std::uint8_t> block(kBlock);
  for (;;) {
    const ssize_t got = read(file.get(), block.data(), block.size());
    if (job.cancelled || (got < 0 && errno != EINTR)) {
      return std::nullopt;
    }
    if (got < 0) {
      continue;
    }
    if (got == 0) {
      break;
    }
    sha256_update(&digest, static_cast<std::size_t>(got), block.data());
    job.bytesDone += static_cast<std::uint64_t>(got);
  }
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> value{};
  sha256_digest(&digest, value.size(), value.data());
  BackupRecord record;
  record.size = static_cast<std::uint64_t>(status.st_size);
  record.modified = modificationTime(status);
  record.date = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  record.digest = hexadecimal(value);
  return record;
}

}  // namespace keldane
