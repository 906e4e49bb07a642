#include "daemon/owner/OwnerService.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/LogCapture.h"
#include "tests/support/daemon/FakeOwnerRequests.h"

namespace keldane {
namespace {

using Entries = PropertyList::Entries;

class OwnerServiceTest : public ::testing::Test {
 protected:
  PropertyList ask(std::string_view selector, const PropertyList& request) {
    const MethodSignature* method = service_.methodSignatureForSelector(selector);
    EXPECT_NE(method, nullptr);
    Invocation invocation{*method, {RawValue::of<'@'>(request)}, {}};
    service_.invoke(invocation);
    return invocation.result.as<'@'>();
  }
  std::string errorOf(std::string_view selector, const Entries& request) {
    return std::string(ask(selector, PropertyList::dictionary(request))["error"].string());
  }

  const std::shared_ptr<testing::FakeOwnerRequests> daemon_ = std::make_shared<testing::FakeOwnerRequests>();
  OwnerService service_{daemon_};
};

TEST_F(OwnerServiceTest, PassesOnWhatIsWellFormed) {
  daemon_->answer = [](const std::string& operation, const PropertyList& request) {
    return PropertyList::dictionary({{"operation", operation}, {"pattern", request["pattern"]}});
  };
  const PropertyList answer = ask("find:", PropertyList::dictionary({{"pattern", "*.txt"}, {"more", true}}));
  EXPECT_EQ(answer["operation"].string(), "find");
  EXPECT_EQ(answer["pattern"].string(), "*.txt");
}

TEST_F(OwnerServiceTest, KnowsNoOtherSelectors) {
  EXPECT_EQ(service_.methodSignatureForSelector("daemonState"), nullptr);
  EXPECT_EQ(service_.methodSignatureForSelector("find"), nullptr);
}

TEST_F(OwnerServiceTest, AnswersARequestThatIsNoDictionary) {
  for (const PropertyList& request :
       {PropertyList(), PropertyList("text"), PropertyList(7), PropertyList::array({})}) {
    for (const MethodSignature& method : KeldaneOwnerProtocol.methods) {
      EXPECT_EQ(ask(method.selector, request)["error"].string(), "The request is no dictionary.");
    }
  }
  Invocation without{*KeldaneOwnerProtocol.find("find:"), {}, {}};
  service_.invoke(without);
  EXPECT_EQ(without.result.as<'@'>()["error"].string(), "The request is no dictionary.");
  EXPECT_TRUE(daemon_->asked().empty());
}

TEST_F(OwnerServiceTest, AnswersARequestThatLacksAKey) {
  EXPECT_EQ(errorOf("find:", {}), "The request lacks \"pattern\".");
  EXPECT_EQ(errorOf("recover:", {{"location", "/a"}}), "The request lacks \"key\".");
  EXPECT_EQ(errorOf("restoreReport:", {}), "The request lacks \"job\".");
  EXPECT_EQ(errorOf("restore:", {}), "The request lacks \"items\".");
  EXPECT_TRUE(daemon_->asked().empty());
}

TEST_F(OwnerServiceTest, AnswersAValueOfTheWrongKind) {
  EXPECT_EQ(errorOf("find:", {{"pattern", 7}}), "\"pattern\" of the request is not a text.");
  EXPECT_EQ(errorOf("settings:", {{"quotaMB", "much"}}), "\"quotaMB\" of the request is not a number.");
  EXPECT_EQ(errorOf("restore:", {{"items", "/a"}}), "\"items\" of the request is not a list.");
  const PropertyList items = PropertyList::array({PropertyList::dictionary({{"path", "/a"}})});
  EXPECT_EQ(errorOf("restore:", {{"items", items}, {"before", 5}}),
            "\"before\" of the request is not a date.");
  EXPECT_EQ(errorOf("setUpRepository:", {{"location", "/a"}, {"environment", PropertyList::array({})}}),
            "\"environment\" of the request is not a dictionary.");
  EXPECT_TRUE(daemon_->asked().empty());
}

TEST_F(OwnerServiceTest, AnswersAValueThatNobodyCanUse) {
  const PropertyList number = PropertyList::dictionary({{"NAME", 7}});
  EXPECT_EQ(errorOf("setUpRepository:", {{"location", "/a"}, {"environment", number}}),
            "\"environment\" of the request cannot be used.");
  EXPECT_EQ(errorOf("importKey:", {{"key", ""}}), "\"key\" of the request cannot be used.");
  EXPECT_EQ(errorOf("importKey:", {{"key", PropertyList(std::string("a\0b", 3))}}),
            "\"key\" of the request cannot be used.");
  EXPECT_EQ(errorOf("find:", {{"pattern", std::string(70'000, 'x')}}),
            "\"pattern\" of the request cannot be used.");
  for (const PropertyList& item :
       {PropertyList("text"), PropertyList::dictionary({}), PropertyList::dictionary({{"path", 1}}),
        PropertyList::dictionary({{"path", "/a"}, {"version", "new"}})}) {
    EXPECT_EQ(errorOf("restore:", {{"items", PropertyList::array({item})}}),
              "\"items\" of the request cannot be used.");
  }
  EXPECT_EQ(errorOf("restore:", {{"items", PropertyList::array({})}}),
            "\"items\" of the request cannot be used.");
  EXPECT_TRUE(daemon_->asked().empty());
}

TEST_F(OwnerServiceTest, AnswersAnErrorWhenTheDaemonFails) {
  const testing::LogCapture log;
  daemon_->answer = [](const std::string&, const PropertyList&) -> PropertyList {
    throw std::runtime_error("The disk is broken.");
  };
  EXPECT_EQ(errorOf("importKey:", {{"key", "VERY SECRET"}}),
            "The daemon could not do this: The disk is broken.");
  EXPECT_TRUE(log.hasPart("importKey:"));
  EXPECT_FALSE(log.hasPart("VERY SECRET"));
}

TEST_F(OwnerServiceTest, LetsWantOfMemoryEndTheConnection) {
  daemon_->answer = [](const std::string&, const PropertyList&) -> PropertyList { throw std::bad_alloc(); };
  EXPECT_THROW(errorOf("failures:", {}), std::bad_alloc);
}

}  // namespace
}  // namespace keldane
