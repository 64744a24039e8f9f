#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "evtsrv/source/private_pipe.h"
#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

/// Its time stands still: a sweep has a time limit, and /tmp may hold the names of many tests.
class TimelessSystem : public PosixSystem {
 public:
  std::int64_t nowMs() override { return 0; }
};

TEST(Sweep, BeginsAnywhereAndLooksAtAllNames) {
  class ListingSystem : public TimelessSystem {
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

std::vector<std::string> pathsOf(const Token& token) {
  return {privatePipePath(token, PipePurpose::request), privatePipePath(token, PipePurpose::reply),
          privatePipePath(token, PipePurpose::event)};
}

TEST(Sweep, RemovesThePipesOfAClientThatWasKilled) {
  Token token{};
  ASSERT_EQ(posixSystem().random(token), 0);
  const pid_t child = forkChild();
  if (child == 0) {
    std::vector<PrivatePipe> pipes(3);
    bool made = true;
    const auto paths = pathsOf(token);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      made = pipes[i].make(posixSystem(), paths[i], {}) == 0 && made;
    }
    ::raise(SIGKILL);
    ::_exit(made ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  TimelessSystem timeless;
  sweepPrivatePipes(timeless, {});
  for (const std::string& path : pathsOf(token)) {
    EXPECT_FALSE(std::filesystem::exists(path)) << path;
  }
}

TEST(Sweep, KeepsThePipesOfALiveProcess) {
  Token token{};
  ASSERT_EQ(posixSystem().random(token), 0);
  const std::string path = privatePipePath(token, PipePurpose::reply);
  PrivatePipe pipe;
  int made = -EEXIST;
  while (made == -EEXIST) {
    pipe = {};
    made = pipe.make(posixSystem(), path, {});
  }
  ASSERT_EQ(made, 0);
  TimelessSystem timeless;
  sweepPrivatePipes(timeless, {});
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(Sweep, SkipsItsOwnPipes) {
  class RecordingSystem : public TimelessSystem {
   public:
    std::vector<std::string> examined;
    int lstat(const std::string& path, struct stat& out) override {
      examined.push_back(path);
      return PosixSystem::lstat(path, out);
    }
  };
  std::array<Token, 2> tokens{};
  std::array<PrivatePipe, 2> pipes;
  std::array<std::string, 2> paths;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    int made = -EEXIST;
    while (made == -EEXIST) {
      ASSERT_EQ(posixSystem().random(tokens[i]), 0);
      paths[i] = privatePipePath(tokens[i], PipePurpose::reply);
      pipes[i] = {};
      made = pipes[i].make(posixSystem(), paths[i], {});
    }
    ASSERT_EQ(made, 0);
  }
  RecordingSystem recording;
  sweepPrivatePipes(recording, tokens[0]);
  EXPECT_THAT(recording.examined, testing::Contains(paths[1]));
  EXPECT_THAT(recording.examined, testing::Not(testing::Contains(paths[0])));
}

TEST(Sweep, OfEndlessNamesEnds) {
  class EndlessSystem : public PosixSystem {
   public:
    explicit EndlessSystem(std::string listed) : listed_(std::move(listed)) {}
    int list(const char* /*directory*/,
             const std::function<bool(std::string_view)>& visit) override {
      while (visit(listed_)) {
        ++visited;
      }
      return 0;
    }
    std::int64_t nowMs() override { return ++now; }
    std::size_t visited = 0;
    std::int64_t now = 0;

   private:
    std::string listed_;
  };
  const std::string missing = privatePipePath({}, PipePurpose::reply);
  for (const std::string& listed : {std::string("passed over"), missing.substr(5)}) {
    EndlessSystem endless(listed);
    sweepPrivatePipes(endless, Token{1});
    EXPECT_GT(endless.visited, 0U);
    EXPECT_LE(endless.now, 2 * sweepTimeMs);
  }
}

TEST(Sweep, KeepsPipesWithOtherNames) {
  const std::string stem = "/tmp/.krv-" + uniquePort();
  ASSERT_EQ(::mkfifo(stem.c_str(), 0600), 0);
  TimelessSystem timeless;
  sweepPrivatePipes(timeless, {});
  EXPECT_EQ(::unlink(stem.c_str()), 0);
}

}  // namespace
}  // namespace EvtSrv::internal
