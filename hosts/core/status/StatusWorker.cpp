#include "hosts/core/status/StatusWorker.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>

#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"
#include "platform/threads/SignalsBlocked.h"

namespace keldane {

namespace {

/// The times after a command at which its files are asked about again.
constexpr std::array kLooks = {std::chrono::milliseconds(50), std::chrono::milliseconds(250),
                               std::chrono::milliseconds(600), std::chrono::milliseconds(1200),
                               std::chrono::milliseconds(2500)};

/// The longest time for asking about files one by one before another folder has its turn.
constexpr auto kLongestTurn = std::chrono::milliseconds(500);

/// The thread runs at a lower priority, so that the file manager comes first.
constexpr int kNiceness = 5;

/// Whether a folder has more entries than the cache keeps. Only reading the names can tell.
bool isTooLarge(const std::string& folder) {
  std::size_t count = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator each(folder, error), end; !error && each != end;
       each.increment(error)) {
    if (++count > StatusCache::kMostFiles) {
      return true;
    }
  }
  return false;
}

}  // namespace

// --- On the window's thread ---

void StatusService::Worker::end() {
  std::deque<Task> tasks;  // destroyed after the lock is released
  {
    const ScopedLock guard(mutex_);
    isEnding_ = true;
    tasks.swap(tasks_);
    wake();
  }
  setListener(nullptr);
}

// The swap leaves the former listener in the parameter, which is destroyed after the lock is released.
void StatusService::Worker::setListener(Listener listener) {
  const ScopedLock guard(listenerMutex_);
  listener_.swap(listener);
}

std::optional<FileStatus> StatusService::Worker::statusOf(const std::string& path) {
  if (path.size() < 2 || path.front() != '/') {
    return std::nullopt;  // the root lies in no folder
  }
  const ScopedLock guard(mutex_);
  const FileStatus* known = cache_.find(path);
  if (known == nullptr) {
    startOrWake();
    return std::nullopt;
  }
  return *known;
}

// A file manager asks about a folder's files one after the other. The thread is not woken for each of them.
void StatusService::Worker::startOrWake() {
  const Clock::time_point now = Clock::now();
  if (!isRunning_ || (wakesAt_ > now && wakeTime(now) < wakesAt_)) {
    startOnce();
  }
}

void StatusService::Worker::wake() {
  wakesAt_.reset();
  changed_.notifyAll();
}

void StatusService::Worker::expect(const std::string& folder) {
  const ScopedLock guard(mutex_);
  cache_.expect(folder);
  startOrWake();
}

void StatusService::Worker::commandWasGiven(const std::vector<std::string>& paths) {
  const ScopedLock guard(mutex_);
  const std::size_t count = std::min(paths.size(), StatusCache::kMostInABatch);
  hurry_ = {{paths.begin(), paths.begin() + static_cast<std::ptrdiff_t>(count)}, Clock::now(), 0};
  wake();
}

void StatusService::Worker::perform(Task task) {
  const ScopedLock guard(mutex_);
  tasks_.push_back(std::move(task));
  startOnce();
}

void StatusService::Worker::lookAfter() {
  {
    const ScopedLock guard(mutex_);
    if (isSilent_ || !busySince_ || Clock::now() - *busySince_ < timing_.silence) {
      return;
    }
    isSilent_ = true;
  }
  forget();
}

void StatusService::Worker::tellAll() {
  std::vector<std::string> shown;
  {
    const ScopedLock guard(mutex_);
    shown = cache_.shown();
  }
  tell(std::move(shown));
}

std::vector<StatusCache::OpenFolder> StatusService::Worker::openFolders() {
  const ScopedLock guard(mutex_);
  return cache_.openFolders();
}

void StatusService::Worker::close(const std::string& folder) {
  const ScopedLock guard(mutex_);
  cache_.close(folder);
  wake();
}

// When the system has no thread now, the next question tries again.
void StatusService::Worker::startOnce() {
  if (isRunning_) {
    wake();
    return;
  }
  try {
    const SignalsBlocked blocked;
    std::thread([self = shared_from_this()] { self->run(); }).detach();
    isRunning_ = true;
  } catch (const std::exception& error) {
    systemLog("The status of files cannot be asked for: %s", error.what());
  }
}

// --- On the service's thread ---

template <class Call>
auto StatusService::Worker::watched(const Call& call) {
  {
    const ScopedLock guard(mutex_);
    busySince_ = Clock::now();
  }
  struct End {
    Worker& worker;
    ~End() {
      const ScopedLock guard(worker.mutex_);
      worker.busySince_.reset();
      if (std::exchange(worker.isSilent_, false)) {
        worker.cache_.askAnew();
      }
    }
  } const end{*this};
  return call();
}

void StatusService::Worker::run() {
  try {
    serve();
  } catch (const std::exception& error) {
    systemLog("The status of files could not be asked for: %s", error.what());
  }
  connection_.leave();
  const ScopedLock guard(mutex_);
  isRunning_ = false;
}

void StatusService::Worker::serve() {
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNiceness);
  while (step()) {
  }
}

// False when the service is ending.
bool StatusService::Worker::step() {
  bool hasTasks = false;
  bool isOpen = false;
  std::vector<std::string> late;
  {
    const ScopedLock guard(mutex_);
    waitForWork();
    if (isEnding_) {
      return false;
    }
    late = cache_.takeLate(Clock::now());
    hasTasks = !tasks_.empty();
    isOpen = !cache_.isEmpty();
  }
  tell(std::move(late));
  if (!isOpen && !hasTasks) {
    connection_.leave();
    return true;
  }
  const bool isConnected = connected(hasTasks);
  if (hasTasks) {
    performTask();
  }
  if (!isOpen || !isConnected) {
    return true;
  }
  if (!state_) {
    lookAtState();  // later answers belong to this state or to a newer one
  }
  std::optional<StatusCache::Question> question;
  {
    const ScopedLock guard(mutex_);
    hurryWhatIsDue(Clock::now());
    question = cache_.nextQuestion(Clock::now());
  }
  if (question) {
    ask(std::move(*question));
  }
  lookAtState();
  return true;
}

void StatusService::Worker::waitForWork() {
  const auto isWoken = [this]() KELDANE_REQUIRES(mutex_) { return !wakesAt_; };
  while (!isEnding_ && tasks_.empty()) {
    const Clock::time_point now = Clock::now();
    if (!cache_.isEmpty()) {
      const Clock::time_point time = wakeTime(now);
      if (time <= now) {
        return;
      }
      wakesAt_ = time;
      changed_.waitUntil(mutex_, time, isWoken);
      wakesAt_.reset();
    } else if (connection_.isAtEnd()) {
      wakesAt_ = Clock::time_point::max();
      changed_.wait(mutex_, isWoken);
    } else {
      return;  // nothing is shown, so the caller closes the link
    }
  }
}

StatusService::Worker::Clock::time_point StatusService::Worker::wakeTime(Clock::time_point now) const {
  if (connection_.isAway()) {
    return nextLook_;
  }
  Clock::time_point time = nextLook_;
  if (const auto due = cache_.nextDue(now)) {
    time = std::min(time, *due);
  }
  if (hurry_) {
    time = std::min(time, hurry_->begin + kLooks[hurry_->step]);
  }
  return time;
}

void StatusService::Worker::hurryWhatIsDue(Clock::time_point now) {
  if (!hurry_ || hurry_->begin + kLooks[hurry_->step] > now) {
    return;
  }
  cache_.hurry(hurry_->paths);
  if (++hurry_->step == kLooks.size()) {
    hurry_.reset();
  }
}

void StatusService::Worker::performTask() {
  Task task;
  {
    const ScopedLock guard(mutex_);
    if (tasks_.empty()) {
      return;
    }
    task = std::move(tasks_.front());
    tasks_.pop_front();
  }
  watched([&] { task(connection_.isAtEnd() ? nullptr : &connection_.link()); });
}

/// Whether there is a link.
bool StatusService::Worker::connected(bool isAsked) {
  const Clock::time_point now = Clock::now();
  const StatusConnection::Attempt attempt = connection_.connect(isAsked, now);
  if (attempt.isLost) {
    forget();
  }
  if (!attempt.isConnected) {
    nextLook_ = connection_.nextLook(now);
  } else if (attempt.isNew) {
    state_ = {};
    nextLook_ = now;
    const ScopedLock guard(mutex_);
    cache_.askAnew();
  }
  return attempt.isConnected;
}

void StatusService::Worker::lookAtState() {
  const Clock::time_point now = Clock::now();
  if (now < nextLook_) {
    return;
  }
  nextLook_ = now + timing_.statePoll;
  const PropertyList state = watched([&] { return connection_.link().daemonState(); });
  if (!connection_.isAtEnd()) {
    connection_.hasAnswered();
  }
  if (!(state == state_)) {
    state_ = state;
    const ScopedLock guard(mutex_);
    cache_.stateChanged();
  }
}

void StatusService::Worker::ask(StatusCache::Question question) {
  const Clock::time_point begin = Clock::now();
  if (question.whole && isTooLarge(question.folder)) {
    const ScopedLock guard(mutex_);
    cache_.setTooLarge(question.folder);
    return;
  }
  const std::optional<StatusCache::Answer> answer =
      question.whole ? list(question.folder) : askEach(question);
  std::vector<std::string> changed;
  {
    const ScopedLock guard(mutex_);
    if (!answer) {
      cache_.askAnew();
      return;
    }
    changed = cache_.keep(question, *answer, Clock::now() - begin);
  }
  tell(std::move(changed));
}

/// Absent when the link has ended.
std::optional<StatusCache::Answer> StatusService::Worker::list(const std::string& folder) {
  const PropertyList nodes = watched([&] { return connection_.link().childrenDictionariesForPath(folder); });
  if (connection_.isAtEnd()) {
    return std::nullopt;
  }
  StatusCache::Answer answer;
  answer.reserve(nodes.count());
  for (std::size_t i = 0; i < nodes.count(); ++i) {
    const PropertyList node = nodes[i];
    const PropertyList name = node["fileName"];
    if (name.isString()) {
      answer.emplace(name.string(), fileStatusOf(node));
    }
  }
  return answer;
}

/// The names that are left after `kLongestTurn` are put back for the next turn, so that a slow daemon does
/// not hold up other folders and tasks.
std::optional<StatusCache::Answer> StatusService::Worker::askEach(StatusCache::Question& question) {
  const Clock::time_point end = Clock::now() + kLongestTurn;
  StatusCache::Answer answer;
  for (std::size_t i = 0; i < question.names.size(); ++i) {
    if (Clock::now() > end) {
      const ScopedLock guard(mutex_);
      cache_.putBack(question, i);
      break;
    }
    const std::string& name = question.names[i];
    const std::string path = appendPathComponent(question.folder, name);
    const PropertyList node = watched([&] { return connection_.link().dictionaryForPath(path, false); });
    if (connection_.isAtEnd()) {
      return std::nullopt;
    }
    if (node) {
      answer.emplace(name, fileStatusOf(node));
    }
  }
  return answer;
}

void StatusService::Worker::tell(std::vector<std::string> paths) {
  if (paths.empty()) {
    return;
  }
  const ScopedLock guard(listenerMutex_);
  if (listener_) {
    listener_(std::move(paths));
  }
}

void StatusService::Worker::forget() {
  std::vector<std::string> shown;
  {
    const ScopedLock guard(mutex_);
    shown = cache_.forgetAll();
  }
  tell(std::move(shown));
}

}  // namespace keldane
