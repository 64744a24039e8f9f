#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/platform/modelsrv/watch_session.h"

// What a session does with its watches while the program and the client change things at once.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using testing::ElementsAre;
using testing::IsEmpty;

using SessionWatch = WatchSession;

TEST_F(SessionWatch, MayEndWhileItsValueIsRead) {
  ASSERT_EQ(watch(1, {1}, subtree), ModelRes_Success);
  take();
  server_.speed.setGetter([&](std::int32_t& value) {
    value = 5;
    // As a request that is served while the getter dispatches.
    EXPECT_EQ(unwatch(1), ModelRes_Success);
    EXPECT_EQ(server_.limited.setValue(7), ModelRes_Success);
    return ModelRes_Success;
  });
  server_.speed.notifyChange();
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_FALSE(server_.limited.isWatched());
  EXPECT_EQ(server_.limited.setValue(8), ModelRes_Success);
  EXPECT_THAT(take(), IsEmpty());
  server_.speed.setGetter({});
}

}  // namespace
