#include "daemon/server/socket/ServerLimits.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <vector>

#include "tests/daemon/server/ServerFixture.h"

namespace keldane {
namespace {

using std::chrono::milliseconds;
using testing::Client;
using testing::connectedTo;
using testing::eventually;
using testing::RawConnection;

std::string request(const char* returnType, const char* selector, const PropertyList::Array& arguments = {}) {
  PropertyList::Array array = {8, returnType, selector, static_cast<std::uint32_t>(arguments.size())};
  for (const PropertyList& argument : arguments) {
    array.emplace_back("@");
    array.push_back(argument);
  }
  return RawConnection::payloadOf(PropertyList::array(std::move(array)));
}

std::string header(std::uint32_t length) {
  std::string bytes = RawConnection::frame(kRequestFrame, "");
  bytes.resize(bytes.size() - sizeof(length));
  return bytes.append(reinterpret_cast<const char*>(&length), sizeof(length));
}

class ServerLimitsTest : public testing::DaemonServerTest {
 protected:
  /// Starts a daemon with the limits that the test has set.
  void again() {
    end();
    begin();
  }
  /// Makes a folder with this number of files, in memory if possible.
  std::string many(int entries) const {
    const Descriptor folder(open(memory_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < entries; ++i) {
      const Descriptor made(
          openat(folder.get(), ("entry " + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0600));
      EXPECT_TRUE(made);
    }
    return memory_.path().string();
  }
  static std::filesystem::path placeInMemory() {
    return access("/dev/shm", W_OK) == 0 ? std::filesystem::path("/dev/shm")
                                         : std::filesystem::temp_directory_path();
  }
  /// Checks that the daemon still serves everybody else.
  void expectService() { EXPECT_EQ(Client(options_.socket)->getCurrentRestoreJob(), 0U); }
  RawConnection peer() const { return connectedTo(options_.socket); }

  const testing::TemporaryFolder memory_{placeInMemory()};
};

TEST_F(ServerLimitsTest, AConnectionBeyondTheLimitIsClosedAndAPlaceThatIsLeftIsGiven) {
  limits_.connections = 3;
  again();
  RawConnection second = peer(), third = peer();
  EXPECT_TRUE(peer().isAtEnd());
  second.close();
  EXPECT_TRUE(eventually([&] {
    RawConnection another = peer();
    return another.tryWrite(RawConnection::frame(kRequestFrame, request("I", "getCurrentRestoreJob"))) &&
           another.readFrame().value() == PropertyList(0);
  }));
}

TEST_F(ServerLimitsTest, WhoHasLeftTakesNoPlaceAnyMore) {
  limits_.connectionsOfUser = 50;
  again();
  for (int i = 0; i < 500; ++i) {
    testing::Client client(options_.socket);
    ASSERT_TRUE(client->daemonState().isDictionary()) << i << " came and went within a second";
  }
}

TEST_F(ServerLimitsTest, AMessageThatIsTooLongEndsItsConnectionBeforeItHasCome) {
  limits_.longestRequest = 1000;
  again();
  std::vector<RawConnection> liars;
  for (const std::uint32_t length : {1001U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    liars.push_back(peer());
    liars.back().write(header(length) + "few");
  }
  for (RawConnection& liar : liars) {
    EXPECT_TRUE(liar.isAtEnd());
  }
  RawConnection honest = peer();
  std::string payload = request("I", "getFileTypeToggle:", {std::string(800, 'x')});
  ASSERT_LE(payload.size(), 1000U);
  honest.writeFrame(kRequestFrame, payload);
  EXPECT_EQ(honest.readFrame().value(), PropertyList(0));
}

TEST_F(ServerLimitsTest, AMessageThatIsNeverWholeEndsItsConnection) {
  limits_.requestTime = milliseconds(100);
  again();
  std::vector<RawConnection> halves;
  for (const std::string& part :
       {std::string("8"), std::string(testing::kMarkerText), header(100), header(100) + "x"}) {
    halves.push_back(peer());
    halves.back().write(part);
  }
  for (RawConnection& half : halves) {
    EXPECT_TRUE(half.isAtEnd());
  }
  expectService();
}

TEST_F(ServerLimitsTest, AMessageThatComesByteByByteForEverEndsItsConnection) {
  limits_.requestTime = milliseconds(200);
  again();
  RawConnection slow = peer();
  slow.write(header(1'000'000));
  const bool ended = eventually([&] {
    std::this_thread::sleep_for(milliseconds(10));
    return slow.isReadable(0) || !slow.tryWrite("x");
  });
  EXPECT_TRUE(ended);
}

TEST_F(ServerLimitsTest, AConnectionMayBeIdleForAsLongAsItLikes) {
  limits_.requestTime = milliseconds(50);
  again();
  RawConnection idle = peer();
  for (int i = 0; i < 2; ++i) {
    idle.writeFrame(kRequestFrame, request("I", "getCurrentRestoreJob"));
    EXPECT_EQ(idle.readFrame().value(), PropertyList(0));
    EXPECT_FALSE(idle.isReadable(300)) << "the end, or something that nobody asked for";
  }
}

TEST_F(ServerLimitsTest, WhoFloodsAndNeverReadsIsDisconnectedAndTheOthersAreAnswered) {
  limits_.stallTime = milliseconds(300);
  again();
  const std::string one = RawConnection::frame(kRequestFrame, request("@", "daemonState"));
  RawConnection flood = peer();
  bool open = true;
  for (int i = 0; i < 100'000 && open; ++i) {
    open = flood.tryWrite(one);  // blocks once the daemon reads no more
    if (i % 1000 == 0) {
      expectService();
    }
  }
  EXPECT_FALSE(open);
}

TEST_F(ServerLimitsTest, WhoReadsTooSlowlyIsDisconnected) {
  limits_.answerTime = milliseconds(300);
  limits_.stallTime = std::chrono::seconds(20);
  again();
  const std::string folder = many(5000);
  RawConnection slow = peer();
  slow.writeFrame(kRequestFrame, request("@", "childrenDictionariesForPath:", {folder}));
  std::size_t got = 0;
  while (true) {
    const std::string some = slow.read(2000);
    if (some.empty()) {
      break;
    }
    got += some.size();
    std::this_thread::sleep_for(milliseconds(5));
  }
  EXPECT_GT(got, 2000U);
  Client quick(options_.socket);
  const PropertyList whole = quick->childrenDictionariesForPath(folder);
  EXPECT_EQ(whole.count(), 5000U) << "who reads at once has it all";
  EXPECT_LT(got, RawConnection::payloadOf(whole).size());
}

TEST_F(ServerLimitsTest, AnswersThatWaitToBeReadShareABudget) {
  limits_.answerBytesOfUser = 100'000;
  again();
  const std::string folder = many(3000);
  RawConnection greedy = peer();
  greedy.writeFrame(kRequestFrame, request("@", "childrenDictionariesForPath:", {folder}));
  greedy.read(44);
  EXPECT_TRUE(greedy.isAtEnd());
  expectService();
}

TEST_F(ServerLimitsTest, RequestsThatComeInShareABudget) {
  limits_.requestBytesOfUser = 150'000;
  again();
  const std::string part = header(170'000) + std::string(169'999, 'x');
  {
    RawConnection first = peer();
    first.write(part);
    RawConnection second = peer();
    second.tryWrite(part);
    // The daemon may read either of them first: the one that exceeds the limit ends, the other one stays.
    EXPECT_TRUE(eventually([&] { return first.isReadable(10) || second.isReadable(10); })) << "too much";
    EXPECT_FALSE(first.isReadable(300) && second.isReadable(300)) << "there is room for one";
    expectService();  // small requests always have room
  }
  EXPECT_TRUE(eventually([&] {
    RawConnection third = peer();
    const std::string whole = request("I", "getFileTypeToggle:", {std::string(160'000, 'x')});
    return third.tryWrite(RawConnection::frame(kRequestFrame, whole)) &&
           third.readFrame().value() == PropertyList(0);
  })) << "given back";
}

TEST_F(ServerLimitsTest, APeerThatReadsNothingKeepsNobodyFromBeingToldOfTheState) {
  limits_.stallTime = std::chrono::seconds(30);
  again();
  RawConnection stuck = peer();
  stuck.writeFrame(kRequestFrame, request("v", "setStateHandler"));
  const std::string one = RawConnection::frame(kRequestFrame, request("@", "daemonState"));
  while (stuck.isWritable(300)) {
    ASSERT_TRUE(stuck.tryWrite(one));
  }
  RawConnection other = peer();
  other.writeFrame(kRequestFrame, request("v", "setStateHandler"));
  ASSERT_TRUE(other.isReadable(10'000));
  EXPECT_EQ(other.readFrame().value()[2].string(), "stateChanged:");
  (*client_)->setPausedMinutes(5U);
  ASSERT_TRUE(other.isReadable(10'000));
  EXPECT_EQ(other.readFrame().value()[5]["statusString"].string(), "Paused");
}

TEST_F(ServerLimitsTest, ALongSelectionIsOneRequest) {
  options_.store = memory_ / "store.sqlite";
  again();
  PropertyList::Array paths;
  for (int i = 0; i < 10'000; ++i) {
    paths.emplace_back(folder_.write(
        "home/many/a folder with quite a long name/and a file with one/" + std::to_string(i), ""));
  }
  (*client_)->setPausedMinutes(5U);
  (*client_)->addFilesToBackup(PropertyList::array(paths));
  EXPECT_EQ((*client_)->backupColorsForFiles(PropertyList::array(paths)).count(), 10'000U);
  EXPECT_EQ(daemon_->rules().rulesBelow(folder_ / "home/many").size(), 10'000U);
}

TEST_F(ServerLimitsTest, AListThatIsTooLongIsNotCarriedOutInPart) {
  const PropertyList path = docs("a.txt");
  const PropertyList tooMany = PropertyList::array(PropertyList::Array(100'001, path));
  (*client_)->addFilesToBackup(tooMany);
  EXPECT_TRUE((*client_)->backupColorsForFiles(tooMany).isAbsent());
  EXPECT_EQ(state(docs("a.txt")), "Not selected for backup");
}

TEST_F(ServerLimitsTest, AHundredThousandEntriesAreOneListing) {
#ifdef KELDANE_SANITIZED
  constexpr int kEntries = 10'000;  // with instrumentation these take as long
#else
  constexpr int kEntries = 100'000;
#endif
  const std::string folder = many(kEntries);
  const PropertyList listing = (*client_)->childrenDictionariesForPath(folder);
  EXPECT_EQ(listing.count(), std::size_t{kEntries});
  EXPECT_EQ(listing[0]["fileName"].string(), "entry 0");
}

TEST(WalkTurns, AreGivenToEachUserInTheOrderOfArrival) {
  WalkTurns turns(8, 1);
  WalkTurns::Line mine, yours;
  std::vector<int> order;
  std::vector<std::thread> waiting;
  {
    const WalkTurns::Turn first(turns, mine);
    ASSERT_TRUE(first);
    for (std::uint64_t i = 0; i < 5; ++i) {
      waiting.emplace_back([&turns, &mine, &order, i] {
        const WalkTurns::Turn turn(turns, mine);
        order.push_back(static_cast<int>(i));  // turns come one at a time, so no lock is needed
      });
      ASSERT_TRUE(eventually([&] { return turns.arrivedIn(mine) == i + 2; }));
    }
    EXPECT_TRUE(WalkTurns::Turn(turns, yours)) << "another user does not wait behind them";
    EXPECT_EQ(turns.underWay(), 1U);
  }
  for (std::thread& thread : waiting) {
    thread.join();
  }
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(turns.underWay(), 0U);
}

TEST(WalkTurns, AreLimitedInAll) {
  WalkTurns turns(2, 2);
  WalkTurns::Line lines[3];
  auto first = std::make_unique<WalkTurns::Turn>(turns, lines[0]);
  const WalkTurns::Turn second(turns, lines[1]);
  std::atomic<bool> begun = false;
  std::thread third([&] {
    const WalkTurns::Turn turn(turns, lines[2]);
    begun = true;
  });
  ASSERT_TRUE(eventually([&] { return turns.arrivedIn(lines[2]) == 1; }));
  EXPECT_FALSE(begun);
  first.reset();
  third.join();
  EXPECT_TRUE(begun);
}

TEST(WalkTurns, SendEverybodyAwayInTheEnd) {
  WalkTurns turns(1, 1);
  WalkTurns::Line line;
  const WalkTurns::Turn first(turns, line);
  std::thread second([&] { EXPECT_FALSE(WalkTurns::Turn(turns, line)); });
  ASSERT_TRUE(eventually([&] { return turns.arrivedIn(line) == 2; }));
  turns.end();
  second.join();
}

TEST(ByteBudget, IsPartOfAWhole) {
  const auto whole = std::make_shared<ByteBudget>(10);
  const auto mine = std::make_shared<ByteBudget>(8, whole);
  const auto yours = std::make_shared<ByteBudget>(8, whole);
  {
    ByteBudget::Share share(mine);
    EXPECT_TRUE(share.grow(6));
    EXPECT_FALSE(share.grow(3)) << "beyond mine";
    EXPECT_FALSE(ByteBudget::Share(yours).grow(5)) << "beyond the whole";
    EXPECT_TRUE(ByteBudget::Share(yours).grow(4));
    EXPECT_TRUE(share.grow(2));
    EXPECT_EQ(whole->left(), 2U);
  }
  EXPECT_EQ(whole->left(), 10U);
  EXPECT_EQ(mine->left(), 8U);
  EXPECT_TRUE(ByteBudget::Share(nullptr).grow(1'000'000));
}

}  // namespace
}  // namespace keldane
