#include "servers/id_allocator.h"

#include <gtest/gtest.h>

#include <ctime>
#include <set>
#include <string>

namespace modelsrvd {
namespace {

TEST(IdAllocator, KeepsTheIdAndNameOfAChildThatReappears) {
  IdAllocator ids;
  const auto first = ids.assign("eth0", "eth0", {"eth0"});
  const auto second = ids.assign("wlan0", "wlan0", {"wlan0"});
  const auto again = ids.assign("eth0", "eth0", {"eth0", "wlan0"});
  ASSERT_TRUE(first && second && again);
  EXPECT_NE(first->id, second->id);
  EXPECT_EQ(again->id, first->id);
  EXPECT_EQ(again->name, "eth0");
}

TEST(IdAllocator, MakesNamesUnique) {
  IdAllocator ids;
  const std::set<std::string> present{"/boot/efi", "/boot-efi", "/boot/efi/"};
  EXPECT_EQ(ids.assign("/boot/efi", "boot-efi", present)->name, "boot-efi");
  EXPECT_EQ(ids.assign("/boot-efi", "boot-efi", present)->name, "boot-efi-2");
  EXPECT_EQ(ids.assign("/boot/efi/", "boot-efi", present)->name, "boot-efi-3");
}

TEST(IdAllocator, ReusesTheIdsOfAbsentChildrenWhenAllAreAssigned) {
  IdAllocator ids;
  for (unsigned number = 1; number <= ModelSrv::ModelPartId_Max; ++number) {
    const std::string key = std::to_string(number);
    ASSERT_TRUE(ids.assign(key, key, {key}));
  }
  const std::set<std::string> present{"1", "2", "new"};
  const auto child = ids.assign("new", "3", present);
  ASSERT_TRUE(child);
  EXPECT_EQ(child->id, 3U);
  EXPECT_EQ(child->name, "3");
  EXPECT_EQ(ids.assign("1", "1", present)->id, 1U);
}

TEST(IdAllocator, ReturnsNothingWhenAllIdsAreInUse) {
  IdAllocator ids;
  std::set<std::string> present;
  for (unsigned number = 1; number <= ModelSrv::ModelPartId_Max; ++number) {
    const std::string key = std::to_string(number);
    present.insert(key);
    ASSERT_TRUE(ids.assign(key, key, {}));
  }
  EXPECT_FALSE(ids.assign("one more", "x", present));
}

TEST(IdAllocator, ReusesTheIdsOfAbsentChildrenWhenTheirKeysTakeMuchMemory) {
  IdAllocator ids;
  const std::string longKey(4000, 'x');
  ASSERT_EQ(ids.assign("first", "first", {})->id, 1U);
  for (std::size_t number = 0; number < IdAllocator::keyBytesLimit / 4000 + 1; ++number) {
    const std::string key = longKey + std::to_string(number);
    ASSERT_TRUE(ids.assign(key, "child", {"first", key}));
  }
  EXPECT_EQ(ids.assign("first", "first", {})->id, 1U);
  EXPECT_LT(ids.assign("new", "new", {"first"})->id, 10U);
}

TEST(IdAllocator, GivesTheFirstFreeNumberAlsoAfterMany) {
  IdAllocator ids;
  std::set<std::string> present;
  ASSERT_EQ(ids.assign("other", "child-4", {})->name, "child-4");
  for (const char* const name : {"child", "child-2", "child-3", "child-5", "child-6"}) {
    present.insert(name);
    EXPECT_EQ(ids.assign(name, "child", present)->name, name);
  }
}

TEST(IdAllocator, TakesTheSameTimeForEachOfManyChildrenWithOneName) {
  IdAllocator ids;
  const std::clock_t before = std::clock();
  for (unsigned number = 1; number <= 20000; ++number) {
    const auto child = ids.assign(std::to_string(number), "child", {});
    ASSERT_TRUE(child);
    ASSERT_EQ(child->id, number);
  }
  const double elapsed = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
  EXPECT_LT(elapsed, 5) << "each would try the numbers of all others";
}

TEST(MountName, ContainsNoShellCharacters) {
  EXPECT_EQ(mountName("/"), "root");
  EXPECT_EQ(mountName("/boot"), "boot");
  EXPECT_EQ(mountName("/boot/efi"), "boot-efi");
  EXPECT_EQ(mountName("/mnt/my disk;*[1]"), "mnt-my_disk___1_");
  EXPECT_EQ(mountName("/a\n\"b'$"), "a__b__");
  EXPECT_EQ(mountName("/m\xc3\xbcll/v1.2"), "m\xc3\xbcll-v1.2");
}

}  // namespace
}  // namespace modelsrvd
