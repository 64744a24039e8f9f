#include <atomic>
#include <string>
#include <thread>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/bindings/bindings_fixture.h"

// The C interface with a server in C++, which may reply with results that C programs do not know.

namespace bindings_tests {

namespace {

/// A server whose store check and getter end with `ModelRes_DoNothing`.
class ServerWithNothingToDo {
 public:
  ServerWithNothingToDo() {
    stored_.setStoreCheckWithReason(
        [](const std::int32_t&, ModelSrv::ModelPartIndex, std::string& reason) {
          reason = "the motor runs";
          return ModelSrv::ModelRes_DoNothing;
        });
    read_.setGetter([](std::int32_t&) { return ModelSrv::ModelRes_DoNothing; });
    EXPECT_EQ(root_.add(&stored_), ModelSrv::ModelRes_Success);
    EXPECT_EQ(root_.add(&read_), ModelSrv::ModelRes_Success);
    EXPECT_EQ(root_.startAsServer(name), ModelSrv::ModelRes_Success);
    pump_ = std::thread([this] {
      while (!ends_) {
        static_cast<void>(manager_.receiveEvent(-1));
      }
    });
  }
  ~ServerWithNothingToDo() {
    ends_ = true;
    manager_.wake();
    pump_.join();
  }
  ServerWithNothingToDo(const ServerWithNothingToDo&) = delete;
  ServerWithNothingToDo& operator=(const ServerWithNothingToDo&) = delete;

  const std::string name = test_support::uniquePortName();

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ValuePart<std::int32_t> stored_{1, "stored", 5, ModelSrv::ModelPartStatus_ReadWrite};
  ModelSrv::ValuePart<std::int32_t> read_{2, "read", 5, ModelSrv::ModelPartStatus_ReadWrite};
  std::atomic<bool> ends_{false};
  std::thread pump_;
};

class COtherServer : public testing::Test {
 protected:
  COtherServer() {
    EXPECT_EQ(treescope_connect(server_.name.c_str(), &client_), TREESCOPE_SUCCESS);
  }
  ~COtherServer() override { static_cast<void>(treescope_disconnect(client_)); }

  ServerWithNothingToDo server_;
  treescope_client* client_ = nullptr;
};

TEST_F(COtherServer, ThatStoresNothingHasRefusedTheValue) {
  EXPECT_EQ(treescope_set(client_, "/stored", "6"), TREESCOPE_VETOED);
  EXPECT_STREQ(treescope_message(), "/stored: the motor runs");
  EXPECT_EQ(get(client_, "/stored"), "5");
}

TEST_F(COtherServer, ThatReadsNothingHasNoValue) {
  char* text = nullptr;
  EXPECT_EQ(treescope_get(client_, "/read", &text, nullptr), TREESCOPE_NO_VALUE);
  EXPECT_EQ(text, nullptr);
  double number = 7;
  EXPECT_EQ(treescope_get_double(client_, "/read", &number), TREESCOPE_NO_VALUE);
  EXPECT_EQ(number, 7);

  treescope_result visited = TREESCOPE_SUCCESS;
  EXPECT_EQ(treescope_read_tree(
                client_, "/read",
                [](void* context, const treescope_tree_part* part) {
                  *static_cast<treescope_result*>(context) = part->result;
                  return true;
                },
                &visited, nullptr),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(visited, TREESCOPE_NO_VALUE);

  treescope_result reported = TREESCOPE_SUCCESS;
  treescope_watch* watch = nullptr;
  ASSERT_EQ(treescope_watch_start(
                client_, "/read", 0, 0,
                [](void* context, const treescope_update* update) {
                  if (update->kind == TREESCOPE_VALUE) {
                    *static_cast<treescope_result*>(context) = update->result;
                  }
                },
                &reported, &watch),
            TREESCOPE_SUCCESS);
  while (reported == TREESCOPE_SUCCESS &&
         treescope_client_dispatch(client_, test_support::timeoutMilliseconds) ==
             TREESCOPE_SUCCESS) {
  }
  EXPECT_EQ(reported, TREESCOPE_NO_VALUE);
}

}  // namespace

}  // namespace bindings_tests
