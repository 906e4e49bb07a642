// The tables of the protocol's reference against those of the code.
#include <gtest/gtest.h>

#include <set>

#include "Common/calls/OwnerProtocol.h"
#include "Common/nodes/FileNode.h"
#include "Common/transport/KeldSocket.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/server/DaemonServer.h"
#include "platform/plist/PropertyListSerialization.h"
#include "tests/protocol/ReferenceFiles.h"

namespace keldane::testing {
namespace {

const Json& tables() {
  static const auto& json = *new Json(referenceFile("protocol.json"));
  return json;
}

constexpr char kAdvice[] = "Mend docs/protocol/protocol.json and run scripts/protocol-tables.";

void expectMethods(const Protocol& protocol, const Json& table) {
  ASSERT_EQ(table.size(), protocol.methods.size()) << kAdvice;
  for (std::size_t i = 0; i < table.size(); ++i) {
    const MethodSignature& method = protocol.methods[i];
    std::string codes;
    for (const Json& argument : table[i]["arguments"]) {
      codes += argument.get<std::string>().front();
    }
    EXPECT_EQ(table[i]["selector"], method.selector);
    EXPECT_EQ(table[i]["returns"], std::string(1, method.returnCode)) << method.selector;
    EXPECT_EQ(codes, method.argumentCodes) << method.selector;
  }
}

TEST(Reference, HasTheMethodsOfTheTable) {
  expectMethods(KeldaneDaemonProtocol, tables()["methods"]);
  EXPECT_EQ(tables()["methods"].size(), 55U);
}

TEST(Reference, HasTheCallbacks) { expectMethods(KeldaneClientProtocol, tables()["callbacks"]); }

TEST(Reference, HasTheMethodsOfTheSecondSocket) {
  const Json& selectors = tables()["ownerMethods"];
  ASSERT_EQ(selectors.size(), KeldaneOwnerProtocol.methods.size()) << kAdvice;
  for (std::size_t i = 0; i < selectors.size(); ++i) {
    EXPECT_EQ(selectors[i]["selector"], KeldaneOwnerProtocol.methods[i].selector);
  }
}

TEST(Reference, HasTheFrame) {
  const Json& frame = tables()["frame"];
  EXPECT_EQ(frame["marker"], kFrameMarker);
  EXPECT_EQ(frame["types"]["request"], kRequestFrame);
  EXPECT_EQ(frame["types"]["response"], kResponseFrame);
}

TEST(Reference, HasTheTypeCodes) {
  std::string codes;
  for (const Json& row : tables()["typeCodes"]) {
    const std::string code = row["code"];
    codes += code;
    EXPECT_EQ(row["width"], widthOfType(code.c_str())) << code;
  }
  EXPECT_EQ(codes, "cislqCISLQfdB@*v");
}

/// Every name that the node's text prints for any single bit, with that bit.
template <class Print>
std::set<std::pair<std::string, std::uint32_t>> namesByBit(const Print& print) {
  std::set<std::pair<std::string, std::uint32_t>> names;
  for (std::uint32_t bit = 0; bit < 32; ++bit) {
    const std::string text = print(std::uint32_t{1} << bit);
    const std::size_t colon = text.find(" : ");
    std::istringstream words(text.substr(colon + 3));
    for (std::string word; words >> word;) {
      if (word.starts_with("Backup_") && word != "Backup_Priority") {
        names.emplace(word, std::uint32_t{1} << bit);
      }
    }
  }
  return names;
}

std::set<std::pair<std::string, std::uint32_t>> namesInTable(const char* table) {
  std::set<std::pair<std::string, std::uint32_t>> names;
  for (const Json& row : tables()[table]) {
    const auto mask = static_cast<std::uint32_t>(std::stoul(row["mask"].get<std::string>(), nullptr, 16));
    if (mask == backup_flags::kPriorityMask) {
      EXPECT_EQ(row["name"], "Backup_Priority");
    } else {
      names.emplace(row["name"], mask);
    }
  }
  return names;
}

TEST(Reference, HasTheBackupFlags) {
  auto names = namesByBit([](std::uint32_t bit) {
    const KeldaneFileNode::Pointer node = KeldaneFileNode::create();
    node->setBackupFlags(bit);
    return node->backupFlagsString();
  });
  EXPECT_EQ(names.erase({"Backup_Folder_Exclude", backup_flags::kNoFolder}), 1U);  // one bit, two names
  EXPECT_EQ(namesInTable("backupFlags"), names);
}

TEST(Reference, HasTheSimpleFlags) {
  const auto names = namesByBit([](std::uint32_t bit) {
    const KeldaneFileNode::Pointer node = KeldaneFileNode::create();
    node->setSimpleFlags(bit);
    return node->simpleFlagsString();
  });
  EXPECT_EQ(namesInTable("simpleFlags"), names);
}

TEST(Reference, HasTheColours) {
  const Json& colors = tables()["colors"];
  const KeldaneFileNode::Pointer node = KeldaneFileNode::create();
  for (std::size_t i = 0; i < colors.size(); ++i) {
    node->setBackupColor(static_cast<std::int32_t>(i));
    EXPECT_EQ(colors[i]["number"], i);
    EXPECT_EQ(colors[i]["name"], node->backupColorString().string());
  }
  node->setBackupColor(static_cast<std::int32_t>(colors.size()));
  EXPECT_TRUE(node->backupColorString().isAbsent());
}

TEST(Reference, HasTheRulesForTypesAndTheLimits) {
  EXPECT_EQ(tables()["typeToggles"]["backUp"], kTypeBackup);
  EXPECT_EQ(tables()["typeToggles"]["exclude"], kTypeExclude);
  const Json& limits = tables()["limits"];
  const ServerLimits ours;
  EXPECT_EQ(limits["longestRequest"], ours.longestRequest);
  EXPECT_EQ(limits["connectionsOfUser"], ours.connectionsOfUser);
  EXPECT_EQ(limits["requestSeconds"],
            std::chrono::duration_cast<std::chrono::seconds>(ours.requestTime).count());
  EXPECT_EQ(limits["deepestNesting"], PropertyListSerialization::kMaximumDepth);
  const std::size_t longest = limits["longestPath"];
  EXPECT_TRUE(normalizedPath("/" + std::string(longest - 1, 'x')));
  EXPECT_FALSE(normalizedPath("/" + std::string(longest, 'x')));
}

TEST(Reference, HasTheTypesOfFiles) {
  for (const auto& [name, type] : {std::pair("letter.txt", ".txt"),
                                   {"archive.tar.gz", ".gz"},
                                   {"LETTER.TXT", ".TXT"},
                                   {"letter", "."},
                                   {".profile", "."},
                                   {"letter.", "."}}) {
    EXPECT_EQ(fileType(std::string("/home/ann/") + name), type) << name;
  }
}

}  // namespace
}  // namespace keldane::testing
