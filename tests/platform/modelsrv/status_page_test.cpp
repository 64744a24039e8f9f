#include "modelsrv/source/cache/status_page.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace ModelSrv::internal {
namespace {

using EvtSrv::internal::forkChild;
using EvtSrv::internal::openDescriptors;

class StatusPages : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(page_->open(), EvtSrv::EvtRes_Success); }

  /// Copies the open page into another memfd of `size` bytes, its owner word to the offset
  /// `ownerWord`: a page of a server with another C library. The descriptor is the caller's.
  StatusPageHandle copyOfPage(std::size_t size, std::uint32_t ownerWord, int& descriptor) {
    constexpr std::size_t offsetField = 16;
    std::vector<unsigned char> bytes(4096);
    const auto source = static_cast<int>(page_->handle().descriptor);
    EXPECT_GT(::pread(source, bytes.data(), bytes.size(), 0), 0);
    std::uint32_t from = 0;
    std::memcpy(&from, &bytes[offsetField], sizeof from);
    std::memcpy(&bytes[ownerWord], &bytes[from], sizeof from);
    std::memcpy(&bytes[offsetField], &ownerWord, sizeof ownerWord);
    descriptor = ::memfd_create("copy", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_EQ(::pwrite(descriptor, bytes.data(), std::min(size, bytes.size()), 0),
              static_cast<ssize_t>(std::min(size, bytes.size())));
    EXPECT_EQ(::ftruncate(descriptor, static_cast<off_t>(size)), 0);
    EXPECT_EQ(::fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_FUTURE_WRITE), 0);
    StatusPageHandle handle = page_->handle();
    handle.descriptor = static_cast<std::uint32_t>(descriptor);
    return handle;
  }

  std::string pagePath() const {
    return "/proc/self/fd/" + std::to_string(page_->handle().descriptor);
  }

  EvtSrv::internal::PosixSystem system_;
  std::unique_ptr<StatusPage> page_ = std::make_unique<StatusPage>(system_);
  StatusPageReader reader_{system_};
};

TEST_F(StatusPages, IsCurrentForThePresentEpochOnly) {
  ASSERT_TRUE(reader_.open(page_->handle()));
  const std::uint64_t first = page_->epoch();
  EXPECT_TRUE(reader_.isCurrent(first));
  EXPECT_FALSE(reader_.isCurrent(first + 1));
  page_->advance();
  EXPECT_FALSE(reader_.isCurrent(first));
  EXPECT_TRUE(reader_.isCurrent(page_->epoch()));
}

TEST_F(StatusPages, KeepsTheStructureVersionWhenTheEpochEnds) {
  ASSERT_TRUE(reader_.open(page_->handle()));
  const std::uint64_t first = page_->epoch();
  page_->advance();
  EXPECT_TRUE(reader_.isStructureCurrent(first));
  page_->advanceStructure();
  EXPECT_FALSE(reader_.isStructureCurrent(first));
  EXPECT_FALSE(reader_.isCurrent(first));
  EXPECT_TRUE(reader_.isStructureCurrent(page_->epoch()));
  page_->close();
  EXPECT_FALSE(reader_.isStructureCurrent(page_->epoch()));
}

TEST_F(StatusPages, IsNotCurrentAfterItIsClosed) {
  ASSERT_TRUE(reader_.open(page_->handle()));
  const std::uint64_t epoch = page_->epoch();
  page_->close();
  EXPECT_FALSE(reader_.isCurrent(epoch));
  reader_.close();
  EXPECT_FALSE(reader_.isCurrent(epoch));
}

TEST_F(StatusPages, IsNotCurrentAfterItsThreadHasEnded) {
  auto page = std::make_unique<StatusPage>(system_);
  std::thread([&page] { ASSERT_EQ(page->open(), EvtSrv::EvtRes_Success); }).join();
  ASSERT_TRUE(reader_.open(page->handle()));
  EXPECT_FALSE(reader_.isServerAlive());
  EXPECT_FALSE(reader_.isCurrent(page->epoch()));
  // Another page can be opened: the robust mutexes of this thread are intact.
  page.reset();
  StatusPage next(system_);
  EXPECT_EQ(next.open(), EvtSrv::EvtRes_Success);
}

TEST_F(StatusPages, MayBeClosedByAnotherThread) {
  ASSERT_TRUE(reader_.open(page_->handle()));
  const std::uint64_t epoch = page_->epoch();
  std::thread([this] { page_.reset(); }).join();
  EXPECT_FALSE(reader_.isCurrent(epoch));
  StatusPage next(system_);
  EXPECT_EQ(next.open(), EvtSrv::EvtRes_Success);
}

TEST_F(StatusPages, NeverGoesBackWhateverAForkedChildDoes) {
  ASSERT_TRUE(reader_.open(page_->handle()));
  const pid_t child = forkChild();
  if (child == 0) {
    for (int i = 0; i < 3; ++i) {
      page_->advance();
    }
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(reader_.isCurrent(page_->epoch()));
  page_->advance();
  EXPECT_EQ(page_->epoch(), 5U);
  EXPECT_TRUE(reader_.isCurrent(5));
}

TEST_F(StatusPages, IsReadWhateverTheSizeOfTheServersMutex) {
  struct Layout {
    std::size_t size;
    std::uint32_t ownerWord;
  };
  // The shortest page, one of a 32-bit server, two of 64-bit servers, and the longest.
  for (const Layout& layout :
       {Layout{36, 32}, Layout{56, 32}, Layout{72, 32}, Layout{80, 32}, Layout{4096, 4092}}) {
    int descriptor = -1;
    const StatusPageHandle handle = copyOfPage(layout.size, layout.ownerWord, descriptor);
    EXPECT_TRUE(reader_.open(handle)) << layout.size;
    EXPECT_TRUE(reader_.isCurrent(page_->epoch())) << layout.size;
    reader_.close();
    ::close(descriptor);
  }
}

TEST_F(StatusPages, IsRejectedIfItIsTooShortOrTooLong) {
  struct Layout {
    std::size_t size;
    std::uint32_t ownerWord;
  };
  for (const Layout& layout : {Layout{0, 32}, Layout{35, 32}, Layout{4097, 32}, Layout{56, 56},
                               Layout{56, 53}, Layout{72, 1000}}) {
    int descriptor = -1;
    const StatusPageHandle handle = copyOfPage(layout.size, layout.ownerWord, descriptor);
    EXPECT_FALSE(reader_.open(handle)) << layout.size;
    ::close(descriptor);
  }
}

TEST_F(StatusPages, IsSearchedAmongRegularFilesOnly) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const int device = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  for (const int descriptor : {ends[0], ends[1], device}) {
    EXPECT_EQ(system_.openDescriptorOf(system_.processId(), static_cast<std::uint32_t>(descriptor)),
              -EPERM);
    ::close(descriptor);
  }
}

TEST_F(StatusPages, LeavesNoDescriptorOpenInTheReader) {
  const std::size_t before = openDescriptors();
  ASSERT_TRUE(reader_.open(page_->handle()));
  EXPECT_EQ(openDescriptors(), before);
  StatusPageHandle handle = page_->handle();
  handle.id[0] ^= 1;
  EXPECT_FALSE(reader_.open(handle));
  EXPECT_EQ(openDescriptors(), before);
  page_.reset();
  EXPECT_EQ(openDescriptors(), before - 1);
}

TEST_F(StatusPages, CannotBeChangedByAReader) {
  const int descriptor = ::open(pagePath().c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  EXPECT_NE(::ftruncate(descriptor, 0), 0);
  EXPECT_NE(::ftruncate(descriptor, 1 << 20), 0);
  EXPECT_LT(::pwrite(descriptor, "x", 1, 0), 0);
  EXPECT_EQ(::mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0), MAP_FAILED);
  ::close(descriptor);
}

TEST_F(StatusPages, IsRejectedWithAnotherHandle) {
  StatusPageHandle handle = page_->handle();
  handle.id[3] ^= 1;
  EXPECT_FALSE(reader_.open(handle));
  handle = page_->handle();
  handle.descriptor = 1'000'000;
  EXPECT_FALSE(reader_.open(handle));
  handle = page_->handle();
  handle.process = 0x7FFFFFFF;
  EXPECT_FALSE(reader_.open(handle));
  EXPECT_FALSE(reader_.isOpen());
}

TEST_F(StatusPages, IsRejectedIfItCouldShrink) {
  const off_t size = ::lseek(static_cast<int>(page_->handle().descriptor), 0, SEEK_END);
  const int other = ::memfd_create("other", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  ASSERT_EQ(::ftruncate(other, size), 0);
  const int pipeEnd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  for (const int descriptor : {other, pipeEnd}) {
    StatusPageHandle handle = page_->handle();
    handle.descriptor = static_cast<std::uint32_t>(descriptor);
    handle.id = {};
    EXPECT_FALSE(reader_.open(handle));
    ::close(descriptor);
  }
}

TEST_F(StatusPages, IsNotCurrentWhenTheParentLearnsOfTheServersDeath) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = forkChild();
  if (child == 0) {
    StatusPage page(system_);
    if (page.open() != EvtSrv::EvtRes_Success ||
        ::write(ends[1], &page.handle(), sizeof(StatusPageHandle)) != sizeof(StatusPageHandle)) {
      ::_exit(1);
    }
    for (;;) {
      ::pause();
    }
  }
  StatusPageHandle handle;
  ASSERT_EQ(::read(ends[0], &handle, sizeof handle), static_cast<ssize_t>(sizeof handle));
  ASSERT_TRUE(reader_.open(handle));
  EXPECT_TRUE(reader_.isCurrent(1));
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(reader_.isCurrent(1));
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace
}  // namespace ModelSrv::internal
