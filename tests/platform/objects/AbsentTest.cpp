#include "platform/objects/Absent.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace keldane {
namespace {

struct Thing {
  int number() const { return 7; }
  const std::string& name() const { return name_; }
  void set(int value) { value_ = value; }
  std::string name_ = "thing";
  int value_ = 0;
};

TEST(Send, ReachesAnObjectThatIsThere) {
  Thing thing;
  EXPECT_EQ(sendTo(&thing, &Thing::number), 7);
  EXPECT_EQ(sendTo(std::make_shared<Thing>(), &Thing::name), "thing");
  sendTo(&thing, &Thing::set, 3);
  EXPECT_EQ(thing.value_, 3);
  EXPECT_EQ(sendTo(&thing, [](const Thing& it) { return it.value_ + 1; }), 4);
}

TEST(Send, ToAnAbsentObjectDoesNothingAndYieldsNothing) {
  Thing* none = nullptr;
  EXPECT_EQ(sendTo(none, &Thing::number), 0);
  EXPECT_EQ(sendTo(std::shared_ptr<Thing>(), &Thing::name), "");
  sendTo(none, &Thing::set, 3);
}

}  // namespace
}  // namespace keldane
