#include "platform/host/Host.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "platform/threads/Mutex.h"

namespace keldane {

struct Host::State {
  std::atomic<OSType> signature = fourCharCode("????");
  std::atomic<OSType> type = fourCharCode("????");
  std::atomic<OSStatus> processInformationError = kNoErr;
  std::atomic<std::int32_t> contextualMenuAttributes = 0;
  std::atomic<OSStatus> gestaltError = kNoErr;
  std::atomic<bool> applicationAvailable = true;
  std::atomic<pid_t> mainThread = getpid();  // the first thread's ID is the process ID
  mutable Mutex mutex{{.name = "Host", .innermost = true}};
  FileOpener opener KELDANE_GUARDED_BY(mutex);
};

Host::Host() : state_(std::make_unique<State>()) {}

Host::~Host() = default;

Host& Host::shared() {
  static Host& host = *new Host;
  return host;
}

void Host::setProcess(OSType signature, OSType type) {
  state_->signature = signature;
  state_->type = type;
}
void Host::setProcessInformationError(OSStatus error) { state_->processInformationError = error; }
void Host::setContextualMenuAttributes(std::int32_t bits) { state_->contextualMenuAttributes = bits; }
void Host::setGestaltError(OSStatus error) { state_->gestaltError = error; }
void Host::setApplicationAvailable(bool available) { state_->applicationAvailable = available; }

void Host::declareMainThread() { state_->mainThread = static_cast<pid_t>(syscall(SYS_gettid)); }

bool Host::isMainThread() const {
  thread_local const auto self = static_cast<pid_t>(syscall(SYS_gettid));
  return state_->mainThread == self;
}

void Host::setFileOpener(FileOpener opener) {
  const ScopedLock guard(state_->mutex);
  state_->opener.swap(opener);
}

OSType Host::signature() const { return state_->signature; }
OSType Host::type() const { return state_->type; }
OSStatus Host::processInformationError() const { return state_->processInformationError; }
std::int32_t Host::contextualMenuAttributes() const { return state_->contextualMenuAttributes; }
OSStatus Host::gestaltError() const { return state_->gestaltError; }
bool Host::applicationAvailable() const { return state_->applicationAvailable; }

Host::FileOpener Host::fileOpener() const {
  const ScopedLock guard(state_->mutex);
  return state_->opener;
}

Application* Application::sharedApplication() {
  static Application application;
  return Host::shared().applicationAvailable() ? &application : nullptr;
}

}  // namespace keldane

extern "C" {

OSStatus GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info) {
  constexpr OSStatus kNoSuchProcess = -600;
  if (process == nullptr || info == nullptr || info->processInfoLength != sizeof(ProcessInfoRec)) {
    return keldane::kParamErr;
  }
  if (process->highLongOfPSN != kNoProcess || process->lowLongOfPSN != kCurrentProcess) {
    return kNoSuchProcess;
  }
  const keldane::Host& host = keldane::Host::shared();
  if (const OSStatus error = host.processInformationError(); error != keldane::kNoErr) {
    return error;
  }
  info->processSignature = host.signature();
  info->processType = host.type();
  return keldane::kNoErr;
}

OSStatus Gestalt(OSType selector, std::int32_t* response) {
  constexpr OSStatus kUnknownSelector = -5551;
  if (response == nullptr) {
    return keldane::kParamErr;
  }
  if (selector != gestaltContextualMenuAttr) {
    return kUnknownSelector;
  }
  const keldane::Host& host = keldane::Host::shared();
  if (const OSStatus error = host.gestaltError(); error != keldane::kNoErr) {
    return error;
  }
  *response = host.contextualMenuAttributes();
  return keldane::kNoErr;
}
}
