// The frame reader, given any bytes in pieces of any size.
#include "Common/transport/KeldSocket.h"

#include "fuzz/FrameStream.h"
#include "log/KeldaneLog.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

constexpr std::int32_t kLastType = 0x7E57;

struct Recorder final : KeldaneSocketDelegate {
  bool processData(const Bytes* payload, std::int32_t type) override {
    require(payload == nullptr || !payload->empty(), "an empty payload is absent");
    {
      const std::lock_guard guard(mutex);
      frames.push_back({type, payload == nullptr ? Bytes() : *payload});
    }
    if (type % 7 == 0) {
      throw type;  // the reader must catch a delegate's exception
    }
    return true;
  }
  std::vector<Frame> all() {
    const std::lock_guard guard(mutex);
    return frames;
  }
  std::mutex mutex;
  std::vector<Frame> frames;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setLogReceiver([](std::string_view) {});
  gLoggingEnabled = true;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t piece = 1 + input.below(64);
  const BytesView bytes = input.rest();
  Bytes stream(bytes.begin(), bytes.end());
  const bool ends = complete(stream);
  if (ends) {
    appendFrame(stream, kLastType, {});  // shows that everything before it was read
  }

  const Connection peer;
  const auto recorder = std::make_shared<Recorder>();
  const std::shared_ptr<KeldaneSocket> socket = KeldaneSocket::create();
  socket->setSocket(peer.other());
  socket->setDataDelegate(recorder);
  require(socket->start(), "there is a thread");
  for (BytesView left = stream; !left.empty();) {
    const BytesView next = left.first(std::min(piece * 16, left.size()));
    peer.write(next);
    left = left.subspan(next.size());
  }
  const std::vector<Frame> expected = FrameStream(stream).frames;
  require(soon([&] { return recorder->all().size() >= expected.size() && (ends || !peer.hasUnread()); }),
          "what is whole is delivered");
  socket->close();
  require(soon([&] { return socket.use_count() == 1; }), "a thread leaves when its socket is closed");
  require(recorder->all() == expected, "every frame is delivered as it was sent, and nothing else");
  return 0;
}
