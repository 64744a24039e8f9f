#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "tests/bindings/bindings_fixture.h"

// The watches of the C interface, with a real server.

namespace bindings_tests {

namespace {

using testing::ElementsAre;

class CWatch : public Bindings {
 protected:
  /// Notes each update as a line.
  static void note(void* context, const treescope_update* update) {
    static constexpr std::array kinds{"?", "begin", "added", "value", "removed", "complete"};
    std::string line = kinds.at(static_cast<std::size_t>(update->kind));
    if (update->depth > 0) {
      line += std::string(" ") + update->path;
    }
    if (update->kind == TREESCOPE_ADDED) {
      line += " " + std::string(update->name.data, update->name.size);
      line += update->is_node ? "/" : "";
    }
    if (update->kind == TREESCOPE_VALUE) {
      line += update->result == TREESCOPE_SUCCESS
                  ? " " + std::string(update->text.data, update->text.size)
                  : " <" + std::string(treescope_result_text(update->result)) + ">";
      line += " " + std::to_string(update->changes);
      EXPECT_GT(update->time_ns, 1'600'000'000'000'000'000);
      const std::string text(update->text.data, update->text.size);
      if (text.find_first_not_of("0123456789.") == std::string::npos) {
        EXPECT_EQ(update->number, std::stod(text));
      } else {
        EXPECT_EQ(std::isnan(update->number), text != "true") << text;
      }
    }
    static_cast<std::vector<std::string>*>(context)->push_back(line);
  }

  treescope_watch* start(const char* path, unsigned flags = 0, unsigned period = 0) {
    treescope_watch* watch = nullptr;
    EXPECT_EQ(treescope_watch_start(client_, path, flags, period, note, &lines_, &watch),
              TREESCOPE_SUCCESS)
        << treescope_message();
    return watch;
  }

  void dispatchUntilLine(const std::string& line) {
    dispatchUntil([&] { return std::find(lines_.begin(), lines_.end(), line) != lines_.end(); });
  }

  std::vector<std::string> lines_;
};

TEST_F(CWatch, ReportsTheCurrentValueAndThenEachChange) {
  treescope_watch* const watch = start("/drive/speed");
  EXPECT_THAT(lines_, ElementsAre()) << "not before a dispatch";
  dispatchUntilLine("complete");
  EXPECT_THAT(lines_, ElementsAre("begin", "added #1/#1 speed", "value #1/#1 42 0", "complete"));
  treescope_part_set_int64(speed_, TREESCOPE_ALL, 43);
  dispatchUntilLine("value #1/#1 43 1");
  lines_.clear();
  EXPECT_EQ(treescope_watch_stop(watch), TREESCOPE_SUCCESS);
  treescope_part_set_int64(speed_, TREESCOPE_ALL, 44);
  EXPECT_EQ(get(client_, "/drive/speed"), "44");
  while (treescope_client_dispatch(client_, 0) == TREESCOPE_SUCCESS) {
  }
  EXPECT_THAT(lines_, ElementsAre());
  EXPECT_EQ(treescope_watch_stop(watch), TREESCOPE_CLOSED);
}

TEST_F(CWatch, ReportsOneElement) {
  start("/drive/gains[1]");
  dispatchUntilLine("value #1/#3[1] 0.25 0");
  treescope_part_set_double(gains_, 0, 9);
  treescope_part_set_double(gains_, 1, 8);
  dispatchUntilLine("value #1/#3[1] 8 1");
}

TEST_F(CWatch, ReportsASubtreeWithPartsThatComeAndGo) {
  start("/", TREESCOPE_SUBTREE);
  dispatchUntilLine("complete");
  EXPECT_THAT(lines_, testing::Contains("added #1 drive/"));
  EXPECT_THAT(lines_, testing::Contains("value #2 off 0"));
  EXPECT_THAT(lines_, testing::Contains("added #1/#5 serial")) << "without its value";
  treescope_part* const added =
      port_.add({.id = 9, .name = "new", .type = TREESCOPE_BOOL, .value = "true"});
  dispatchUntilLine("value #9 true 0");
  EXPECT_EQ(treescope_remove(added), TREESCOPE_SUCCESS);
  dispatchUntilLine("removed #9");
}

TEST_F(CWatch, OutlastsTheConnection) {
  start("/mode");
  dispatchUntilLine("complete");
  const std::string name = port_.name;
  port_.close();
  lines_.clear();
  ServedPort second;
  treescope_part* const mode =
      second.add({.id = 2, .name = "mode", .type = TREESCOPE_TEXT, .value = "new"});
  ASSERT_EQ(treescope_publish(second.server, name.c_str()), TREESCOPE_SUCCESS);
  second.pump();
  dispatchUntilLine("value #2 new 0");
  EXPECT_EQ(treescope_part_set(mode, TREESCOPE_ALL, "newer"), TREESCOPE_SUCCESS);
  dispatchUntilLine("value #2 newer 1");
}

TEST_F(CWatch, ReadsALongValueByItsPath) {
  const std::string text(5000, 'x');
  ASSERT_EQ(treescope_part_set(label_, TREESCOPE_ALL, text.c_str()), TREESCOPE_SUCCESS);
  struct Context {
    treescope_client* client;
    std::string text;
  } context{client_, {}};
  treescope_watch* watch = nullptr;
  ASSERT_EQ(treescope_watch_start(
                client_, "/drive/label", 0, 0,
                [](void* given, const treescope_update* update) {
                  auto& [client, read] = *static_cast<Context*>(given);
                  if (update->kind == TREESCOPE_VALUE) {
                    EXPECT_EQ(update->result, TREESCOPE_TOO_LARGE);
                    read = get(client, update->path);
                  }
                },
                &context, &watch),
            TREESCOPE_SUCCESS);
  dispatchUntil([&] { return !context.text.empty(); });
  EXPECT_EQ(context.text, text);
}

TEST_F(CWatch, MayBeStoppedAndItsClientDisconnectedInItsCallback) {
  struct Context {
    treescope_client* client;
    treescope_watch* watch = nullptr;
    std::vector<treescope_result> results;
  } context{client_, nullptr, {}};
  const treescope_watcher end = [](void* given, const treescope_update*) {
    auto& [client, watch, results] = *static_cast<Context*>(given);
    results = {treescope_client_dispatch(client, 0), treescope_watch_stop(watch),
               treescope_disconnect(client)};
  };
  ASSERT_EQ(treescope_watch_start(client_, "/mode", 0, 0, end, &context, &context.watch),
            TREESCOPE_SUCCESS);
  start("/", TREESCOPE_SUBTREE);
  dispatchUntil([&] { return !context.results.empty(); });
  EXPECT_THAT(context.results, ElementsAre(TREESCOPE_BUSY, TREESCOPE_SUCCESS, TREESCOPE_SUCCESS));
  EXPECT_THAT(lines_, ElementsAre()) << "the other watch has ended, too";
}

TEST_F(CWatch, NotifiesTheServerWhetherAClientWatches) {
  std::atomic<int> watched = -1;
  ASSERT_EQ(
      treescope_on_watched(
          speed_, [](void* context, bool now) { *static_cast<std::atomic<int>*>(context) = now; },
          &watched),
      TREESCOPE_SUCCESS);
  treescope_watch* const watch = start("/drive/speed");
  EXPECT_EQ(watched, 1);
  EXPECT_EQ(treescope_watch_stop(watch), TREESCOPE_SUCCESS);
  EXPECT_TRUE(test_support::eventually([&] { return watched == 0; }));
}

TEST_F(CWatch, RefusesWhatCannotBeWatched) {
  treescope_watch* watch = nullptr;
  const auto result = [&](const char* path, unsigned flags) {
    return treescope_watch_start(client_, path, flags, 0, note, &lines_, &watch);
  };
  EXPECT_EQ(result("/no", 0), TREESCOPE_NO_SUCH_PART);
  EXPECT_EQ(result("/drive/serial", 0), TREESCOPE_NOT_SUBSCRIBABLE);
  EXPECT_EQ(result("/drive/gains[2]", 0), TREESCOPE_NO_SUCH_ELEMENT);
  EXPECT_EQ(result("/drive/gains[1]", TREESCOPE_SUBTREE), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(result("/mode", 2), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(result(nullptr, 0), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_watch_start(client_, "/mode", 0, 0, nullptr, nullptr, &watch),
            TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_watch_start(client_, "/mode", 0, 0, note, &lines_, nullptr),
            TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_watch_start(nullptr, "/mode", 0, 0, note, &lines_, &watch), TREESCOPE_CLOSED);
  EXPECT_EQ(watch, nullptr);
  EXPECT_EQ(treescope_watch_stop(nullptr), TREESCOPE_CLOSED);
  EXPECT_EQ(treescope_watch_stop(reinterpret_cast<treescope_watch*>(client_)), TREESCOPE_CLOSED);
}

}  // namespace

}  // namespace bindings_tests
