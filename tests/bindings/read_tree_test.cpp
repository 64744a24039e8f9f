#include <array>
#include <string>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/bindings/bindings_fixture.h"

// Whole subtrees through the C interface, with a real server.

namespace bindings_tests {

namespace {

using testing::ElementsAre;

class CReadTree : public Bindings {
 protected:
  /// Notes each part as a line: "PATH NAME TYPE ACCESS[NAMES] TEXT".
  static bool note(void* context, const treescope_tree_part* part) {
    auto& own = *static_cast<CReadTree*>(context);
    std::string line = part->path;
    line += " " + std::string(part->name.data, part->name.size) + " " + std::to_string(part->type) +
            " " + std::to_string(part->access) + (part->watchable ? "" : "!");
    for (std::size_t i = 0; i < part->elements && part->element_names != nullptr; ++i) {
      EXPECT_EQ(part->element_names[i].data[part->element_names[i].size], 0);
      line += std::string("|") + part->element_names[i].data;
    }
    if (part->result == TREESCOPE_SUCCESS) {
      line += " " + std::string(part->text.data, part->text.size);
      EXPECT_EQ(part->text.data[part->text.size], 0);
    } else {
      EXPECT_EQ(part->result, TREESCOPE_NO_VALUE);
    }
    EXPECT_EQ(part->name.data[part->name.size], 0);
    EXPECT_EQ(part->depth == 0 ? "" : "#" + std::to_string(part->ids[0]),
              std::string(part->path).substr(0, std::string(part->path).find('/')));
    own.lines_.push_back(line);
    own.numbers_.push_back(part->number);
    return own.lines_.size() != own.wanted_;
  }

  treescope_result read(const char* path) {
    lines_.clear();
    return treescope_read_tree(client_, path, note, this, &changed_);
  }

  std::vector<std::string> lines_;
  std::vector<double> numbers_;
  std::size_t wanted_ = 0;
  bool changed_ = true;
};

TEST_F(CReadTree, VisitsEachPartWithWhatItIs) {
  ASSERT_EQ(read("/drive"), TREESCOPE_SUCCESS) << treescope_message();
  EXPECT_THAT(lines_,
              ElementsAre("#1 drive 1 0", "#1/#1 speed 5 1 42", "#1/#3 gains 12 1|p|i 1.5\n0.25",
                          "#1/#4 label 13 1 two words", "#1/#5 serial 13 2! A-17",
                          "#1/#6 offset 11 3 0", "#1/#12  8 1 7"));
  EXPECT_FALSE(changed_);
  EXPECT_EQ(numbers_[1], 42);
  EXPECT_NE(numbers_[3], numbers_[3]) << "a NaN";
  ASSERT_EQ(read("/"), TREESCOPE_SUCCESS);
  EXPECT_EQ(lines_.size(), 9U);
  EXPECT_EQ(lines_[0], "  1 0");
  ASSERT_EQ(read("#1/#3"), TREESCOPE_SUCCESS);
  EXPECT_THAT(lines_, ElementsAre("#1/#3 gains 12 1|p|i 1.5\n0.25"));
  ASSERT_EQ(treescope_read_tree(client_, "", note, this, nullptr), TREESCOPE_SUCCESS);
}

TEST_F(CReadTree, EndsWhenTheVisitorDoes) {
  wanted_ = 2;
  ASSERT_EQ(read("/drive"), TREESCOPE_SUCCESS);
  EXPECT_EQ(lines_.size(), 2U);
}

TEST_F(CReadTree, SaysWhatIsWrong) {
  EXPECT_EQ(read("/no"), TREESCOPE_NO_SUCH_PART);
  EXPECT_STREQ(treescope_message(), "/no: no such part");
  EXPECT_EQ(read("/drive/gains[1]"), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(read("/#65536"), TREESCOPE_BAD_ARGUMENT);
  port_.close();
  EXPECT_EQ(read("/drive"), TREESCOPE_NO_SERVER);
  EXPECT_TRUE(lines_.empty());
}

TEST_F(CReadTree, AVisitorMayUseItsClient) {
  struct Reading {
    treescope_client* client;
    std::vector<std::string> values;
  } reading{client_, {}};
  const auto visitor = [](void* context, const treescope_tree_part* part) {
    auto& own = *static_cast<Reading*>(context);
    own.values.push_back(get(own.client, part->path));
    EXPECT_EQ(treescope_read_tree(
                  own.client, part->path, [](void*, const treescope_tree_part*) { return false; },
                  nullptr, nullptr),
              TREESCOPE_SUCCESS);
    return true;
  };
  ASSERT_EQ(treescope_read_tree(client_, "/drive", visitor, &reading, nullptr), TREESCOPE_SUCCESS);
  EXPECT_EQ(reading.values[1], "42");
  EXPECT_EQ(reading.values.back(), "7");
}

TEST_F(CReadTree, ADisconnectedClientVisitsNoMore) {
  struct Reading {
    treescope_client* client;
    int visits;
  } reading{client_, 0};
  const auto visitor = [](void* context, const treescope_tree_part*) {
    auto& own = *static_cast<Reading*>(context);
    ++own.visits;
    EXPECT_EQ(treescope_disconnect(own.client), TREESCOPE_SUCCESS);
    return true;
  };
  EXPECT_EQ(treescope_read_tree(client_, "/drive", visitor, &reading, nullptr), TREESCOPE_CLOSED);
  EXPECT_EQ(reading.visits, 1);
}

TEST_F(CReadTree, AnAccessThatIsNotKnownIsNone) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  ModelSrv::ValuePart<bool> flag(1, "flag", true, 9);
  ASSERT_EQ(root.add(&flag), ModelSrv::ModelRes_Success);
  const std::string name = test_support::uniquePortName();
  ASSERT_EQ(root.startAsServer(name), ModelSrv::ModelRes_Success);
  std::atomic<bool> ends{false};
  std::thread pump([&] {
    while (!ends) {
      static_cast<void>(manager.receiveEvent(-1));
    }
  });
  ASSERT_EQ(treescope_disconnect(client_), TREESCOPE_SUCCESS);
  ASSERT_EQ(treescope_connect(name.c_str(), &client_), TREESCOPE_SUCCESS);
  EXPECT_EQ(read("/flag"), TREESCOPE_SUCCESS);
  EXPECT_THAT(lines_, ElementsAre("#1 flag 2 0 true"));
  treescope_description* description = nullptr;
  ASSERT_EQ(treescope_describe(client_, "/flag", &description), TREESCOPE_SUCCESS);
  EXPECT_EQ(description->access, TREESCOPE_NO_ACCESS);
  treescope_free(description);
  ends = true;
  manager.wake();
  pump.join();
}

}  // namespace

}  // namespace bindings_tests
