#include <cstdlib>
#include <new>

#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

// Every allocation of this program is counted.
void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size > 0 ? size : 1)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace EvtSrv::internal {
namespace {

TEST(Exchange, AllocatesNothingOnEitherSideOnceItIsWarm) {
  const std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
  ASSERT_EQ(server.start(name), EvtRes_Success);
  client.system.freezeTime();
  client.system.whileWaiting = [&] { server.serveAll(); };
  ASSERT_EQ(client.connect(name), EvtRes_Success);
  std::string text(3000, 'x');
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(client.ask(text), EvtRes_Success);
  }
  const std::size_t before = allocations;
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(client.ask(text), EvtRes_Success);
  }
  EXPECT_EQ(allocations - before, 0U);
}

}  // namespace
}  // namespace EvtSrv::internal
