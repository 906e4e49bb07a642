#include "daemon/engine/restic/program/ResticProgram.h"

#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <optional>

#include "daemon/engine/process/ChildProcess.h"
#include "daemon/engine/restic/output/ResticFailure.h"

namespace keldane {
namespace {

constexpr unsigned kOldestMinor = 14;

bool isProgram(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

/// The path of the program; empty when there is none.
std::string locatedProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    return name.starts_with('/') && isProgram(name) ? name : std::string();
  }
  const std::string folders = childEnvironment({})["PATH"];
  for (std::size_t begin = 0; begin <= folders.size();) {
    const std::size_t end = std::min(folders.find(':', begin), folders.size());
    const std::string path = folders.substr(begin, end - begin) + "/" + name;
    if (path.starts_with('/') && isProgram(path)) {
      return path;
    }
    begin = end + 1;
  }
  return {};
}

/// The minor version: 14 for "restic 0.14.0 compiled with …".
std::optional<unsigned> minorVersion(const std::string& line) {
  constexpr std::string_view kName = "restic ";
  unsigned numbers[2] = {0, 0};
  const char* const end = line.data() + line.size();
  const char* at = line.data() + kName.size();
  if (!line.starts_with(kName)) {
    return std::nullopt;
  }
  for (unsigned& number : numbers) {
    const std::from_chars_result result = std::from_chars(at, end, number);
    if (result.ec != std::errc()) {
      return std::nullopt;
    }
    at = result.ptr < end ? result.ptr + 1 : end;
  }
  return numbers[0] > 0 ? 999 : numbers[1];
}

}  // namespace

ResticProgram::Found ResticProgram::find(EngineJob& job) {
  Found found;
  found.path = locatedProgram(name_);
  struct stat status {};
  if (found.path.empty() || ::stat(found.path.c_str(), &status) != 0) {
    found.answer = answerFor(Health::engineMissing);
    return found;
  }
  const Identity identity{found.path, status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec,
                          status.st_size};
  {
    const ScopedLock lock(mutex_);
    if (identity == known_) {
      return found_;
    }
  }
  std::string version;
  ChildCommand command;
  command.arguments = {found.path, "version"};
  command.environment = childEnvironment({});
  command.outputLine = [&](std::string_view line) {
    version = version.empty() ? std::string(line) : version;
  };
  const ChildEnd end = runChild(command, job);
  found.answer = judgedEnd(end, end.errorText, Secrets());
  if (!found.answer) {
    return found;
  }
  const std::optional<unsigned> minor = minorVersion(version);
  found.minor = minor.value_or(0);
  if (!minor || *minor < kOldestMinor) {
    found.answer =
        answerFor(Health::engineTooOld, Secrets().scrubbed(version.substr(0, version.find(" compiled"))));
  }
  const ScopedLock lock(mutex_);
  known_ = identity;
  found_ = found;
  return found;
}

}  // namespace keldane
