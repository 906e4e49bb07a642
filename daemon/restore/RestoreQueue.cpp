#include "daemon/restore/RestoreQueue.h"

#include <algorithm>

#include "daemon/restore/RequestCheck.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr std::size_t kMostFinished = 100;

/// Updates a report. Its numbers never become smaller.
void show(const RestoreState& state, RestoreReport& shown) {
  const RestoreReport& report = state.report;
  if (state.isFinished() && report.status != RestoreStatus::cancelled) {
    shown = report;
    return;
  }
  shown.status = report.status;
  shown.files = std::max(shown.files, report.files + state.itemsToCome);
  shown.filesDone = std::max(shown.filesDone, report.filesDone);
  shown.bytes = std::max(shown.bytes, report.bytes);
  shown.bytesDone = std::max(shown.bytesDone, report.bytesDone);
  shown.restored = report.restored;
  shown.skipped = report.skipped;
  if (shown.problems.size() != report.problems.size()) {
    shown.problems = report.problems;
  }
  if (shown.message != report.message) {
    shown.message = report.message;
  }
}

}  // namespace

RestoreQueue::RestoreQueue(Store& store, BackupEngine& engine, DataFolder folder,
                           std::function<void()> changed)
    : store_(store), engine_(engine), folder_(std::move(folder)), changed_(std::move(changed)) {
  for (const Store::RestoreRecord& record : store_.restores()) {
    std::optional<RestoreState> state = stateFrom(record);
    if (!state) {
      systemLog("The job of restoring %u cannot be read and is dropped", record.number);
      store_.removeRestore(record.number);
      continue;
    }
    if (state->report.status == RestoreStatus::running) {
      state->report.status = RestoreStatus::waiting;
    }
    Job& job = jobs_[record.number];
    job.shown = state->report;
    job.state = std::move(*state);
  }
}

void RestoreQueue::start() {
  const ScopedLock guard(mutex_);
  if (!thread_.joinable()) {
    isStopping_ = false;
    thread_ = std::thread([this] { run(); });
  }
}

void RestoreQueue::stop() {
  {
    const ScopedLock guard(mutex_);
    isStopping_ = true;
    if (engineJob_) {
      engineJob_->cancelled = true;
    }
  }
  wake_.notifyAll();
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::uint32_t RestoreQueue::add(RestoreRequest request, std::string* refusal) {
  if (std::string sentence = refusalFor(request); !sentence.empty()) {
    *refusal = std::move(sentence);
    return 0;
  }
  RestoreState state;
  state.isDone.resize(request.items.size());
  state.request = std::move(request);
  state.report.status = RestoreStatus::waiting;
  const std::uint32_t number = store_.addRestore(recordFrom(state));
  state.number = number;
  {
    const ScopedLock guard(mutex_);
    Job& job = jobs_[number];
    job.shown = state.report;
    job.state = std::move(state);
  }
  wake_.notifyAll();
  return number;
}

RestoreReport RestoreQueue::report(std::uint32_t number) const {
  const ScopedLock guard(mutex_);
  const auto job = jobs_.find(number);
  return job == jobs_.end() ? RestoreReport() : job->second.shown;
}
std::uint32_t RestoreQueue::current() const {
  const ScopedLock guard(mutex_);
  return current_;
}
std::string RestoreQueue::currentFile() const {
  const ScopedLock guard(mutex_);
  return currentFile_;
}
std::optional<uid_t> RestoreQueue::userOf(std::uint32_t number) const {
  const ScopedLock guard(mutex_);
  const auto job = jobs_.find(number);
  return job == jobs_.end() ? std::nullopt : std::optional(job->second.state.request.user);
}

void RestoreQueue::cancel(std::uint32_t number) {
  RestoreState state;
  {
    const ScopedLock guard(mutex_);
    const auto found = jobs_.find(number);
    if (found == jobs_.end() || found->second.state.isFinished()) {
      return;
    }
    found->second.isCancelled = true;
    if (number == current_) {
      engineJob_->cancelled = true;  // the job's thread does the rest
      return;
    }
    found->second.state.report.status = RestoreStatus::cancelled;
    state = found->second.state;
  }
  finish(number, state);
}

void RestoreQueue::cancelAll() {
  std::vector<std::uint32_t> numbers;
  {
    const ScopedLock guard(mutex_);
    for (const auto& [number, job] : jobs_) {
      numbers.push_back(number);
    }
  }
  std::for_each(numbers.begin(), numbers.end(), [this](std::uint32_t number) { cancel(number); });
}

void RestoreQueue::tryNow() {
  {
    const ScopedLock guard(mutex_);
    for (auto& [number, job] : jobs_) {
      job.next = {};
      job.delay = kFirstDelay;
    }
  }
  wake_.notifyAll();
}

std::uint32_t RestoreQueue::nextJob(Clock::time_point& next) const {
  const Job* best = nullptr;
  for (const auto& [number, job] : jobs_) {
    if (job.state.isFinished()) {
      continue;
    }
    if (job.next > Clock::now()) {
      next = std::min(next, job.next);
    } else if (best == nullptr || job.state.request.priority > best->state.request.priority) {
      best = &job;
    }
  }
  return best == nullptr ? 0 : best->state.number;
}

std::shared_ptr<EngineJob> RestoreQueue::takeNext(RestoreState& state) {
  const ScopedLock guard(mutex_);
  while (!isStopping_) {
    Clock::time_point next = Clock::now() + std::chrono::hours(1);
    if (const std::uint32_t number = nextJob(next); number != 0) {
      current_ = number;
      engineJob_ = std::make_shared<EngineJob>();
      state = jobs_[number].state;
      return engineJob_;
    }
    wake_.waitFor(mutex_, next - Clock::now(),
                  [&]() KELDANE_REQUIRES(mutex_) { return isStopping_ || nextJob(next) != 0; });
  }
  return nullptr;
}

void RestoreQueue::run() {
  for (;;) {
    RestoreState state;
    const std::shared_ptr<EngineJob> engineJob = takeNext(state);
    if (!engineJob) {
      return;
    }
    runJob(state.number, state, engineJob);
    {
      const ScopedLock guard(mutex_);
      current_ = 0;
      currentFile_.clear();
      engineJob_.reset();
    }
    changed_();
  }
}

void RestoreQueue::runJob(std::uint32_t number, RestoreState& state,
                          const std::shared_ptr<EngineJob>& engineJob) {
  RestoreRun::End end = RestoreRun::End::later;
  std::string failure;
  try {
    state.report.status = RestoreStatus::running;
    keep(number, state);
    changed_();
    RestoreRun run(store_, engine_, folder_, *engineJob, state, hooksFor(number, state, engineJob));
    end = run.run();
    if (end == RestoreRun::End::done) {
      keep(number, state);
      dropOldest();
      return;
    }
  } catch (const std::exception& error) {
    systemLog("The restore %u was interrupted: %s", number, error.what());
    failure = std::string("The daemon could not go on: ") + error.what() + ".";
  }
  settle(number, end, state, failure);
}

/// Decides what becomes of a job whose run did not complete it.
void RestoreQueue::settle(std::uint32_t number, RestoreRun::End end, RestoreState& state,
                          const std::string& failure) {
  {
    const ScopedLock guard(mutex_);
    Job& job = jobs_[number];
    if (!job.isCancelled) {
      job.state.report.status = RestoreStatus::waiting;
      job.shown.status = RestoreStatus::waiting;
      if (end == RestoreRun::End::later) {
        job.shown.message = failure.empty() ? state.report.message : failure;
        job.state.report.message = job.shown.message;
        job.next = Clock::now() + job.delay;
        job.delay = std::min(job.delay * 2, kLongestDelay);
      }
      return;
    }
    job.state.report.status = state.report.status = RestoreStatus::cancelled;
  }
  finish(number, state);
}

/// Ends a job that was cancelled.
void RestoreQueue::finish(std::uint32_t number, RestoreState& state) {
  try {
    EngineJob none;
    RestoreRun(store_, engine_, folder_, none, state, hooksFor(number, state, nullptr)).giveUp();
    keep(number, state);
    dropOldest();
  } catch (const std::exception& error) {
    systemLog("The restore %u was cancelled and cannot be kept: %s", number, error.what());
  }
}

RestoreRun::Hooks RestoreQueue::hooksFor(std::uint32_t number, RestoreState& state,
                                         const std::shared_ptr<EngineJob>& engineJob) {
  return {.mayGoOn = [job = engineJob] { return !job || !job->cancelled; },
          .keep = [this, number, &state] { keep(number, state); },
          .tell =
              [this, number, &state](const std::string& file) {
                {
                  const ScopedLock guard(mutex_);
                  show(state, jobs_[number].shown);
                  currentFile_ = file;
                }
                changed_();
              },
          .staged =
              [this, number](std::uint64_t bytes) {
                const ScopedLock guard(mutex_);
                RestoreReport& shown = jobs_[number].shown;
                shown.bytesDone = std::max(shown.bytesDone, bytes);
              }};
}

void RestoreQueue::keep(std::uint32_t number, const RestoreState& state) {
  store_.setRestore(recordFrom(state));
  const ScopedLock guard(mutex_);
  Job& job = jobs_[number];
  job.state = state;
  show(state, job.shown);
}

void RestoreQueue::dropOldest() {
  std::vector<std::uint32_t> dropped;
  {
    const ScopedLock guard(mutex_);
    for (auto job = jobs_.begin(); job != jobs_.end(); ++job) {
      if (job->second.state.isFinished()) {
        dropped.push_back(job->first);
      }
    }
    dropped.resize(dropped.size() - std::min(dropped.size(), kMostFinished));
    std::for_each(dropped.begin(), dropped.end(),
                  [this](std::uint32_t number) KELDANE_REQUIRES(mutex_) { jobs_.erase(number); });
  }
  std::for_each(dropped.begin(), dropped.end(),
                [this](std::uint32_t number) { store_.removeRestore(number); });
}

}  // namespace keldane
