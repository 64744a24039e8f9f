#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "evtsrv/source/private_pipe.h"

namespace EvtSrv::internal {
namespace {

TEST(Sweep, BeginsAnywhereAndLooksAtAllNames) {
  class ListingSystem : public PosixSystem {
   public:
    int list(const char* /*directory*/,
             const std::function<bool(std::string_view)>& visit) override {
      for (std::uint8_t i = 0; i < 100; ++i) {
        if (!visit(privatePipePath(Token{1, 2, 3, i}, PipePurpose::reply).substr(5))) {
          break;
        }
      }
      return 0;
    }
    int lstat(const std::string& path, struct stat& /*out*/) override {
      examined.push_back(path);
      return -ENOENT;
    }
    std::int64_t nowMs() override { return 0; }
    std::vector<std::string> examined;
  };
  std::set<std::string> first;
  for (std::uint8_t i = 0; i < 10; ++i) {
    ListingSystem listing;
    sweepPrivatePipes(listing, Token{i, 4, 5});
    ASSERT_EQ(listing.examined.size(), 100U);
    EXPECT_EQ(std::set<std::string>(listing.examined.begin(), listing.examined.end()).size(), 100U);
    first.insert(listing.examined.front());
  }
  EXPECT_EQ(first.size(), 10U);
}

}  // namespace
}  // namespace EvtSrv::internal
