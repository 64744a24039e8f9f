#include <malloc.h>
#include <sys/stat.h>

#include <cstdlib>
#include <new>
#include <optional>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> allocatedBytes{0};
std::atomic<std::size_t> maxAllocation{SIZE_MAX};
// How many allocations succeed before one fails; negative: all do.
std::atomic<int> allocationsLeft{-1};

/// During its lifetime, allocations above a size fail.
class AllocationLimit {
 public:
  explicit AllocationLimit(std::size_t size) { maxAllocation = size; }
  ~AllocationLimit() { maxAllocation = SIZE_MAX; }
  AllocationLimit(const AllocationLimit&) = delete;
  AllocationLimit& operator=(const AllocationLimit&) = delete;
};

}  // namespace

// Counts every allocation of this program, and may refuse it. Not inlined: GCC would
// warn of a pointer from "new" that is passed to free().
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  const bool isFailing = allocationsLeft >= 0 && allocationsLeft-- == 0;
  if (void* memory =
          isFailing || size > maxAllocation ? nullptr : std::malloc(size > 0 ? size : 1)) {
    allocatedBytes += ::malloc_usable_size(memory);
    return memory;
  }
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  allocatedBytes -= ::malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  ::operator delete(memory);
}

// By default these call the ones above; those of a sanitizer do not.
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return ::operator new(size);
}

[[gnu::noinline]] void operator delete[](void* memory) noexcept {
  ::operator delete(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  ::operator delete(memory);
}

namespace EvtSrv::internal {
namespace {

TEST(Exchange, AllocatesNothingOnEitherSideAfterAWarmUp) {
  const std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
  ASSERT_EQ(server.start(name), EvtRes_Success);
  client.system.freezeTime();
  client.system.whileWaiting = [&] { server.serveAll(); };
  ASSERT_EQ(client.connect(name), EvtRes_Success);
  std::string text(3000, 'x');
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(client.request(text), EvtRes_Success);
  }
  const std::size_t before = allocations;
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(client.request(text), EvtRes_Success);
  }
  EXPECT_EQ(allocations - before, 0U);
}

TEST(Connection, UsesLittleMemoryInTheServerWhileItIsIdle) {
  const std::string name = uniquePort();
  EchoServer server;
  ASSERT_EQ(server.start(name), EvtRes_Success);
  std::size_t used = 0;
  const auto serve = [&] {
    const std::size_t before = allocatedBytes;
    server.serveAll();
    used += allocatedBytes - before;
  };
  constexpr std::size_t count = 40;
  std::vector<std::unique_ptr<EchoClient>> clients;
  const auto connectOne = [&] {
    clients.push_back(std::make_unique<EchoClient>());
    EchoClient& client = *clients.back();
    client.system.freezeTime();
    client.system.whileWaiting = serve;
    ASSERT_EQ(client.connect(name), EvtRes_Success);
    for (const std::size_t size : {0U, 3000U, 200'000U, 1U}) {
      std::string text(size, 'x');
      ASSERT_EQ(client.request(text), EvtRes_Success);
    }
  };
  // The first client makes the manager allocate what all of them share.
  ASSERT_NO_FATAL_FAILURE(connectOne());
  used = 0;
  while (clients.size() < count) {
    ASSERT_NO_FATAL_FAILURE(connectOne());
  }
  ASSERT_EQ(server.connectionCount(), count);
  EXPECT_LT(used, (count - 1) * 8 * 1024) << used / (count - 1) << " bytes each";
  clients.resize(1);
  serve();
  EXPECT_LT(used, 8 * 1024U) << "the memory of closed connections is freed";
}

/// A server that runs only while one of its two clients waits.
class OutOfMemory : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    for (EchoClient* one : {&client, &other}) {
      one->system.freezeTime();
      one->system.whileWaiting = [this] { server.serveAll(); };
      ASSERT_EQ(one->connect(name), EvtRes_Success);
    }
    ASSERT_EQ(client.request(), EvtRes_Success);
  }

  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
  EchoClient other;
  std::string large = std::string(std::size_t{4} << 20, 'x');
};

TEST_F(OutOfMemory, ForARequestInTheServerEndsOnlyThatConnection) {
  {
    const AllocationLimit limit(std::size_t{1} << 20);
    EXPECT_EQ(client.request(large), EvtRes_Closed);
    EXPECT_EQ(other.request(), EvtRes_Success) << "the other client is not affected";
  }
  EXPECT_EQ(server.port.sessions, 1);
}

TEST_F(OutOfMemory, ForAReplyEndsOnlyThatConnection) {
  server.port.onRequest = [] { throw std::bad_alloc(); };
  EXPECT_EQ(client.request(), EvtRes_Closed);
  server.port.onRequest = nullptr;
  EXPECT_EQ(other.request(), EvtRes_Success);
  EXPECT_EQ(server.port.sessions, 1);
}

TEST_F(OutOfMemory, ForAReplyInTheClientFailsTheRequestAndEndsTheConnection) {
  std::optional<AllocationLimit> limit;
  client.system.whileWaiting = [&] {
    limit.reset();
    server.serveAll();
    limit.emplace(std::size_t{128} * 1024);
  };
  EXPECT_EQ(client.request(large), EvtRes_SystemError);
  limit.reset();
  EXPECT_EQ(client.request(), EvtRes_SystemError) << "the connection has ended";
  EXPECT_EQ(other.request(), EvtRes_Success);
}

TEST_F(OutOfMemory, ForAnEventInTheClientEndsTheConnection) {
  EchoClient third;
  third.system.freezeTime();
  third.system.whileWaiting = [this] { server.serveAll(); };
  third.onEvent = [] { throw std::bad_alloc(); };
  ASSERT_EQ(third.connect(name), EvtRes_Success);
  EXPECT_EQ(third.core.receive(0), EvtRes_Success);
  EXPECT_FALSE(third.isOpen());
  EXPECT_EQ(third.core.receive(0), EvtRes_Timeout);
}

TEST(RemovedMailbox, IsMadeAgainAfterAnyAllocationHasFailed) {
  const std::string name = uniquePort();
  const std::string path = mailboxPath(name);
  EchoServer server;
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.system.timerSpeed = 20;
  int failing = 0;
  for (bool hasFailed = true; hasFailed; ++failing) {
    SCOPED_TRACE(failing);
    ASSERT_EQ(::unlink(path.c_str()), 0);
    // A new file has another mode than the mailbox, whose name takes an allocation to set it.
    const mode_t before = ::umask(0777);
    allocationsLeft = failing;
    EXPECT_NO_THROW(server.serveAll());
    hasFailed = allocationsLeft.exchange(-1) < 0;
    ::umask(before);
    EchoClient client;
    client.system.freezeTime();
    client.system.whileWaiting = [&] { static_cast<void>(server.core.receive(2000)); };
    const std::int64_t end = server.system.nowMs() + 10'000;
    EvtRes connected = EvtRes_NoServer;
    while (connected == EvtRes_NoServer && server.system.nowMs() < end) {
      static_cast<void>(server.core.receive(10));
      connected = client.connect(name);
    }
    ASSERT_EQ(connected, EvtRes_Success);
    server.serveAll();
  }
  EXPECT_GT(failing, 1) << "nothing was allocated";
}

}  // namespace
}  // namespace EvtSrv::internal
