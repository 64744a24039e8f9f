#include "gateway/viewer/port_names.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using modelgate::PortClaim;
using modelgate::PortNames;

/// A server that wants names.
struct NamedServer {
  NamedServer(PortNames& names, std::vector<std::string> wanted, const std::string& server)
      : claim(names, std::move(wanted), server,
              {[this] { return isGone; }, [this] { ++changes; }}) {}

  bool isGone = false;
  int changes = 0;
  PortClaim claim;
};

TEST(PortNames, AreOfTheFirstServerThatWantsThem) {
  PortNames names;
  const NamedServer first(names, {"x", "x~offline"}, "the first");
  const NamedServer second(names, {"x", "x~offline"}, "the second");
  const NamedServer other(names, {"y", "y~offline"}, "the other");
  EXPECT_TRUE(first.claim.isGranted());
  EXPECT_TRUE(other.claim.isGranted());
  EXPECT_FALSE(second.claim.isGranted());
  EXPECT_EQ(first.claim.obstacle(), "");
  EXPECT_EQ(second.claim.obstacle(), "x is the first");
  names.review();
  EXPECT_TRUE(first.claim.isGranted());
  EXPECT_EQ(first.changes + second.changes, 0);
}

TEST(PortNames, AreGrantedAllOrNone) {
  PortNames names;
  const NamedServer first(names, {"x", "x~offline"}, "the first");
  const NamedServer second(names, {"x~offline", "x~offline~offline"}, "the second");
  const NamedServer third(names, {"x~offline~offline", "z"}, "the third");
  EXPECT_FALSE(second.claim.isGranted());
  EXPECT_EQ(second.claim.obstacle(), "x~offline is the first");
  EXPECT_TRUE(third.claim.isGranted()) << "the second one has none of its names";
}

TEST(PortNames, OfAServerThatHasGoneAreThoseOfTheOneThatHasWaitedLongest) {
  PortNames names;
  NamedServer first(names, {"x"}, "the first");
  NamedServer second(names, {"x"}, "the second");
  NamedServer third(names, {"x"}, "the third");
  first.isGone = true;
  names.review();
  EXPECT_FALSE(first.claim.isGranted());
  EXPECT_TRUE(second.claim.isGranted());
  EXPECT_EQ(third.claim.obstacle(), "x is the second");
  EXPECT_EQ(first.changes, 1);
  EXPECT_EQ(second.changes, 1);
  first.isGone = false;
  names.review();
  EXPECT_TRUE(second.claim.isGranted()) << "it keeps them when the first one is back";
}

TEST(PortNames, StayWhereTheyAreWhenAllHaveGone) {
  PortNames names;
  NamedServer first(names, {"x"}, "the first");
  NamedServer second(names, {"x"}, "the second");
  first.isGone = second.isGone = true;
  names.review();
  EXPECT_TRUE(first.claim.isGranted());
  EXPECT_EQ(first.changes + second.changes, 0);
}

TEST(PortNames, AreFreeAfterTheEndOfTheirServer) {
  PortNames names;
  auto first = std::make_unique<NamedServer>(names, std::vector<std::string>{"x"}, "the first");
  const NamedServer second(names, {"x"}, "the second");
  first.reset();
  names.review();
  EXPECT_TRUE(second.claim.isGranted());
}

TEST(PortNames, AreTakenFromSeveralServersThatHaveGone) {
  PortNames names;
  NamedServer first(names, {"x", "a"}, "the first");
  NamedServer second(names, {"y", "b"}, "the second");
  const NamedServer third(names, {"x", "y"}, "the third");
  first.isGone = true;
  names.review();
  EXPECT_FALSE(third.claim.isGranted());
  second.isGone = true;
  names.review();
  EXPECT_TRUE(third.claim.isGranted());
  const NamedServer fourth(names, {"a", "b"}, "the fourth");
  EXPECT_TRUE(fourth.claim.isGranted()) << "they have lost their other names, too";
}

}  // namespace
