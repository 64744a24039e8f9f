#include "evtsrv/source/live_page.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

class LivePageTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(page_->open(), EvtRes_Success); }

  std::string pathOfPage() const {
    return "/proc/self/fd/" + std::to_string(page_->place().descriptor);
  }

  PosixSystem system_;
  std::unique_ptr<LivePage> page_ = std::make_unique<LivePage>(system_);
  LivePageView view_{system_};
};

TEST_F(LivePageTest, ShowsThePresentEpochAlone) {
  ASSERT_TRUE(view_.open(page_->place()));
  const std::uint64_t first = page_->epoch();
  EXPECT_TRUE(view_.shows(first));
  EXPECT_FALSE(view_.shows(first + 1));
  page_->advance();
  EXPECT_FALSE(view_.shows(first));
  EXPECT_TRUE(view_.shows(page_->epoch()));
}

TEST_F(LivePageTest, ShowsAnEraThatOutlastsItsEpochs) {
  ASSERT_TRUE(view_.open(page_->place()));
  const std::uint64_t first = page_->epoch();
  page_->advance();
  EXPECT_TRUE(view_.showsEraOf(first));
  page_->advanceEra();
  EXPECT_FALSE(view_.showsEraOf(first));
  EXPECT_FALSE(view_.shows(first));
  EXPECT_TRUE(view_.showsEraOf(page_->epoch()));
  page_->close();
  EXPECT_FALSE(view_.showsEraOf(page_->epoch()));
}

TEST_F(LivePageTest, ShowsNothingOnceItIsClosed) {
  ASSERT_TRUE(view_.open(page_->place()));
  const std::uint64_t epoch = page_->epoch();
  page_->close();
  EXPECT_FALSE(view_.shows(epoch));
  view_.close();
  EXPECT_FALSE(view_.shows(epoch));
}

TEST_F(LivePageTest, ShowsNothingAfterTheThreadThatOpenedIt) {
  auto page = std::make_unique<LivePage>(system_);
  std::thread([&page] { ASSERT_EQ(page->open(), EvtRes_Success); }).join();
  ASSERT_TRUE(view_.open(page->place()));
  EXPECT_FALSE(view_.lives());
  EXPECT_FALSE(view_.shows(page->epoch()));
  // Another thread's robust mutexes are as they were.
  page.reset();
  LivePage next(system_);
  EXPECT_EQ(next.open(), EvtRes_Success);
}

TEST_F(LivePageTest, IsClosedByAnotherThreadAsWell) {
  ASSERT_TRUE(view_.open(page_->place()));
  const std::uint64_t epoch = page_->epoch();
  std::thread([this] { page_.reset(); }).join();
  EXPECT_FALSE(view_.shows(epoch));
  LivePage next(system_);
  EXPECT_EQ(next.open(), EvtRes_Success);
}

TEST_F(LivePageTest, NeverGoesBackWhateverAForkedChildDoes) {
  ASSERT_TRUE(view_.open(page_->place()));
  const pid_t child = forkChild();
  if (child == 0) {
    for (int i = 0; i < 3; ++i) {
      page_->advance();
    }
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(view_.shows(page_->epoch()));
  page_->advance();
  EXPECT_EQ(page_->epoch(), 5U);
  EXPECT_TRUE(view_.shows(5));
}

TEST_F(LivePageTest, IsLookedForAmongRegularFilesAlone) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const int device = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  for (const int descriptor : {ends[0], ends[1], device}) {
    EXPECT_EQ(system_.openDescriptorOf(system_.processId(), static_cast<std::uint32_t>(descriptor)),
              -EPERM);
    ::close(descriptor);
  }
}

TEST_F(LivePageTest, LeavesNoDescriptorWithThoseWhoLookAtIt) {
  const std::size_t before = openDescriptors();
  ASSERT_TRUE(view_.open(page_->place()));
  EXPECT_EQ(openDescriptors(), before);
  LivePagePlace place = page_->place();
  place.id[0] ^= 1;
  EXPECT_FALSE(view_.open(place));
  EXPECT_EQ(openDescriptors(), before);
  page_.reset();
  EXPECT_EQ(openDescriptors(), before - 1);
}

TEST_F(LivePageTest, CannotBeChangedByThoseWhoLookAtIt) {
  const int descriptor = ::open(pathOfPage().c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  EXPECT_NE(::ftruncate(descriptor, 0), 0);
  EXPECT_NE(::ftruncate(descriptor, 1 << 20), 0);
  EXPECT_LT(::pwrite(descriptor, "x", 1, 0), 0);
  EXPECT_EQ(::mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0), MAP_FAILED);
  ::close(descriptor);
}

TEST_F(LivePageTest, IsRefusedWhereItIsNotTheOneThatWasMeant) {
  LivePagePlace place = page_->place();
  place.id[3] ^= 1;
  EXPECT_FALSE(view_.open(place));
  place = page_->place();
  place.descriptor = 1'000'000;
  EXPECT_FALSE(view_.open(place));
  place = page_->place();
  place.process = 0x7FFFFFFF;
  EXPECT_FALSE(view_.open(place));
  EXPECT_FALSE(view_.isOpen());
}

TEST_F(LivePageTest, IsRefusedWhereItCouldShrink) {
  const off_t size = ::lseek(static_cast<int>(page_->place().descriptor), 0, SEEK_END);
  const int other = ::memfd_create("other", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  ASSERT_EQ(::ftruncate(other, size), 0);
  const int pipeEnd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  for (const int descriptor : {other, pipeEnd}) {
    LivePagePlace place = page_->place();
    place.descriptor = static_cast<std::uint32_t>(descriptor);
    place.id = {};
    EXPECT_FALSE(view_.open(place));
    ::close(descriptor);
  }
}

TEST_F(LivePageTest, ShowsTheDeathOfItsMakerBeforeItsParentLearnsOfIt) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = forkChild();
  if (child == 0) {
    LivePage page(system_);
    if (page.open() != EvtRes_Success ||
        ::write(ends[1], &page.place(), sizeof(LivePagePlace)) != sizeof(LivePagePlace)) {
      ::_exit(1);
    }
    for (;;) {
      ::pause();
    }
  }
  LivePagePlace place;
  ASSERT_EQ(::read(ends[0], &place, sizeof place), static_cast<ssize_t>(sizeof place));
  ASSERT_TRUE(view_.open(place));
  EXPECT_TRUE(view_.shows(1));
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(view_.shows(1));
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace
}  // namespace EvtSrv::internal
