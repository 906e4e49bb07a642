#include "daemon/restore/RestoreJobs.h"

#include "daemon/restore/RestoreQueue.h"

namespace keldane {

class RestoreJobs::Implementation : public RestoreQueue {
 public:
  using RestoreQueue::RestoreQueue;
};

RestoreJobs::RestoreJobs(Store& store, BackupEngine& engine, DataFolder folder, std::function<void()> changed)
    : implementation_(
          std::make_unique<Implementation>(store, engine, std::move(folder), std::move(changed))) {}

RestoreJobs::~RestoreJobs() { stop(); }

void RestoreJobs::start() { implementation_->start(); }
void RestoreJobs::stop() { implementation_->stop(); }

std::uint32_t RestoreJobs::add(const RestoreRequest& request, std::string* refusal) {
  return implementation_->add(request, refusal);
}
RestoreReport RestoreJobs::report(std::uint32_t job) const { return implementation_->report(job); }
std::uint32_t RestoreJobs::current() const { return implementation_->current(); }
std::string RestoreJobs::currentFile() const { return implementation_->currentFile(); }
std::optional<uid_t> RestoreJobs::userOf(std::uint32_t job) const { return implementation_->userOf(job); }
void RestoreJobs::cancel(std::uint32_t job) { implementation_->cancel(job); }
void RestoreJobs::cancelAll() { implementation_->cancelAll(); }
void RestoreJobs::tryNow() { implementation_->tryNow(); }

}  // namespace keldane
