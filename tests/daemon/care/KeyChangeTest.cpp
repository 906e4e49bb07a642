#include "daemon/care/KeyChange.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/RecordingEngine.h"

namespace keldane::testing {
namespace {

/// Thrown when the power fails.
struct PowerCut {};

/// A repository that consists of its keys only, with a power cut or a failure before or after any step.
class KeyedEngine : public RecordingEngine {
 public:
  explicit KeyedEngine(const RepositoryFiles& files) : RecordingEngine(files), files_(files) {
    known.insert(files.key());
  }

  std::set<std::string> known;
  int stepsLeft = -1;  ///< each call is two steps, its begin and its end; `interrupt` is called at 0
  std::function<EngineAnswer()> interrupt;

  EngineAnswer probe(EngineJob&) override {
    return step([&] { return answerForKey(); });
  }
  EngineAnswer keys(std::vector<KeyRecord>& found, EngineJob&) override {
    return step([&] {
      const EngineAnswer answer = answerForKey();
      found.clear();
      for (const std::string& key : known) {
        found.push_back({idOf(key), key == files_.key()});
      }
      return answer;
    });
  }
  EngineAnswer addKey(const std::string& text, EngineJob&) override {
    return step([&] {
      const EngineAnswer answer = answerForKey();
      if (answer) {
        known.insert(text);
      }
      return answer;
    });
  }
  EngineAnswer removeKey(const std::string& id, EngineJob&) override {
    return step([&] {
      const EngineAnswer answer = answerForKey();
      EXPECT_NE(id, idOf(files_.key())) << "the one in use";
      EXPECT_EQ(std::erase_if(known, [&](const std::string& key) { return idOf(key) == id; }), 1U);
      return answer;
    });
  }

 private:
  static std::string idOf(const std::string& key) { return std::to_string(std::hash<std::string>()(key)); }
  EngineAnswer answerForKey() const {
    return known.contains(files_.key()) ? EngineAnswer()
                                        : EngineAnswer{Health::wrongKey, "It does not open."};
  }
  EngineAnswer step(const std::function<EngineAnswer()>& work) {
    if (stepsLeft >= 0 && stepsLeft-- == 0) {
      return interrupt();
    }
    const EngineAnswer answer = work();
    return stepsLeft >= 0 && stepsLeft-- == 0 ? interrupt() : answer;
  }

  const RepositoryFiles files_;
};

class KeyChangeTest : public ::testing::Test {
 protected:
  KeyChangeTest() { former_ = files_.makeKey(); }
  bool hasRecord() const { return std::filesystem::exists(files_.folder().keyChange()); }

  const TemporaryFolder folder_;
  const RepositoryFiles files_{DataFolder{folder_ / "data"}};
  std::string former_;
  EngineJob job_;
};

TEST_F(KeyChangeTest, PutsANewKeyInPlaceOfTheFormer) {
  KeyedEngine engine(files_);
  engine.known.insert("a passphrase of a person's own");
  ASSERT_TRUE(KeyChange(engine, files_).run(job_));
  EXPECT_NE(files_.key(), former_);
  EXPECT_EQ(engine.known, (std::set<std::string>{"a passphrase of a person's own", files_.key()}));
  EXPECT_FALSE(hasRecord());
}

TEST_F(KeyChangeTest, AfterAPowerCutAtAnyTimeOneKeyOpensTheRepository) {
  int steps = 0;
  for (bool wasCut = true; wasCut; ++steps) {
    SCOPED_TRACE(steps);
    files_.setKey(former_);
    std::filesystem::remove(files_.folder().keyChange());
    KeyedEngine engine(files_);
    engine.stepsLeft = steps;
    engine.interrupt = []() -> EngineAnswer { throw PowerCut(); };
    wasCut = false;
    try {
      KeyChange(engine, files_).run(job_);
    } catch (const PowerCut&) {
      wasCut = true;
    }
    engine.stepsLeft = -1;
    EXPECT_TRUE(engine.known.contains(files_.key())) << "what is on the disk opens it";
    ASSERT_TRUE(KeyChange(engine, files_).goOn(job_));
    EXPECT_EQ(engine.known, std::set<std::string>{files_.key()});
    EXPECT_FALSE(hasRecord());
  }
  EXPECT_GT(steps, 8);
}

TEST_F(KeyChangeTest, AFailureAtAnyStepLeavesAKeyThatOpens) {
  for (int steps = 0; steps < 10; ++steps) {
    SCOPED_TRACE(steps);
    files_.setKey(former_);
    std::filesystem::remove(files_.folder().keyChange());
    KeyedEngine engine(files_);
    engine.stepsLeft = steps;
    engine.interrupt = [] { return EngineAnswer{Health::unreachable, "The network is away."}; };
    EXPECT_FALSE(KeyChange(engine, files_).run(job_));
    engine.stepsLeft = -1;
    EXPECT_TRUE(engine.known.contains(files_.key()));
    ASSERT_TRUE(KeyChange(engine, files_).goOn(job_));
    EXPECT_TRUE(engine.known.contains(files_.key()));
    EXPECT_FALSE(hasRecord());
  }
}

TEST_F(KeyChangeTest, AKeyThatAPersonGaveMeanwhileStays) {
  KeyedEngine engine(files_);
  engine.stepsLeft = 3;
  engine.interrupt = []() -> EngineAnswer { throw PowerCut(); };
  EXPECT_THROW(KeyChange(engine, files_).run(job_), PowerCut);
  engine.stepsLeft = -1;
  EXPECT_TRUE(hasRecord());
  engine.known.insert("imported");
  files_.setKey("imported");
  ASSERT_TRUE(KeyChange(engine, files_).goOn(job_));
  EXPECT_EQ(files_.key(), "imported");
  EXPECT_FALSE(hasRecord());
}

TEST_F(KeyChangeTest, ARecordThatCannotBeReadIsNotPassedOver) {
  folder_.write("data/key-change", "half");
  KeyedEngine engine(files_);
  EXPECT_THROW(KeyChange(engine, files_).goOn(job_), std::runtime_error);
  EXPECT_EQ(files_.key(), former_);
}

}  // namespace
}  // namespace keldane::testing
