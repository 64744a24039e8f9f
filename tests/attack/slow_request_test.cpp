#include <optional>

#include "tests/attack/attack_test.h"
#include "tests/attack/scripted_server.h"

// A request takes 2 s at the longest, also if the connection has to be made again for it.

namespace attack {
namespace {

namespace wire = fault::wire;

constexpr double requestLimitSeconds = 2.5;

class AttackSlowRequest : public AttackTest {
 protected:
  void expectInTime(ModelSrv::ModelPart& part) {
    const fault::Reply reply = client_.get(part);
    EXPECT_EQ(reply.result, ModelSrv::ModelRes_Timeout);
    EXPECT_LT(std::chrono::duration<double>(reply.elapsed).count(), requestLimitSeconds);
  }

  /// Serves, and becomes slow with the last of `fault::manyParts` subscriptions.
  void serve(Manner manner) {
    server_.emplace(mailbox, groupOf(1),
                    ScriptedServer::Turn{manner, wire::subscribe, fault::manyParts});
    ASSERT_EQ(client_.connect(port).result, ModelSrv::ModelRes_Success);
  }

  std::optional<ScriptedServer> server_;
  fault::Client client_;
};

// The welcome takes most of the time, and each batch of renewed subscriptions would take as long.
TEST_F(AttackSlowRequest, EndsWhileSubscriptionsAreRenewed) {
  serve(Manner::batches);
  client_.addProxies();
  for (const auto& part : client_.parts) {
    ASSERT_EQ(client_.subscribe(*part), ModelSrv::ModelRes_Success);
  }
  ASSERT_TRUE(server_->hasTurned());
  expectInTime(*client_.parts.front());
  expectInTime(*client_.parts.front());
}

// So does the end of a part with very many subscriptions.
TEST_F(AttackSlowRequest, DoesNotDelayTheEndOfManySubscriptions) {
  serve(Manner::slow);
  {
    fault::WatchedPart part(4);
    ASSERT_EQ(client_.root.add(&part), ModelSrv::ModelRes_Success);
    for (unsigned i = 0; i < fault::manyParts; ++i) {
      ASSERT_EQ(client_.subscribe(part), ModelSrv::ModelRes_Success);
    }
  }
  ASSERT_TRUE(server_->hasTurned());
  const std::chrono::duration<double> taken = ScriptedServer::Clock::now() - server_->turnedAt();
  EXPECT_LT(taken.count(), requestLimitSeconds);
}

}  // namespace
}  // namespace attack
