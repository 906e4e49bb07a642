// Anything that a peer can send to a proxy: requests, answers and failure signals.
#include "Common/calls/KeldProxy.h"

#include <optional>

#include "fuzz/FrameStream.h"
#include "fuzz/plist/PropertyLists.h"
#include "log/KeldaneLog.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

constexpr MethodSignature kMethods[] = {
    {"echo:", '@', "@"}, {"add:", 'q', "q"}, {"tell:", 'v', "@"}, {"odd", '*', ""}};
constexpr Protocol kProtocol = {"Echo", kMethods};

/// Returns the first argument of each call.
struct Echo final : InvocationTarget {
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    return kProtocol.find(selector);
  }
  void invoke(Invocation& invocation) override {
    ++calls;
    last = invocation.signature;
    invocation.arguments.resize(1);
    argument = invocation.arguments[0].as<'@'>();
    if (last.returnCode == '@') {
      invocation.result = RawValue::of<'@'>(argument);
    } else if (last.returnCode == 'q') {
      invocation.result = RawValue::of<'q'>(invocation.arguments[0].as<'q'>());
    }
  }
  int calls = 0;
  MethodSignature last;
  PropertyList argument;
};

/// One proxy for all runs. Each run leaves it without a waiting result.
struct Link {
  Link() {
    setLogReceiver([](std::string_view) {});
    gLoggingEnabled = true;
    socket->setSocket(peer.other());
    proxy->setSocket(socket);
    proxy->setProtocol(&KeldaneDaemonProtocol);
    proxy->setDelegate(target);
    require(socket->start(), "there is a thread");
    answer(writtenAnswer("first"), kResponseFrame);  // from now on a failure signal provides a result
  }

  static Bytes writtenAnswer(const PropertyList& value) { return written(value, Format::binary); }

  /// The result of a call after this frame was received.
  PropertyList answer(const Bytes& payload, std::int32_t type) {
    proxy->processData(payload.empty() ? nullptr : &payload, type);
    PropertyList result = proxy->dictionaryForPath("/file", 1);
    const std::vector<Frame> sent = FrameStream(peer.read(1000)).frames;
    require(sent.size() == 1 && sent[0].type == kRequestFrame &&
                readBack(sent[0].payload, Format::binary).identical(kRequest),
            "a call is one request");
    return result;
  }

  const PropertyList kRequest =
      PropertyList::array({8, "@", "dictionaryForPath:withDirSizes:", 2, "@", "/file", "c", 1});
  const Connection peer;
  const std::shared_ptr<Echo> target = std::make_shared<Echo>();
  const std::shared_ptr<KeldaneSocket> socket = KeldaneSocket::create();
  const std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
};

void checkAnswer(Link& link, const Bytes& payload, std::int32_t type) {
  const PropertyList result = link.answer(payload, type);
  const PropertyList expected = type == kResponseFrame && !payload.empty()
                                    ? PropertyListSerialization::propertyListFromData(payload, nullptr)
                                    : PropertyList();
  require(result.isAbsent() == expected.isAbsent() && result.description() == expected.description(),
          "a call yields what was answered");
}

void checkRequest(Link& link, const Bytes& payload, bool onMainThread) {
  const int before = link.target->calls;
  link.proxy->setCallDelegateOnMainThread(onMainThread);
  link.proxy->processData(payload.empty() ? nullptr : &payload, kRequestFrame);
  RunLoop::current().runDue();
  const int calls = link.target->calls - before;
  const bool returns = link.target->last.returnCode != 'v';
  require(calls <= 1 && (calls == 0 || !onMainThread || !returns), "a request is one call");
  const std::vector<Frame> sent = FrameStream(link.peer.read(calls > 0 && returns ? 1000 : 0)).frames;
  require(sent.size() == (calls > 0 && returns ? 1 : 0),
          "a call that returns a value is answered, no other is");
  if (sent.empty()) {
    return;
  }
  require(sent[0].type == kResponseFrame, "an answer is a response");
  const bool answers = !sent[0].payload.empty();
  const PropertyList value = answers ? readBack(sent[0].payload, Format::binary) : PropertyList();
  require(link.target->last.returnCode != '@' || value.description() == link.target->argument.description(),
          "an answer is what was returned");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Link& link = *new Link;
  Input input(data, size);
  const std::uint8_t type = input.number();
  const bool onMainThread = input.number() % 2 == 0;
  const Bytes payload(input.rest().begin(), input.rest().end());
  if (type == kRequestFrame) {
    checkRequest(link, payload, onMainThread);
  } else {
    checkAnswer(link, payload, type);
  }
  return 0;
}
