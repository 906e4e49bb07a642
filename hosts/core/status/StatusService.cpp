#include "hosts/core/status/StatusService.h"

#include "hosts/core/status/StatusWorker.h"

namespace keldane {

StatusService::StatusService(std::string socketPath, const StatusTiming& timing)
    : worker_(std::make_shared<Worker>(std::move(socketPath), timing)) {}

StatusService::~StatusService() { worker_->end(); }

void StatusService::setListener(Listener listener) { worker_->setListener(std::move(listener)); }

std::optional<FileStatus> StatusService::statusOf(const std::string& path) { return worker_->statusOf(path); }

void StatusService::expect(const std::string& folder) { worker_->expect(folder); }

void StatusService::commandWasGiven(const std::vector<std::string>& paths) {
  worker_->commandWasGiven(paths);
}

void StatusService::perform(Task task) { worker_->perform(std::move(task)); }

void StatusService::lookAfter() { worker_->lookAfter(); }

void StatusService::tellAll() { worker_->tellAll(); }

std::vector<StatusCache::OpenFolder> StatusService::openFolders() const { return worker_->openFolders(); }

void StatusService::close(const std::string& folder) { worker_->close(folder); }

}  // namespace keldane
