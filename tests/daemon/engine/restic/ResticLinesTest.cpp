#include "daemon/engine/restic/output/ResticLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace keldane::testing {
namespace {

using ::testing::ElementsAre;

TEST(ResticLinesTest, ReadsWhatABackupSays) {
  std::vector<std::string> said;
  StoreObserver observer;
  observer.took = [&](const std::string& path, bool unchanged) {
    said.push_back(path + (unchanged ? " same" : ""));
  };
  observer.couldNotRead = [&](const std::string& path, const std::string& reason) {
    said.push_back(path + ": " + reason);
  };
  observer.progress = [&](std::uint64_t files, std::uint64_t bytes, const std::string& current) {
    said.push_back(std::to_string(files) + "/" + std::to_string(bytes) + " " + current);
  };
  BackupReader reader(observer);
  reader.outputLine(R"({"message_type":"verbose_status","action":"new","item":"/a"})");
  reader.outputLine(R"({"message_type":"verbose_status","action":"unchanged","item":"/b"})");
  reader.outputLine(R"({"message_type":"verbose_status","action":"modified","item":"/c/"})");
  reader.outputLine(R"({"message_type":"status","files_done":2,"bytes_done":3,"current_files":["/d","/e"]})");
  reader.outputLine("nonsense");
  EXPECT_FALSE(reader.someUnreadable());
  EXPECT_TRUE(reader.errorLine(
      R"({"message_type":"error","error":{"Op":"open","Err":13},"during":"scan","item":"/f"})"));
  EXPECT_FALSE(reader.someUnreadable());
  EXPECT_TRUE(reader.errorLine(
      R"({"message_type":"error","error":{"Op":"open","Err":13},"during":"archival","item":"/f"})"));
  EXPECT_TRUE(reader.errorLine(
      R"({"message_type":"error","error":{"message":"new words"},"during":"archival","item":"/g"})"));
  EXPECT_TRUE(reader.errorLine(
      R"({"message_type":"error","error":{"message":"open /g: permission denied"},"item":"/g"})"));
  EXPECT_TRUE(reader.errorLine(R"({"message_type":"error","error":{},"during":"archival","item":"/h"})"));
  EXPECT_TRUE(reader.errorLine("/i does not exist, skipping"));
  EXPECT_FALSE(reader.errorLine("Fatal: something"));
  EXPECT_TRUE(reader.someUnreadable());
  EXPECT_EQ(reader.snapshot(), "");
  reader.outputLine(R"({"message_type":"summary","snapshot_id":"12345678","data_added":99})");
  EXPECT_EQ(reader.snapshot(), "12345678");
  EXPECT_EQ(reader.bytesAdded(), 99U);
  EXPECT_THAT(said, ElementsAre("/a", "/b same", "2/3 /d", "/f: Permission denied", "/g: new words",
                                "/g: Permission denied", "/h: It cannot be read.", "/i: It is gone."));
}

TEST(ResticLinesTest, ReadsFatalErrorsHoweverTheyAreWritten) {
  EXPECT_EQ(fatalText(R"({"message_type":"exit_error","code":1,"message":"Fatal: one\ntwo"})"),
            "Fatal: one\ntwo");
  for (const char* line : {"Fatal: one", R"({"message_type":"error","message":"Fatal: one"})", "{one"}) {
    EXPECT_EQ(fatalText(line), line);
  }
}

TEST(ResticLinesTest, ReadsNamesHoweverTheyAreWritten) {
  std::vector<std::string> took;
  StoreObserver observer;
  observer.took = [&](const std::string& path, bool unchanged) {
    took.push_back(path + (unchanged ? " same" : ""));
  };
  BackupReader reader(observer);
  reader.outputLine(
      R"({"message_type":"verbose_status","action":"new","item":"/\"a\\","duration":0.1,"total_files":0})");
  reader.outputLine(R"({"message_type":"verbose_status","action":"modified","item":"/\u003cb\ufffd"})");
  reader.outputLine(R"({"action":"unchanged","item":"/c","message_type":"verbose_status"})");
  reader.outputLine(R"({"message_type":"verbose_status","action":"new","item":"/d/","duration":0.1})");
  reader.outputLine(R"({"message_type":"verbose_status","action":"scan_finished","item":"/e"})");
  reader.outputLine(R"({"message_type":"verbose_status","action":"new","item":"/f)");
  EXPECT_THAT(took, ElementsAre("/\"a\\", "/<b\xEF\xBF\xBD", "/c same"));
}

TEST(ResticLinesTest, ReadsWhichPacksACheckCallsDamaged) {
  const std::string a(64, 'a');
  const std::string b(64, 'b');
  const std::string c(64, 'c');
  CheckReader reader;
  reader.errorLine("Pack ID does not match, want " + a + ", got " + c);
  reader.errorLine("pack " + b + ": does not exist");
  reader.errorLine("pack " + b + ": unexpected file size: got 1, expected 2");
  reader.errorLine("pack " + c + ": not referenced in any index");
  reader.errorLine("pack nonsense");
  EXPECT_THAT(reader.packs(), ElementsAre(a, b));
  reader.errorLine("restic repair packs " + a + " " + c);
  EXPECT_THAT(reader.packs(), ElementsAre(a, b, c));
}

TEST(ResticLinesTest, KnowsProblemsOfContentFromThoseOfAttributes) {
  EXPECT_FALSE(problemFromLine("Fatal: There were 1 errors"));
  const auto content = problemFromLine("ignoring error for /a/b: ciphertext verification failed");
  ASSERT_TRUE(content);
  EXPECT_EQ(content->path, "/a/b");
  EXPECT_FALSE(content->onlyMetadata);
  for (const char* reason : {"lchown /x: operation not permitted", "UtimesNano: no such file",
                             "xattr.LSet /x: not supported", "chmod /x: operation not permitted"}) {
    EXPECT_TRUE(problemFromLine(std::string("ignoring error for /a: ") + reason)->onlyMetadata) << reason;
  }
}

TEST(ResticLinesTest, ReadsWhichSnapshotsAreDamaged) {
  const std::string id(64, 'a');
  EXPECT_EQ(unreadableSnapshot("error: load <snapshot/24676bc3a1>: invalid data returned"), "24676bc3a1");
  EXPECT_EQ(
      unreadableSnapshot("Ignoring \"24676bc3a1\": LoadRaw(<snapshot/24676bc3a1>): invalid data returned"),
      "24676bc3a1");
  EXPECT_EQ(unreadableSnapshot("Load(<snapshot/24676bc3a1>, 0, 0) returned error, retrying after 508ms: "
                               "invalid data returned"),
            "");
  EXPECT_EQ(unreadableSnapshot("load <snapshot/../../x>: invalid data returned"), "");
  EXPECT_EQ(unreadableSnapshot("load <snapshot/24676bc3a1>: connection refused"), "") << "it may be whole";
  EXPECT_EQ(snapshotWithoutTree(" ... which belongs to snapshot " + id), id);
  EXPECT_EQ(snapshotWithoutTree("else"), "");
}

}  // namespace
}  // namespace keldane::testing
