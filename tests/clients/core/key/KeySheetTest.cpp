#include "clients/core/key/KeySheet.h"

#include <gtest/gtest.h>

#include "clients/core/key/QrCode.h"

namespace keldane {
namespace {

const std::string kKey = "K7QF3ZB2MXWN5TDRAHV6YJCL4EGSPUOI2345672ABCDEFGHIJKLM";

KeySheet sheetOf(const std::string& key) {
  return {key, "sftp:me@host:/it's here", "0123abcd", "laptop", 3, "2026-11-20 12:00"};
}

std::string textOf(const std::string& key) { return keySheetText(sheetOf(key), QrCode(key).lines(true)); }

/// A key in groups, as a person would type it.
std::string typed(const std::string& key, const std::string& between) {
  std::string text;
  for (const std::string& group : keyGroups(key)) {
    text += (text.empty() ? "" : between) + group;
  }
  return text;
}

TEST(KeySheet, TellsKeysOfOurMakingFromOthers) {
  ASSERT_EQ(kKey.size(), 52U);
  EXPECT_TRUE(isMadeKey(kKey));
  EXPECT_FALSE(isMadeKey(kKey.substr(1)));
  EXPECT_FALSE(isMadeKey(kKey.substr(1) + '0'));
  EXPECT_FALSE(isMadeKey(kKey.substr(1) + 'a'));
  EXPECT_FALSE(isMadeKey(""));
}

TEST(KeySheet, PartsAKeyIntoGroups) {
  const std::vector<std::string> groups = keyGroups(kKey);
  ASSERT_EQ(groups.size(), 13U);
  EXPECT_EQ(groups.front(), "K7QF");
  EXPECT_EQ(groups.back(), "JKLM");
  EXPECT_EQ(keyGroups("my pass phrase"), std::vector<std::string>{"my pass phrase"});
}

TEST(KeySheet, HasACheckGroupThatTellsMistakes) {
  const std::string check = keyCheckGroup(kKey);
  ASSERT_EQ(check.size(), 4U);
  for (std::size_t i = 0; i < kKey.size(); ++i) {
    std::string wrong = kKey;
    wrong[i] = wrong[i] == 'A' ? 'B' : 'A';
    EXPECT_NE(keyCheckGroup(wrong), check) << i;
    if (i > 0 && kKey[i] != kKey[i - 1]) {
      wrong = kKey;
      std::swap(wrong[i], wrong[i - 1]);
      EXPECT_NE(keyCheckGroup(wrong), check) << "turned round at " << i;
    }
  }
  EXPECT_EQ(keyCheckGroup("ABCDEFGHIJKLMNOPQRSTUVWXYZ234567ABCDEFGHIJKLMNOPQRST"), "XMFC")
      << "what is on paper already must fit for ever";
}

TEST(KeySheet, SaysAllThatARestoreNeeds) {
  const std::string text = textOf(kKey);
  for (const char* part : {"sftp:me@host:/it's here", "0123abcd", "3 (laptop)", "2026-11-20 12:00",
                           "    K7QF 3ZB2 MXWN 5TDR\n", "    JKLM\n", "cat > key.txt", "restic restore ID",
                           "RESTIC_REPOSITORY='sftp:me@host:/it'\\''s here'", "█▀▀▀▀▀█"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part;
  }
  EXPECT_EQ(restoreSteps(sheetOf(kKey)).size(), 5U);
  EXPECT_EQ(restoreSteps(sheetOf(kKey))[2].command.find(kKey), std::string::npos);
}

TEST(KeySheet, IsReadBackWhole) {
  for (const std::string& key : {kKey, std::string("my pass phrase"), std::string("The wrong key")}) {
    const KeyReading reading = readKey(textOf(key));
    EXPECT_EQ(reading.key, key) << reading.problem;
  }
  std::string text = textOf(kKey);
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
    text.insert(at, "\r");
  }
  EXPECT_EQ(readKey(text).key, kKey) << "a file that was on another system";
}

TEST(KeySheet, IsNotReadWithAMistakeInIt) {
  std::string text = textOf(kKey);
  text.replace(text.find("MXWN"), 4, "MXVN");
  EXPECT_EQ(readKey(text).key, "");
  EXPECT_EQ(readKey(text).problem, "The check group does not fit the key: a letter was misread.");
  text = textOf(kKey);
  text.resize(text.find("The check group"));
  EXPECT_EQ(readKey(text).problem, "The sheet has no check group.");
  EXPECT_EQ(readKey("The key\n").problem, "The sheet has no check group.");
  EXPECT_EQ(readKey("The key\nThe check group\n").problem, "The sheet has no check group.");
}

TEST(KeySheet, ReadsWhatIsTyped) {
  const std::string check = keyCheckGroup(kKey);
  for (const std::string& text :
       {kKey, kKey + "\n", typed(kKey, " "), typed(kKey, " ") + " " + check,
        typed(kKey, "-") + "\n" + check + "\n", typed(kKey, "\n") + "\n\n" + check}) {
    EXPECT_EQ(readKey(text).key, kKey) << text;
  }
  std::string small = typed(kKey, " ") + " " + check;
  for (char& c : small) {
    c = c == 'O' ? '0' : c == 'I' ? '1' : c == 'B' ? '8' : static_cast<char>(std::tolower(c));
  }
  EXPECT_EQ(readKey(small).key, kKey) << small;
}

TEST(KeySheet, SaysWhatIsWrongWithWhatIsTyped) {
  EXPECT_EQ(readKey(typed(kKey, " ") + " AAAA").problem,
            "The check group does not fit the key: a letter was misread.");
  EXPECT_EQ(readKey(kKey.substr(1)).problem,
            "The key has 52 letters and digits, and 4 more with the check group; here are 51.");
  EXPECT_EQ(readKey(" \n ").problem, "There is no key in it.");
  EXPECT_EQ(readKey("<svg/>").problem,
            "It is a picture: type the letters that stand in it, or scan its code.");
  EXPECT_EQ(readKey("some\nother file").problem, "It is neither a key nor a sheet.");
}

TEST(KeySheet, TakesAnyOtherLineAsItIs) {
  EXPECT_EQ(readKey("correct horse battery staple\n").key, "correct horse battery staple");
  EXPECT_EQ(readKey("secret").key, "secret");
  EXPECT_EQ(readKey(kKey.substr(0, 51) + "!").key, kKey.substr(0, 51) + "!");
}

TEST(KeySheetTest, IsMadeOfTheDaemonsAnswer) {
  const KeySheet sheet = keySheetFrom(PropertyList::dictionary({{"key", "K"},
                                                                {"location", "sftp:host:/backup"},
                                                                {"repositoryId", "id"},
                                                                {"hostName", "desk"},
                                                                {"computerNumber", std::uint64_t{7}}}));
  EXPECT_EQ(sheet.key, "K");
  EXPECT_EQ(sheet.location, "sftp:host:/backup");
  EXPECT_EQ(sheet.repositoryId, "id");
  EXPECT_EQ(sheet.hostName, "desk");
  EXPECT_EQ(sheet.computerNumber, 7U);
  EXPECT_FALSE(sheet.date.empty());
  EXPECT_TRUE(keySheetFrom(PropertyList()).key.empty());
}

}  // namespace
}  // namespace keldane
