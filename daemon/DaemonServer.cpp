#include "daemon/DaemonServer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "daemon/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestSocketPath = 103;

// A peer that does not read is given up after this time.
constexpr auto kSendLimit = std::chrono::seconds(5);

constexpr auto kNotificationInterval = std::chrono::seconds(1);

constexpr MethodSignature kClientMethods[] = {{"stateChanged:", 'v', "@"}};

std::string errorText(int error) { return std::generic_category().message(error); }

}  // namespace

constinit const Protocol KeldaneClientProtocol = {"KeldaneClientProtocol", kClientMethods};

DaemonServer::~DaemonServer() { stop(); }

bool DaemonServer::claimPath(std::string* error) {
  if (path_.empty() || path_.size() > kLongestSocketPath) {
    *error = "The socket path " + path_ + " is empty or longer than " + std::to_string(kLongestSocketPath) +
             " bytes.";
    return false;
  }
  std::error_code ignored;
  const fs::path folder = fs::path(path_).parent_path();
  if (!folder.empty() && !fs::exists(folder, ignored)) {
    fs::create_directories(folder, ignored);
    // Every user's clients connect here, however narrow this process's own mask is.
    fs::permissions(folder, fs::perms(0755), ignored);
  }
  const std::string lockPath = path_ + ".lock";
  lock_ = Descriptor(open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock_) {
    *error = "The lock " + lockPath + " cannot be made: " + errorText(errno) + ".";
    return false;
  }
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
    *error = "Another keldaned already serves " + path_ + ".";
    return false;
  }
  const std::optional<struct stat> status = statusOf(path_);
  if (status && !S_ISSOCK(status->st_mode)) {
    *error = path_ + " is in the way: it is no socket.";
    return false;
  }
  return true;
}

bool DaemonServer::start(std::string* error) {
  if (!claimPath(error)) {
    return false;
  }
  listener_ = KeldaneSocket::create();
  listener_->setSocketDelegate(shared_from_this());
  errno = 0;
  if (!listener_->listenAtPath(path_)) {
    *error = "The socket " + path_ + " cannot be made: " + errorText(errno) + ".";
    return false;
  }
  notifier_ = std::thread([this] { notify(); });
  return true;
}

void DaemonServer::stop() {
  if (!listener_) {
    return;
  }
  decltype(peers_) peers;
  {
    const std::lock_guard guard(mutex_);
    stopping_ = true;
    peers.swap(peers_);
  }
  changed_.notify_all();
  listener_->close();
  for (auto& [key, peer] : peers) {
    peer.second.proxy->close();
    peer.first->close();
  }
  if (notifier_.joinable()) {
    notifier_.join();
  }
  ::unlink(path_.c_str());  // a listener that nobody ever called leaves its file
  listener_.reset();
}

void DaemonServer::socketCreated(const std::shared_ptr<KeldaneSocket>& child) {
  const std::optional<PeerCredentials> credentials = child->peerCredentials();
  if (!credentials) {
    child->close();
    return;
  }
  child->setSendTimeout(kSendLimit);
  const KeldaneSocket* key = child.get();
  PeerLink link;
  link.service = std::make_shared<DaemonService>(
      daemon_, peerOf(credentials->uid, credentials->gid), [weak = weak_from_this(), key](bool on) {
        if (const std::shared_ptr<DaemonServer> self = weak.lock()) {
          self->subscribe(key, on);
        }
      });
  link.proxy = KeldaneProxy::create();
  link.proxy->setProtocol(&KeldaneClientProtocol);
  link.proxy->setDelegate(link.service);
  const std::shared_ptr<KeldaneProxy> proxy = link.proxy;
  {
    const std::lock_guard guard(mutex_);
    if (stopping_) {
      return;
    }
    peers_[key] = {child, std::move(link)};
  }
  child->setSocketDelegate(shared_from_this());
  proxy->setSocket(child);  // from here on the peer's messages are heard
}

void DaemonServer::socketFailed(const std::shared_ptr<KeldaneSocket>& child) {
  std::pair<std::shared_ptr<KeldaneSocket>, PeerLink> gone;
  {
    const std::lock_guard guard(mutex_);
    const auto found = peers_.find(child.get());
    if (found == peers_.end()) {
      return;
    }
    gone = std::move(found->second);
    peers_.erase(found);
  }
  gone.second.proxy->close();
  child->close();
}

void DaemonServer::subscribe(const KeldaneSocket* peer, bool on) {
  const std::lock_guard guard(mutex_);
  const auto found = peers_.find(peer);
  if (found != peers_.end()) {
    found->second.second.wantsState = on;
  }
}

void DaemonServer::notify() {
  PropertyList last;
  while (waitForNextNotification()) {
    try {
      const std::vector<std::shared_ptr<KeldaneProxy>> told = subscribers();
      const PropertyList state = told.empty() ? last : daemon_->state();
      if (state == last) {
        continue;
      }
      for (const std::shared_ptr<KeldaneProxy>& proxy : told) {
        proxy->call("stateChanged:", {RawValue::of<'@'>(state)});
      }
      last = state;
    } catch (const std::exception& error) {
      systemLog("The state cannot be announced: %s", error.what());
    }
  }
}

bool DaemonServer::waitForNextNotification() {
  std::unique_lock guard(mutex_);
  return !changed_.wait_for(guard, kNotificationInterval, [this] { return stopping_; });
}

std::vector<std::shared_ptr<KeldaneProxy>> DaemonServer::subscribers() {
  const std::lock_guard guard(mutex_);
  std::vector<std::shared_ptr<KeldaneProxy>> told;
  for (const auto& [key, peer] : peers_) {
    if (peer.second.wantsState) {
      told.push_back(peer.second.proxy);
    }
  }
  return told;
}

}  // namespace keldane
