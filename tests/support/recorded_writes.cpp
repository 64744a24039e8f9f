#include "tests/support/recorded_writes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

namespace test_support {

namespace {

constexpr std::size_t largestWrite = std::size_t{1} << 20U;

}  // namespace

RecordedWrites::RecordedWrites() : original_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
  std::fflush(stdout);
  std::array<int, 2> ends{};
  // Sockets of this type keep the boundaries of writes.
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
  EXPECT_EQ(dup2(ends[0], STDOUT_FILENO), STDOUT_FILENO);
  close(ends[0]);
  reader_ = ends[1];
  collector_ = std::thread([this] { collect(); });
}

RecordedWrites::~RecordedWrites() {
  restore();
}

void RecordedWrites::collect() {
  std::string record(largestWrite, '\0');
  for (ssize_t count = recv(reader_, record.data(), record.size(), 0); count > 0;
       count = recv(reader_, record.data(), record.size(), 0)) {
    const std::lock_guard lock(mutex_);
    writes_.emplace_back(record, 0, static_cast<std::size_t>(count));
    arrived_.notify_all();
  }
}

std::string RecordedWrites::next() {
  std::unique_lock lock(mutex_);
  arrived_.wait(lock, [this] { return returned_ < writes_.size(); });
  return writes_[returned_++];
}

std::vector<std::string> RecordedWrites::take() {
  restore();
  return std::exchange(writes_, {});
}

void RecordedWrites::restore() {
  if (original_ == -1) {
    return;
  }
  std::fflush(stdout);
  EXPECT_EQ(dup2(original_, STDOUT_FILENO), STDOUT_FILENO);
  close(original_);
  original_ = -1;
  collector_.join();
  close(reader_);
}

}  // namespace test_support
