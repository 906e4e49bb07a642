#include "daemon/BackupEngine.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <vector>

#include "daemon/FileFacts.h"
#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 17;

std::string hexadecimal(const unsigned char* bytes, unsigned int count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace

std::optional<BackupRecord> RecordingEngine::backUp(const std::string& path,
                                                    const std::atomic<bool>& cancelled) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  if (!digest || EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) != 1) {
    return std::nullopt;
  }
  std::vector<unsigned char> block(kBlock);
  for (;;) {
    const ssize_t got = read(file.get(), block.data(), block.size());
    if (got < 0 || cancelled) {
      return std::nullopt;
    }
    if (got == 0) {
      break;
    }
    EVP_DigestUpdate(digest.get(), block.data(), static_cast<std::size_t>(got));
  }
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(digest.get(), value, &length);
  BackupRecord record;
  record.size = static_cast<std::uint64_t>(status.st_size);
  record.modified = modificationTime(status);
  record.date = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  record.digest = hexadecimal(value, length);
  return record;
}

}  // namespace keldane
