#include "daemon/restore/RestoreJobs.h"

namespace keldane {
class RestoreJobs::Implementation {};
RestoreJobs::RestoreJobs(Store&, BackupEngine&, DataFolder, std::function<void()>) {}
RestoreJobs::~RestoreJobs() = default;
void RestoreJobs::start() {}
void RestoreJobs::stop() {}
std::uint32_t RestoreJobs::add(const RestoreRequest&, std::string*) { return 0; }
RestoreReport RestoreJobs::report(std::uint32_t) const { return {}; }
std::uint32_t RestoreJobs::current() const { return 0; }
std::string RestoreJobs::currentFile() const { return {}; }
std::optional<uid_t> RestoreJobs::userOf(std::uint32_t) const { return {}; }
void RestoreJobs::cancel(std::uint32_t) {}
void RestoreJobs::cancelAll() {}
}  // namespace keldane
