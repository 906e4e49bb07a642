#include "clients/core/OwnerLink.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/objects/Exceptions.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/RawPeer.h"

namespace keldane {
namespace {

/// A listener on the second socket; nothing listens on the first.
class OwnerLinkTest : public ::testing::Test {
 protected:
  OwnerLinkTest() { std::filesystem::rename(peer_.path(), ownerSocketPath(peer_.path())); }
  testing::RawPeer peer_;
  OwnerLink link_{peer_.path()};
};

TEST_F(OwnerLinkTest, AsksOnTheSecondSocket) {
  std::thread daemon([&] {
    testing::RawConnection client = peer_.accept();
    const PropertyList request = client.readFrame().value();
    EXPECT_EQ(request[2].string(), "find:");
    client.answer(PropertyList::dictionary({{"echo", request[5]["pattern"]}}));
  });
  ASSERT_TRUE(link_.connect());
  EXPECT_EQ(link_.find(PropertyList::dictionary({{"pattern", "*.txt"}}))["echo"].string(), "*.txt");
  daemon.join();
}

TEST_F(OwnerLinkTest, AnswersNothingWhenTheDaemonGoes) {
  std::thread daemon([&] {
    testing::RawConnection client = peer_.accept();
    client.readFrame();
  });
  ASSERT_TRUE(link_.connect());
  EXPECT_FALSE(link_.isAtEnd());
  EXPECT_TRUE(link_.failures(PropertyList::dictionary({})).isAbsent());
  EXPECT_TRUE(link_.isAtEnd());
  daemon.join();
}

TEST_F(OwnerLinkTest, AsksNothingThatIsNotInTheTable) {
  ASSERT_TRUE(link_.connect());
  EXPECT_THROW(link_.call("terminate", {}), InvalidArgument);
}

TEST(OwnerLinkAlone, IsNotConnectedWhereNobodyListens) {
  const testing::TemporaryFolder folder;
  OwnerLink link(folder / "none");
  EXPECT_FALSE(link.connect());
  EXPECT_TRUE(link.isAtEnd());
  EXPECT_TRUE(link.failures(PropertyList::dictionary({})).isAbsent());
}

TEST(OwnerLinkAlone, IsNotConnectedToTheBeginningOfAPathThatIsTooLong) {
  const testing::TemporaryFolder folder;
  const std::string longest = folder / std::string(103 - folder.path().string().size() - 1, 's');
  const auto listener = KeldaneSocket::create();
  ASSERT_TRUE(listener->listenAtPath(longest));
  EXPECT_FALSE(OwnerLink(longest).connect());
  listener->close();
}

}  // namespace
}  // namespace keldane
