#include "daemon/restore/RestorePlan.h"

#include "tests/daemon/restore/RestoreFixture.h"

namespace keldane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class RestorePlanTest : public RestoreFixture {};

TEST_F(RestorePlanTest, RestoresWithoutTheCatalogueWhatTheNewestSnapshotHas) {
  write("docs/a.txt", "one");
  write("docs/b.txt", "kept");
  std::filesystem::create_directories(home() + "/docs/empty");
  const std::uint32_t one = backUp();
  write("docs/a.txt", "two");
  backUp({home() + "/docs/a.txt"});
  store_->clearCatalogue();
  RestoreRequest request = requestFor({"docs"});
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_EQ(interfering_.finds, 1);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/a.txt", "docs/b.txt", "docs/empty"));
  EXPECT_EQ(readWhole(target() + "/docs/a.txt"), "two");
  request = requestFor({"docs/a.txt"}, one);
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(target() + "/a.txt"), "one");
}

TEST_F(RestorePlanTest, SaysSoWhenNothingIsStored) {
  write("a.txt", "stored");
  backUp();
  const RestoreReport report = restore(requestFor({"nothing.txt"}));
  EXPECT_EQ(report.status, RestoreStatus::failed);
  EXPECT_THAT(report.message, HasSubstr("Nothing is stored of"));
}

TEST_F(RestorePlanTest, RestoresLinksOfWhichTheCatalogueKnowsNothing) {
  write("docs/a.txt", "stored");
  backUp();
  std::filesystem::create_symlink("a.txt", home() + "/docs/link");
  const std::uint32_t number = store_->takeNumber();
  const StoreAnswer answer = store({home()}, {"keldane", "number:" + std::to_string(number), "full"});
  store_->addSnapshot({number, answer.snapshot, 2'000'000, true, {}}, {},
                      std::vector<std::string>{home() + "/docs/a.txt"});
  EXPECT_EQ(restore(requestFor({"docs"})).status, RestoreStatus::done);
  EXPECT_EQ(std::filesystem::read_symlink(target() + "/docs/link"), "a.txt");
  // A link that is asked for by itself is looked for in the repository.
  EXPECT_EQ(restore(requestFor({"docs/link"})).restored, 1U);
  EXPECT_EQ(std::filesystem::read_symlink(target() + "/link"), "a.txt");
}

TEST_F(RestorePlanTest, TakesVersionsThatWereGatheredUnderAPrefix) {
  const std::string path = write("docs/old.txt", "old");
  write("docs/new.txt", "new");
  const std::uint32_t one = backUp();
  const std::string prefix = data().work() + "/gathered-2";
  const std::string copy = prefix + path;
  std::filesystem::create_directories(std::filesystem::path(copy).parent_path());
  std::filesystem::copy(path, copy);
  const std::uint32_t gathered = store_->takeNumber();
  const StoreAnswer answer = store({prefix}, {"keldane", "number:" + std::to_string(gathered), "gathered"});
  store_->addGathered({gathered, answer.snapshot, 2'000'000, false, prefix}, {{path, one}});
  remove("docs/old.txt");
  backUp();
  store_->removeSnapshots({one});
  EXPECT_EQ(restore(requestFor({"docs/old.txt"})).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(target() + "/old.txt"), "old");
  EXPECT_EQ(restore(requestFor({"docs"})).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(target()), ElementsAre("docs", "docs/new.txt", "docs/old.txt", "old.txt"));
  RestoreRequest request = requestFor({"docs/old.txt"});
  request.target.clear();
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(path), "old");
}

TEST_F(RestorePlanTest, TakesTheYoungerOfAFileAndAFolderOfOneName) {
  write("thing", "a file");
  const std::uint32_t one = backUp();
  remove("thing");
  write("thing/inside", "a folder");
  backUp();
  EXPECT_EQ(restore(requestFor({"thing"})).status, RestoreStatus::done);
  EXPECT_THAT(contentsOf(target()), ElementsAre("thing", "thing/inside"));
  RestoreRequest request = requestFor({"thing"}, one);
  request.target = folder_ / "other";
  EXPECT_EQ(restore(request).status, RestoreStatus::done);
  EXPECT_EQ(readWhole(request.target + "/thing"), "a file");
}

TEST_F(RestorePlanTest, TakesItemsOfDifferentVersionsThatLieInOneAnother) {
  write("docs/a.txt", "one");
  write("docs/b.txt", "one");
  const std::uint32_t one = backUp();
  write("docs/a.txt", "second");
  write("docs/b.txt", "second");
  backUp();
  RestoreRequest request = requestFor({"docs"});
  request.items.push_back({home() + "/docs/a.txt", one});
  request.target.clear();
  request.conflict = Conflict::replace;
  std::filesystem::remove_all(home() + "/docs");
  EXPECT_EQ(restore(request).restored, 3U);
  EXPECT_EQ(readWhole(home() + "/docs/a.txt"), "one");
  EXPECT_EQ(readWhole(home() + "/docs/b.txt"), "second");
}

}  // namespace
}  // namespace keldane::testing
