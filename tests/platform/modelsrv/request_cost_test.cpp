#include <gtest/gtest.h>

#include <cstddef>

#include "tests/platform/modelsrv/served_tree.h"
#include "tests/support/counted_allocations.h"

// The cost of a request that requires an exchange: no allocation in the client or the server.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// A part that is not cacheable, so that each request requires an exchange.
class UncachedPart : public ModelPart {
 public:
  UncachedPart() : ModelPart(20, "part") {}
  ~UncachedPart() override { detach(); }
  UncachedPart(const UncachedPart&) = delete;
  UncachedPart& operator=(const UncachedPart&) = delete;

 protected:
  [[nodiscard]] unsigned elementCount() const override { return 3; }
};

TEST(Request, AllocatesNothingOnEitherSideAfterTheFirstOnes) {
  const std::string port = test_support::uniquePortName();
  Server server(port);
  UncachedPart part;
  ASSERT_EQ(server.drive.add(&part), ModelRes_Success);
  Client client;
  ModelNode drive(1, "drive");
  ModelPart requested(20, "part");
  ASSERT_EQ(client.root.add(&drive), ModelRes_Success);
  ASSERT_EQ(drive.add(&requested), ModelRes_Success);
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  const auto request = [&](int times) {
    bool succeeded = true;
    for (int i = 0; i < times; ++i) {
      unsigned short sum = 0;
      succeeded = succeeded &&
                  client.root.getElementSumFromServer(&requested, sum) == ModelRes_Success &&
                  sum == 3;
    }
    return succeeded;
  };
  ASSERT_TRUE(request(3));
  const std::size_t before = test_support::allocated().count;
  EXPECT_TRUE(request(100));
  EXPECT_EQ(test_support::allocated().count, before);
}

}  // namespace
