#include "Common/calls/KeldProxy.h"

#include <algorithm>
#include <new>
#include <utility>

#include "log/KeldaneLog.h"
#include "platform/objects/Absent.h"
#include "platform/objects/Exceptions.h"
#include "platform/plist/PropertyListSerialization.h"

namespace keldane {

namespace {

constexpr std::uint32_t kPerformQueuedCalls = 1;

// The lines that the assertions of this class show.
constexpr int kNoDelegateLine = 187;
constexpr int kValueOnMainThreadLine = 185;

// The index at which a request's argument pairs begin. Width, type, selector and count come first.
constexpr std::uint32_t kFirstArgument = 4;

std::optional<Bytes> serialized(const PropertyList& value, std::string* error) {
  return PropertyListSerialization::dataFromPropertyList(value, PropertyListSerialization::Format::binary,
                                                         error);
}

PropertyList unserialized(const Bytes& payload, const char* logFormat,
                          PropertyList::Keys* usualKeys = nullptr) {
  std::string error;
  PropertyList value = PropertyListSerialization::propertyListFromData(payload, &error, nullptr, usualKeys);
  if (!error.empty()) {
    KeldaneCLog(logFormat, error);
  }
  return value;
}

PropertyList encodedResult(const RawValue& result, const char* returnType) {
  return result.code() == returnType[0] ? result.encoded() : RawValue::decoded({}, returnType).encoded();
}

// A request with absent arguments.
PropertyList::Array makeEmptyRequest(const MethodSignature& method) {
  const char returnType[] = {method.returnCode, '\0'};
  PropertyList::Array request;
  request.reserve(kFirstArgument + 2 * method.argumentCodes.size());
  request.emplace_back(static_cast<unsigned long>(widthOfType(returnType)));
  request.emplace_back(returnType);
  request.emplace_back(method.selector);
  request.emplace_back(static_cast<unsigned long>(method.argumentCodes.size()));
  for (const char& code : method.argumentCodes) {
    request.emplace_back(std::string_view(&code, 1));
    request.emplace_back();
  }
  return request;
}

PropertyList requestOf(PropertyList::Array emptyRequest, const Arguments& arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    emptyRequest[kFirstArgument + 2 * i + 1] = arguments[i].encoded();
  }
  return PropertyList::array(std::move(emptyRequest));
}

}  // namespace

KeldaneProxy::KeldaneProxy() {
  forwardingLock_.record().comesBefore(socketLock_.record());
  forwardingLock_.record().comesBefore(resultCond_.record());
}

std::shared_ptr<KeldaneProxy> KeldaneProxy::create() {
  const std::shared_ptr<KeldaneProxy> proxy(new KeldaneProxy);
  proxy->invocationPort_ =
      RunLoop::current().openPort([weak = std::weak_ptr<KeldaneProxy>(proxy)](std::uint32_t messageId) {
        sendTo(weak.lock(), &KeldaneProxy::handlePortMessage, messageId);
      });
  return proxy;
}

KeldaneProxy::~KeldaneProxy() { close(); }

std::shared_ptr<KeldaneSocket> KeldaneProxy::socket() const {
  const ScopedLock guard(membersMutex_);
  return socket_;
}

bool KeldaneProxy::isLinkAtEnd() const {
  const std::shared_ptr<KeldaneSocket> link = socket();
  return !link || link->isAtEnd();
}

void KeldaneProxy::setSocket(const std::shared_ptr<KeldaneSocket>& socket) {
  sendTo(this->socket(), &KeldaneSocket::close);
  std::shared_ptr<KeldaneSocket> old = socket;
  {
    const ScopedLock guard(membersMutex_);
    old.swap(socket_);
  }
  sendTo(socket, &KeldaneSocket::setDataDelegate, shared_from_this());
}

void KeldaneProxy::setProtocol(const Protocol* protocol) { protocol_ = protocol; }

void KeldaneProxy::setDelegate(std::weak_ptr<InvocationTarget> delegate) {
  const ScopedLock guard(membersMutex_);
  delegate_ = std::move(delegate);
}

void KeldaneProxy::setCallDelegateOnMainThread(bool onMainThread) {
  callDelegateOnMainThread_ = onMainThread;
}

const MethodSignature& KeldaneProxy::methodSignatureForSelector(std::string_view selector) const {
  const Protocol* protocol = protocol_;
  const MethodSignature* method = protocol == nullptr ? nullptr : protocol->find(selector);
  if (method == nullptr) {
    throw InvalidArgument("-[KeldaneProxy " + std::string(selector) + "]: unrecognized selector");
  }
  return *method;
}

Invocation KeldaneProxy::invocationFor(std::string_view selector, Arguments arguments) const {
  const MethodSignature& method = methodSignatureForSelector(selector);
  if (arguments.size() != method.argumentCodes.size()) {
    throw InvalidArgument("-[KeldaneProxy " + std::string(selector) +
                          "]: " + std::to_string(arguments.size()) + " arguments given");
  }
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const char type[] = {method.argumentCodes[i], '\0'};
    if (arguments[i].code() != type[0]) {
      arguments[i] = RawValue::decoded(arguments[i].encoded(), type);
    }
  }
  return {method, std::move(arguments), {}};
}

const PropertyList::Array& KeldaneProxy::emptyRequestFor(const MethodSignature& method) {
  auto known = std::find_if(emptyRequests_.begin(), emptyRequests_.end(),
                            [&](const auto& entry) { return entry.first == method; });
  if (known == emptyRequests_.end()) {
    known = emptyRequests_.insert(known, {method, makeEmptyRequest(method)});
  }
  return known->second;
}

RawValue KeldaneProxy::call(std::string_view selector, Arguments arguments) {
  Invocation invocation = invocationFor(selector, std::move(arguments));
  forwardInvocation(invocation);
  return std::move(invocation.result);
}

bool KeldaneProxy::callWithoutWaiting(std::string_view selector, Arguments arguments) {
  const std::shared_ptr<KeldaneProxy> self = shared_from_this();  // see forwardInvocation
  const Invocation invocation = invocationFor(selector, std::move(arguments));
  const std::shared_ptr<KeldaneSocket> link = socket();
  // Every sender holds this lock, so the peer's free buffer space cannot shrink until the message is sent.
  if (!link || !forwardingLock_.try_lock()) {
    return false;
  }
  const ScopedLock forwarding(forwardingLock_, std::adopt_lock);
  if (!link->isReadyToSend()) {
    return false;
  }
  const std::optional<Bytes> payload =
      serialized(requestOf(emptyRequestFor(invocation.signature), invocation.arguments), nullptr);
  if (!payload) {
    return false;
  }
  sendFrame(kRequestFrame, payload);
  return true;
}

void KeldaneProxy::forwardInvocation(Invocation& invocation) {
  // A failed write takes the link down on this thread. That may release the last other owner of this proxy.
  const std::shared_ptr<KeldaneProxy> self = shared_from_this();
  const ScopedLock forwarding(forwardingLock_);
  std::optional<Bytes> payload =
      serialized(requestOf(emptyRequestFor(invocation.signature), invocation.arguments), nullptr);
  if (!payload) {
    KeldaneCLog("serialization failed");
    return;
  }
  const char returnType[] = {invocation.signature.returnCode, '\0'};
  const bool returnsValue = widthOfType(returnType) != 0;
  if (returnsValue) {
    // Set before the request is sent, because the failure signal may come before this thread continues.
    waitingOnResult_ = true;
  }
  sendFrame(kRequestFrame, payload);
  if (!returnsValue) {
    return;
  }
  payload.reset();  // freed while the peer works on it
  const std::shared_ptr<KeldaneSocket> link = socket();
  if (!link || !link->isReceiving()) {
    // There was no link, or the write failed and this thread took the link down. Neither an answer nor a
    // failure signal will come.
    waitingOnResult_ = false;
    return;
  }
  resultCond_.lockWhenCondition(1);
  const std::optional<PropertyList> result = std::exchange(resultObject_, std::nullopt);
  resultCond_.unlockWithCondition(0);
  if (!result && link->ranOutOfMemory()) {
    throw std::bad_alloc();  // the answer came but could not be stored; to return nothing would be wrong
  }
  invocation.result = result ? RawValue::decoded(*result, returnType) : RawValue();
}

void KeldaneProxy::sendFrame(std::int32_t type, const std::optional<Bytes>& payload) {
  const std::shared_ptr<KeldaneSocket> target = socket();
  const ScopedLock guard(socketLock_);
  sendTo(target, &KeldaneSocket::sendFrame, type, payload ? &*payload : nullptr);
}

bool KeldaneProxy::processData(const Bytes* payload, std::int32_t type) {
  try {
    switch (type) {
      case kRequestFrame:
        processInvocationArgs(payload == nullptr
                                  ? PropertyList()
                                  : unserialized(*payload, "Failed to unserialize request: %@"));
        break;
      case kResponseFrame:
        processResponse(payload);
        break;
      default:
        processFailure();
    }
  } catch (const std::bad_alloc&) {
    throw;  // this fails the link, because somebody may wait for the lost message
  } catch (const Exception& exception) {
    KeldaneCLog("ERROR: KeldaneProxy processData caught exception: %@.", exception.what());
  } catch (...) {
    KeldaneCLog("ERROR: KeldaneProxy processData caught unknown exception.");
  }
  return true;
}

void KeldaneProxy::processResponse(const Bytes* payload) {
  const Protocol* protocol = protocol_;
  if (protocol != nullptr && !protocol->hasAnswers()) {
    return;  // no call would fetch the result, and later messages of the peer would have to wait
  }
  resultCond_.wake();  // waking the caller takes longer than reading a short answer
  PropertyList result;
  if (payload != nullptr) {
    const ScopedLock guard(answerKeysMutex_);
    result = unserialized(*payload, "Failed to unserialize response: %@", &answerKeys_);
  }
  // A new result never replaces one that its caller has not fetched yet.
  if (resultCond_.lockWhenCondition(0, [this] { return closing_.load(); })) {
    resultObject_ = std::move(result);
    resultCond_.unlockWithCondition(1);
  }
}

void KeldaneProxy::processFailure() {
  if (!resultCond_.lockWhenCondition(0, [this] { return closing_.load(); })) {
    return;
  }
  // The first call that waits sets the flag, and only `close` clears it. So a failure signal that comes while
  // nobody waits makes a result ready too. The next call fetches that result at once, and from then on each
  // call gets the answer to the call before it. This is kept on purpose and does no harm, because a link that
  // failed is closed.
  const bool waiting = waitingOnResult_;
  if (waiting) {
    KeldaneCLog("KeldProxy detected error while waiting on result");
    resultObject_.reset();
  }
  resultCond_.unlockWithCondition(waiting ? 1 : 0);
}

void KeldaneProxy::processInvocationArgs(const PropertyList& request) {
  if (!request.isArray() || request.count() < kFirstArgument) {
    return;
  }
  std::shared_ptr<InvocationTarget> target;
  {
    const ScopedLock guard(membersMutex_);
    target = delegate_.lock();
  }
  constexpr char kMethod[] = "-[KeldaneProxy processInvocationArgs:]";
  if (!target) {
    throw AssertionFailure(kMethod, "Common/KeldProxy", kNoDelegateLine, "delegate is NULL");
  }
  const PropertyList selector = request[2];
  const MethodSignature* method = target->methodSignatureForSelector(selector.string());
  if (method == nullptr) {
    return;  // a peer that waits for a value continues to wait
  }

  Invocation invocation{*method, {}, {}};
  invocation.arguments.reserve(method->argumentCodes.size());
  // The count is computed in 32 bits, so a count that wraps around reads fewer arguments than it says.
  const std::uint32_t end = static_cast<std::uint32_t>(request[3].unsignedLongValue()) * 2 + kFirstArgument;
  for (std::uint32_t i = kFirstArgument; i < end; i += 2) {
    if (std::size_t{i} + 1 >= request.count()) {
      throw RangeError("index " + std::to_string(i + 1) + " beyond bounds [0 .. " +
                       std::to_string(request.count() - 1) + "]");
    }
    const PropertyList type = request[i];  // the type that the sender gave, not the method's
    invocation.arguments.push_back(RawValue::decoded(request[i + 1], type.string().data()));
  }

  if (!callDelegateOnMainThread_) {
    performDirectly(*target, invocation);
    return;
  }
  const char returnType[] = {method->returnCode, '\0'};
  if (widthOfType(returnType) != 0) {
    throw AssertionFailure(kMethod, "Common/KeldProxy", kValueOnMainThreadLine,
                           "invocation on main thread not allowed for methods with non-zero return size");
  }
  const ScopedLock guard(invocationLock_);
  if (invocationQueue_.empty()) {  // a call behind others needs no wake-up of its own
    invocationPort_->send(kPerformQueuedCalls);
  }
  invocationQueue_.push_back({target, std::move(invocation)});
}

void KeldaneProxy::performDirectly(InvocationTarget& target, Invocation& invocation) {
  const ScopedLock forwarding(forwardingLock_);
  try {
    target.invoke(invocation);
  } catch (const std::bad_alloc&) {
    throw;  // this fails the link, because any answer would be wrong
  } catch (const Exception& exception) {
    KeldaneCLog("ERROR: KeldaneProxy processInvocationArgs caught exception: %@.", exception.what());
  } catch (...) {
    KeldaneCLog("ERROR: KeldaneProxy processInvocationArgs caught unknown exception.");
  }
  const char returnType[] = {invocation.signature.returnCode, '\0'};
  if (widthOfType(returnType) == 0) {
    return;
  }
  PropertyList value = encodedResult(invocation.result, returnType);
  invocation.result = {};
  std::optional<Bytes> payload;
  if (value) {
    std::string error;
    // The value, which may be large, is released before the payload is sent.
    payload = serialized(std::exchange(value, {}), &error);
    if (!error.empty()) {
      KeldaneCLog("Failed to serialize response: %@", error);
    }
  }
  sendFrame(kResponseFrame, payload);
}

void KeldaneProxy::handlePortMessage(std::uint32_t messageId) {
  if (messageId != kPerformQueuedCalls) {
    return;
  }
  for (;;) {
    QueuedCall call;
    {
      const ScopedLock guard(invocationLock_);
      if (invocationQueue_.empty()) {
        return;
      }
      call = std::move(invocationQueue_.front());
      invocationQueue_.pop_front();
    }
    try {
      sendTo(call.target.lock(), &InvocationTarget::invoke, call.invocation);
    } catch (...) {
      // The run loop logs the exception and ends this pass. The calls that are still queued need a new
      // wake-up.
      invocationPort_->send(kPerformQueuedCalls);
      throw;
    }
  }
}

void KeldaneProxy::socketClosing() {
  closing_ = true;
  resultCond_.wake();
}

void KeldaneProxy::close() {
  std::shared_ptr<KeldaneSocket> released;
  {
    const ScopedLock guard(membersMutex_);
    released.swap(socket_);
  }
  waitingOnResult_ = false;
  socketClosing();
}

}  // namespace keldane
