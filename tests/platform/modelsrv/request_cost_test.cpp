#include <gtest/gtest.h>

#include <cstddef>

#include "tests/platform/modelsrv/served_tree.h"
#include "tests/support/counted_allocations.h"

// What a question costs that needs an exchange: no allocation, neither of the client nor
// of the server.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

/// Of a class of its own, so that nothing that is said of it may be kept.
class Load : public ModelPart {
 public:
  Load() : ModelPart(20, "load") {}
  ~Load() override { detach(); }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

 protected:
  [[nodiscard]] unsigned elementCount() const override { return 3; }
};

TEST(Question, AllocatesNothingOnEitherSideOnceItIsWarm) {
  const std::string port = test_support::uniquePortName();
  Server server(port);
  Load load;
  ASSERT_EQ(server.drive.add(&load), ModelRes_Success);
  Client client;
  ModelNode drive(1, "drive");
  ModelPart asked(20, "load");
  ASSERT_EQ(client.root.add(&drive), ModelRes_Success);
  ASSERT_EQ(drive.add(&asked), ModelRes_Success);
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  const auto ask = [&](int times) {
    bool answered = true;
    for (int i = 0; i < times; ++i) {
      unsigned short sum = 0;
      answered = answered && client.root.getElementSumFromServer(&asked, sum) == ModelRes_Success &&
                 sum == 3;
    }
    return answered;
  };
  ASSERT_TRUE(ask(3));
  const std::size_t before = test_support::allocated().count;
  EXPECT_TRUE(ask(100));
  EXPECT_EQ(test_support::allocated().count, before);
}

}  // namespace
