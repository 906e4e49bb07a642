#include "Common/calls/OwnerProtocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace keldane {
namespace {

// The wire protocol is repeated here, so that no row changes by accident.
constexpr std::string_view kExpectedSelectors[] = {
    "repository:", "setUpRepository:", "recover:",   "exportKey:",      "importKey:",
    "verifyKey:",  "addPassphrase:",   "check:",     "find:",           "failures:",
    "settings:",   "surroundings:",    "restore:",   "restoreReport:",  "cancelRestore:",
    "backups:",    "storedFolder:",    "changeKey:", "moveRepository:", "moveReport:",
    "cancelMove:", "previewPattern:"};

TEST(OwnerProtocol, IsExactlyItsMethods) {
  ASSERT_EQ(KeldaneOwnerProtocol.methods.size(), std::size(kExpectedSelectors));
  for (std::size_t i = 0; i < std::size(kExpectedSelectors); ++i) {
    const MethodSignature& method = KeldaneOwnerProtocol.methods[i];
    EXPECT_EQ(method.selector, kExpectedSelectors[i]);
    EXPECT_EQ(method.returnCode, '@') << method.selector;
    EXPECT_EQ(method.argumentCodes, "@") << method.selector;
  }
}

TEST(OwnerProtocol, SharesNoSelectorWithTheFirstTable) {
  for (const MethodSignature& method : KeldaneOwnerProtocol.methods) {
    EXPECT_EQ(KeldaneDaemonProtocol.find(method.selector), nullptr) << method.selector;
  }
}

TEST(OwnerProtocol, NamesItsOperationsByTheFirstLabel) {
#define EXPECT_OWNER_LABEL(selector, operation) EXPECT_EQ(std::string_view(selector), #operation ":");
  KELDANE_OWNER_METHODS(EXPECT_OWNER_LABEL)
#undef EXPECT_OWNER_LABEL
}

TEST(OwnerProtocol, LiesBesideTheFirstSocket) {
  EXPECT_EQ(ownerSocketPath("/run/keldane/keldaned.sock"), "/run/keldane/keldaned.sock.owner");
}

/// Both ends in one object. A call is performed at once.
struct LoopedBack : OwnerCalls<LoopedBack> {
  RawValue call(std::string_view selector, Arguments arguments) {
    Invocation invocation{*KeldaneOwnerProtocol.find(selector), std::move(arguments), {}};
    EXPECT_TRUE(performOwnerCall(target, invocation));
    return invocation.result;
  }
  struct Target {
#define KELDANE_ANSWER(selector, operation)                                     \
  PropertyList operation(const PropertyList& given) {                           \
    return PropertyList::dictionary({{"asked", #operation}, {"given", given}}); \
  }
    KELDANE_OWNER_METHODS(KELDANE_ANSWER)
#undef KELDANE_ANSWER
  } target;
};

TEST(OwnerProtocol, LeadsEachCallToTheOperationOfItsName) {
  LoopedBack both;
  std::set<std::string> asked;
  const PropertyList request = PropertyList::dictionary({{"key", "value"}});
#define KELDANE_ASK(selector, operation)                 \
  {                                                      \
    const PropertyList answer = both.operation(request); \
    EXPECT_EQ(answer["asked"].string(), #operation);     \
    EXPECT_EQ(answer["given"], request);                 \
    asked.emplace(answer["asked"].string());             \
  }
  KELDANE_OWNER_METHODS(KELDANE_ASK)
#undef KELDANE_ASK
  EXPECT_EQ(asked.size(), KeldaneOwnerProtocol.methods.size());
}

TEST(OwnerProtocol, PerformsNothingThatIsNotInTheTable) {
  LoopedBack::Target target;
  Invocation invocation{{"terminate", 'v', ""}, {}, {}};
  EXPECT_FALSE(performOwnerCall(target, invocation));
}

}  // namespace
}  // namespace keldane
