#include "daemon/engine/restic/output/ResticFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "daemon/engine/restic/Glob.h"

namespace keldane {
namespace {

constexpr int kInterrupted = 130;  // the exit status after SIGINT, in all versions

struct Sign {
  std::string_view text;  // lower case
  Health health;
};

/// The first text that is found decides, so the more certain ones come first. Old versions report most
/// failures by text only.
constexpr auto kSigns = std::to_array<Sign>({
    {"repository is already locked", Health::locked},
    {"wrong password or no key found", Health::wrongKey},
    {"no space left on device", Health::full},
    {"disk quota exceeded", Health::full},
    {"quotaexceeded", Health::full},
    {"insufficient storage", Health::full},
    {"storage limit exceeded", Health::full},
    {"(507)", Health::full},
    {"permission denied", Health::denied},
    {"operation not permitted", Health::denied},
    {"read-only file system", Health::denied},
    {"access denied", Health::denied},
    {"accessdenied", Health::denied},
    {"access key id you provided does not exist", Health::denied},
    {"signature we calculated does not match", Health::denied},
    {"host key verification failed", Health::denied},
    {"(401)", Health::denied},
    {"(403)", Health::denied},
    {"connection refused", Health::unreachable},
    {"connection reset", Health::unreachable},
    {"connection timed out", Health::unreachable},
    {"connection closed", Health::unreachable},
    {"broken pipe", Health::unreachable},
    {"no such host", Health::unreachable},
    {"could not resolve", Health::unreachable},
    {"temporary failure in name resolution", Health::unreachable},
    {"server misbehaving", Health::unreachable},
    {"network is unreachable", Health::unreachable},
    {"no route to host", Health::unreachable},
    {"i/o timeout", Health::unreachable},
    {"deadline exceeded", Health::unreachable},
    {"tls handshake", Health::unreachable},
    {"x509:", Health::unreachable},
    {"unable to start the sftp session", Health::unreachable},
    {"ssh command exited", Health::unreachable},
    {"error talking http to rclone", Health::unreachable},
    {"connection lost", Health::unreachable},
    {"stale file handle", Health::unreachable},
    {"transport endpoint is not connected", Health::unreachable},
    {"unexpected http response (5", Health::unreachable},
    {"client.head:", Health::unreachable},
    {"input/output error", Health::damaged},
    {"ciphertext verification failed", Health::damaged},
    {"pack id does not match", Health::damaged},
    {"invalid data returned", Health::damaged},
    {"repository contains errors", Health::damaged},
    {"does not match id", Health::damaged},
    {"readfull: unexpected eof", Health::damaged},
    {"load(<data/", Health::damaged},
    {"load(<index/", Health::damaged},
    {"load(<snapshot/", Health::damaged},
    {"not found in index", Health::damaged},
    {"not found in repository", Health::damaged},
});

constexpr auto kAbsences = std::to_array<std::string_view>(
    {"does not exist", "no such file", "nosuchkey", "nosuchbucket", "not found", "(404)"});

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return lower;
}

bool saysNoRepository(std::string_view lower) {
  const std::size_t begin = lower.find("unable to open config file");
  if (begin == std::string_view::npos) {
    return false;
  }
  const std::string_view line = lower.substr(begin, lower.find('\n', begin) - begin);
  return std::ranges::any_of(
      kAbsences, [&](std::string_view sign) { return line.find(sign) != std::string_view::npos; });
}

Health judgedText(std::string_view lower) {
  for (const Sign& sign : kSigns) {
    if (lower.find(sign.text) != std::string_view::npos) {
      return sign.health;
    }
  }
  return saysNoRepository(lower) ? Health::missing : Health::failed;
}

/// The most informative line: the one that decided, else the last fatal one, else the last one.
std::string_view tellingLine(std::string_view errors, Health health) {
  std::string_view telling;
  int best = -1;
  while (!errors.empty()) {
    const std::size_t end = std::min(errors.find('\n'), errors.size());
    const std::string_view line = errors.substr(0, end);
    errors.remove_prefix(std::min(end + 1, errors.size()));
    const int worth = judgedText(lowerCase(line)) == health && health != Health::failed ? 2
                      : line.starts_with("Fatal: ")                                     ? 1
                                                                                        : 0;
    if (!line.empty() && worth >= best && (best < 2 || worth > best)) {
      telling = line;
      best = worth;
    }
  }
  if (telling.starts_with("Fatal: ")) {
    telling.remove_prefix(7);
  }
  return telling;
}

std::string reasonOf(std::string_view errors, Health health, const Secrets& secrets) {
  constexpr std::size_t kLongest = 300;
  std::string reason = shownText(secrets.scrubbed(tellingLine(errors, health)));
  if (reason.size() > kLongest) {
    std::size_t cut = kLongest;
    while ((static_cast<unsigned char>(reason[cut]) & 0xC0U) == 0x80) {
      --cut;
    }
    reason.resize(cut);
    reason += "…";
  }
  while (reason.ends_with('.') || reason.ends_with(' ') || reason.ends_with(':')) {
    reason.pop_back();
  }
  return reason;
}

}  // namespace

EngineAnswer answerFor(Health health, const std::string& reason) {
  const std::string why = reason.empty() ? "" : ": " + reason;
  switch (health) {
    case Health::ready:
      return {};
    case Health::notSetUp:
      return {health, "No repository was set up yet. Choose where the backup is to be."};
    case Health::missing:
      return {health, "The repository is gone" + why + ". Bring it back, or set up a new one."};
    case Health::otherRepository:
      return {health, "Another repository than that of this computer is at its place" + why +
                          ". Bring the right one back, or set this one up."};
    case Health::wrongKey:
      return {health, "The key does not open the repository. Import the key that belongs to it."};
    case Health::notConnected:
      return {health, "The disk with the backup is not connected. Plug it in."};
    case Health::unreachable:
      return {health, "The repository cannot be reached" + why + ". Check the network and the server."};
    case Health::denied:
      return {health, "The repository cannot be used, as access is refused" + why +
                          ". Check the permissions and the account."};
    case Health::locked:
      return {health, "The repository is in use by another program or computer" + why +
                          ". It is tried again; nothing needs to be done."};
    case Health::full:
      return {health,
              "No room is left where the repository is" + why + ". Make room there, or keep fewer versions."};
    case Health::damaged:
      return {health, "Stored data is damaged" + why + ". Run a check to have it stored anew."};
    case Health::engineMissing:
      return {health, "The storage program restic is not installed. Install the package restic."};
    case Health::engineTooOld:
      return {health, "The storage program restic is too old" + why + ". Install version 0.14 or newer."};
    case Health::cancelled:
      return {health, "The work was cancelled."};
    case Health::failed:
      break;
  }
  return {Health::failed, "The storage program failed" + (reason.empty() ? std::string() : why) + "."};
}

EngineAnswer judgedEnd(const ChildEnd& end, std::string_view errors, const Secrets& secrets) {
  if (end.startError == ENOENT) {
    return answerFor(Health::engineMissing);
  }
  if (end.startError != 0) {
    return answerFor(Health::failed, std::generic_category().message(end.startError));
  }
  if (end.exitStatus == 0) {
    return {};
  }
  if (end.cancelled) {
    return answerFor(Health::cancelled);
  }
  if (end.signal != 0) {
    return answerFor(Health::failed, "signal " + std::to_string(end.signal) + " ended it");
  }
  if (end.exitStatus == kInterrupted) {
    return answerFor(Health::failed, "something interrupted it");
  }
  // Version 0.17 and newer have exit statuses of their own for these.
  const Health health = end.exitStatus == 10   ? Health::missing
                        : end.exitStatus == 11 ? Health::locked
                        : end.exitStatus == 12 ? Health::wrongKey
                                               : judgedText(lowerCase(errors));
  const std::string reason = reasonOf(errors, health, secrets);
  return answerFor(health, reason.empty() ? "exit status " + std::to_string(end.exitStatus) : reason);
}

bool triesInVain(std::string_view errorLine, bool isFolder, bool isSftp) {
  const bool retries = errorLine.find(" returned error, retrying after ") != std::string_view::npos;
  // Version 0.17 and newer say this of a lost SSH server and then stand still.
  const bool isLost = errorLine.find(">) failed: ") != std::string_view::npos;
  if (!retries && !isLost) {
    return false;
  }
  const Health health = judgedText(lowerCase(errorLine));
  // This is the first thing that it asks a server for. Version 0.17 and newer try it for 15 minutes.
  const bool isFirst = retries && errorLine.find("Stat(<config/>)") != std::string_view::npos;
  return ((isSftp || isFirst) && health == Health::unreachable) ||
         (isFolder && retries && health == Health::denied);
}

}  // namespace keldane
