#include "daemon/restore/RestoreRecords.h"

#include <gtest/gtest.h>

namespace keldane::testing {
namespace {

RestoreState sample() {
  RestoreState state;
  state.number = 7;
  state.request.items = {{"/a/\xff raw\n", 3}, {"/b", 0}};
  state.request.target = "/t";
  state.request.exactPath = "/e";
  state.request.conflict = Conflict::skip;
  state.request.before = 12.5;
  state.request.priority = 9;
  state.request.user = 1000;
  state.request.group = 1001;
  state.request.groups = {1002, 1003};
  state.report = {RestoreStatus::running, 10, 9, 8, 7, 6, 5, {"one\xff", "two"}, "waiting"};
  state.isDone = {true, false};
  state.staging = "/t/.keldane-restore-7-abcdef";
  state.isPlacing = true;
  state.portion = {1};
  state.portionFiles = 4;
  state.portionBytes = 5'000'000'000;
  return state;
}

TEST(RestoreRecordsTest, KeepAllThatIsKnownOfAJob) {
  const RestoreState state = sample();
  const std::optional<RestoreState> read = stateFrom(recordFrom(state));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->number, 7U);
  ASSERT_EQ(read->request.items.size(), 2U);
  EXPECT_EQ(read->request.items[0].path, state.request.items[0].path);
  EXPECT_EQ(read->request.items[0].version, 3U);
  EXPECT_EQ(read->request.target, "/t");
  EXPECT_EQ(read->request.exactPath, "/e");
  EXPECT_EQ(read->request.conflict, Conflict::skip);
  EXPECT_EQ(read->request.before, 12.5);
  EXPECT_EQ(read->request.priority, 9U);
  EXPECT_EQ(read->request.user, 1000U);
  EXPECT_EQ(read->request.group, 1001U);
  EXPECT_EQ(read->request.groups, state.request.groups);
  EXPECT_EQ(read->report.status, RestoreStatus::running);
  EXPECT_EQ(read->report.files, 10U);
  EXPECT_EQ(read->report.filesDone, 9U);
  EXPECT_EQ(read->report.bytes, 8U);
  EXPECT_EQ(read->report.bytesDone, 7U);
  EXPECT_EQ(read->report.restored, 6U);
  EXPECT_EQ(read->report.skipped, 5U);
  EXPECT_EQ(read->report.problems, state.report.problems);
  EXPECT_EQ(read->report.message, "waiting");
  EXPECT_EQ(read->isDone, state.isDone);
  EXPECT_EQ(read->staging, state.staging);
  EXPECT_TRUE(read->isPlacing);
  EXPECT_EQ(read->portion, state.portion);
  EXPECT_EQ(read->portionFiles, 4U);
  EXPECT_EQ(read->portionBytes, 5'000'000'000U);
}

TEST(RestoreRecordsTest, CannotBeReadFromAnythingElse) {
  Store::RestoreRecord record = recordFrom(sample());
  record.request = "nonsense";
  EXPECT_FALSE(stateFrom(record));
  record = recordFrom(sample());
  record.report.clear();
  EXPECT_FALSE(stateFrom(record));
}

TEST(RestoreRecordsTest, ListAThousandProblemsAtMost) {
  RestoreReport report;
  for (int i = 0; i < 2000; ++i) {
    addProblem(report, std::to_string(i));
  }
  EXPECT_EQ(report.problems.size(), 1000U);
  EXPECT_EQ(report.problems[998], "998");
  EXPECT_EQ(report.problems[999], "Further problems are not listed.");
}

}  // namespace
}  // namespace keldane::testing
