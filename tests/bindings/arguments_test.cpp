#include <functional>
#include <vector>

#include "tests/bindings/bindings_fixture.h"

// Arguments that no caller should pass are errors of the C interface, not crashes.

namespace bindings_tests {

namespace {

using Calls = std::vector<std::function<treescope_result()>>;

using CArguments = Bindings;

void expectAll(const Calls& calls, treescope_result expected) {
  for (const auto& call : calls) {
    EXPECT_EQ(call(), expected) << "call " << &call - calls.data();
  }
}

bool visitNothing(void* /*context*/, const treescope_tree_part* /*part*/) {
  return false;
}

void watchNothing(void* /*context*/, const treescope_update* /*update*/) {}

/// Every function of a client.
Calls clientCalls(treescope_client* client) {
  return {
      [=] { return treescope_client_dispatch(client, 0); },
      [=] { return treescope_client_wake(client); },
      [=] { return treescope_on_event(client, nullptr, nullptr); },
      [=] {
        char* text = nullptr;
        return treescope_get(client, "/", &text, nullptr);
      },
      [=] {
        double number = 0;
        return treescope_get_double(client, "/", &number);
      },
      [=] {
        std::int64_t number = 0;
        return treescope_get_int64(client, "/", &number);
      },
      [=] { return treescope_set(client, "/", ""); },
      [=] { return treescope_set_double(client, "/", 0); },
      [=] { return treescope_set_int64(client, "/", 0); },
      [=] { return treescope_store(client, "/", "", 0, 0); },
      [=] {
        treescope_child* children = nullptr;
        std::size_t count = 0;
        return treescope_list(client, "/", &children, &count);
      },
      [=] {
        treescope_description* description = nullptr;
        return treescope_describe(client, "/", &description);
      },
      [=] {
        char* text = nullptr;
        return treescope_resolve(client, "/", &text);
      },
      [=] { return treescope_read_tree(client, "/", visitNothing, nullptr, nullptr); },
      [=] {
        treescope_watch* watch = nullptr;
        return treescope_watch_start(client, "/", 0, 0, watchNothing, nullptr, &watch);
      },
      [=] { return treescope_disconnect(client); },
  };
}

Calls serverCalls(treescope_server* server) {
  return {
      [=] { return treescope_publish(server, "Model_x"); },
      [=] { return treescope_publish_to_group(server, "Model_x", 0); },
      [=] { return treescope_unpublish(server, 0); },
      [=] { return treescope_server_dispatch(server, 0); },
      [=] { return treescope_server_wake(server); },
      [=] {
        const treescope_part_options options{.id = 1, .type = TREESCOPE_BOOL};
        return treescope_add(server, nullptr, &options, nullptr);
      },
      [=] { return treescope_server_close(server); },
  };
}

Calls partCalls(treescope_part* part) {
  return {
      [=] { return treescope_part_set(part, TREESCOPE_ALL, ""); },
      [=] { return treescope_part_set_double(part, TREESCOPE_ALL, 0); },
      [=] { return treescope_part_set_int64(part, TREESCOPE_ALL, 0); },
      [=] { return treescope_part_store(part, TREESCOPE_ALL, "", 0); },
      [=] {
        char* text = nullptr;
        return treescope_part_get(part, TREESCOPE_ALL, &text, nullptr);
      },
      [=] {
        double number = 0;
        return treescope_part_get_double(part, TREESCOPE_ALL, &number);
      },
      [=] {
        std::int64_t number = 0;
        return treescope_part_get_int64(part, TREESCOPE_ALL, &number);
      },
      [=] { return treescope_on_store(part, nullptr, nullptr); },
      [=] { return treescope_on_get(part, nullptr, nullptr); },
      [=] { return treescope_on_watched(part, nullptr, nullptr); },
      [=] { return treescope_notify(part); },
      [=] { return treescope_remove(part); },
  };
}

TEST_F(CArguments, NullHandlesAreClosed) {
  expectAll(clientCalls(nullptr), TREESCOPE_CLOSED);
  expectAll(serverCalls(nullptr), TREESCOPE_CLOSED);
  expectAll(partCalls(nullptr), TREESCOPE_CLOSED);
  EXPECT_EQ(treescope_watch_stop(nullptr), TREESCOPE_CLOSED);
  EXPECT_EQ(treescope_client_descriptor(nullptr), -1);
  EXPECT_EQ(treescope_server_descriptor(nullptr), -1);
  EXPECT_STREQ(treescope_message(), "the handle is not open");
  treescope_free(nullptr);
}

TEST_F(CArguments, ClosedHandlesAreClosed) {
  treescope_client* const client = client_;
  treescope_watch* watch = nullptr;
  ASSERT_EQ(treescope_watch_start(client, "/mode", 0, 0, watchNothing, nullptr, &watch),
            TREESCOPE_SUCCESS);
  ASSERT_EQ(treescope_disconnect(client_), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_watch_stop(watch), TREESCOPE_CLOSED);
  port_.close();
  // Handles that are new must not have the numbers of closed ones.
  treescope_server* server = nullptr;
  ASSERT_EQ(treescope_server_new(&server), TREESCOPE_SUCCESS);
  expectAll(clientCalls(client), TREESCOPE_CLOSED);
  expectAll(serverCalls(port_.server), TREESCOPE_CLOSED);
  expectAll(partCalls(speed_), TREESCOPE_CLOSED);
  EXPECT_EQ(treescope_server_close(server), TREESCOPE_SUCCESS);
}

TEST_F(CArguments, HandlesOfAnotherKindAreClosed) {
  expectAll(clientCalls(reinterpret_cast<treescope_client*>(port_.server)), TREESCOPE_CLOSED);
  expectAll(serverCalls(reinterpret_cast<treescope_server*>(speed_)), TREESCOPE_CLOSED);
  expectAll(partCalls(reinterpret_cast<treescope_part*>(client_)), TREESCOPE_CLOSED);
  expectAll(partCalls(reinterpret_cast<treescope_part*>(this)), TREESCOPE_CLOSED);
  EXPECT_EQ(treescope_watch_stop(reinterpret_cast<treescope_watch*>(client_)), TREESCOPE_CLOSED);
  const treescope_part_options options{.id = 99, .type = TREESCOPE_BOOL};
  EXPECT_EQ(
      treescope_add(port_.server, reinterpret_cast<treescope_part*>(client_), &options, nullptr),
      TREESCOPE_CLOSED);
}

TEST_F(CArguments, APartOfAnotherServerIsNoParent) {
  treescope_server* other = nullptr;
  ASSERT_EQ(treescope_server_new(&other), TREESCOPE_SUCCESS);
  const treescope_part_options options{.id = 99, .type = TREESCOPE_BOOL};
  EXPECT_EQ(treescope_add(other, drive_, &options, nullptr), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_server_close(other), TREESCOPE_SUCCESS);
}

TEST_F(CArguments, MissingPointersAreErrors) {
  treescope_client* const client = client_;
  char* text = nullptr;
  std::size_t count = 0;
  treescope_child* children = nullptr;
  treescope_watch* watch = nullptr;
  const auto startWatch = [&](const char* path, unsigned flags, treescope_watcher watcher,
                              treescope_watch** made) {
    return treescope_watch_start(client, path, flags, 0, watcher, nullptr, made);
  };
  expectAll(
      {
          [&] { return treescope_connect(nullptr, &client_); },
          [&] { return treescope_connect("Model_x", nullptr); },
          [&] { return treescope_server_new(nullptr); },
          [&] { return treescope_get(client, nullptr, &text, nullptr); },
          [&] { return treescope_get(client, "/", nullptr, nullptr); },
          [&] { return treescope_get_double(client, "/drive/speed", nullptr); },
          [&] { return treescope_get_int64(client, nullptr, nullptr); },
          [&] { return treescope_set(client, "/drive/label", nullptr); },
          [&] { return treescope_set_double(client, nullptr, 1); },
          [&] { return treescope_store(client, "/drive/label", nullptr, 1, 0); },
          [&] { return treescope_store(client, "/drive/label", "x", 1, 2); },
          [&] { return treescope_list(client, "/", nullptr, &count); },
          [&] { return treescope_list(client, "/", &children, nullptr); },
          [&] { return treescope_describe(client, "/", nullptr); },
          [&] { return treescope_resolve(client, "/", nullptr); },
          [&] { return treescope_read_tree(client, nullptr, visitNothing, nullptr, nullptr); },
          [&] { return treescope_read_tree(client, "/", nullptr, nullptr, nullptr); },
          [&] { return startWatch(nullptr, 0, watchNothing, &watch); },
          [&] { return startWatch("/mode", 0, nullptr, &watch); },
          [&] { return startWatch("/mode", 0, watchNothing, nullptr); },
          [&] { return startWatch("/mode", 2, watchNothing, &watch); },
          [&] { return startWatch("/drive/gains[0]", 1, watchNothing, &watch); },
          [&] { return treescope_publish(port_.server, nullptr); },
          [&] { return treescope_add(port_.server, nullptr, nullptr, nullptr); },
          [&] { return treescope_part_set(speed_, TREESCOPE_ALL, nullptr); },
          [&] { return treescope_part_store(speed_, TREESCOPE_ALL, nullptr, 1); },
          [&] { return treescope_part_set_int64(speed_, -2, 1); },
          [&] { return treescope_part_set_int64(speed_, 65534, 1); },
          [&] { return treescope_part_get(speed_, TREESCOPE_ALL, nullptr, nullptr); },
          [&] { return treescope_part_get_double(speed_, TREESCOPE_ALL, nullptr); },
          [&] { return treescope_refuse(nullptr, "reason"); },
          [&] { return treescope_reply_double(nullptr, 1); },
          [&] { return treescope_reply_int64(nullptr, 1); },
          [&] { return treescope_reply_text(nullptr, "x", 1); },
      },
      TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(get(client_, "/drive/speed"), "42") << "nothing has changed";
}

TEST_F(CArguments, MessagesSayWhichArgumentIsNotAccepted) {
  treescope_watch* watch = nullptr;
  EXPECT_EQ(treescope_watch_start(client_, "/#65536", 0, 0, watchNothing, nullptr, &watch),
            TREESCOPE_BAD_ARGUMENT);
  EXPECT_STREQ(treescope_message(), "/#65536: an id or index is out of range");
  EXPECT_EQ(treescope_read_tree(client_, "/#65536", visitNothing, nullptr, nullptr),
            TREESCOPE_BAD_ARGUMENT);
  EXPECT_STREQ(treescope_message(), "/#65536: an id or index is out of range");
  EXPECT_EQ(treescope_read_tree(client_, "/drive/gains[0]", visitNothing, nullptr, nullptr),
            TREESCOPE_BAD_ARGUMENT);
  EXPECT_STREQ(treescope_message(), "/drive/gains[0]: an element has nothing below it");
  const treescope_part_options wrong{
      .id = 99, .name = "wrong", .type = TREESCOPE_INT8, .minimum = "5", .maximum = "4"};
  EXPECT_EQ(treescope_add(port_.server, nullptr, &wrong, nullptr), TREESCOPE_BAD_ARGUMENT);
  EXPECT_STREQ(treescope_message(), "wrong: a limit, a choice or a text that the part cannot have");
}

TEST_F(CArguments, AReadingThatDoesNotBeginSaysThatNothingHasChanged) {
  for (const char* const path : {"/drive/gains[0]", "/#65536", "/none"}) {
    bool changed = true;
    EXPECT_NE(treescope_read_tree(client_, path, visitNothing, nullptr, &changed),
              TREESCOPE_SUCCESS);
    EXPECT_FALSE(changed) << path;
  }
  bool changed = true;
  EXPECT_EQ(treescope_read_tree(nullptr, "/", visitNothing, nullptr, &changed), TREESCOPE_CLOSED);
  EXPECT_FALSE(changed);
}

TEST_F(CArguments, ANameThatIsTooLongIsNotTruncated) {
  const std::string longest(65535, 'x');
  const std::string tooLong(65536, 'x');
  const char* const names[] = {tooLong.c_str()};
  treescope_part_options options{.id = 99, .name = tooLong.c_str(), .type = TREESCOPE_BOOL};
  EXPECT_EQ(treescope_add(port_.server, nullptr, &options, nullptr), TREESCOPE_BAD_ARGUMENT);
  options.name = longest.c_str();
  EXPECT_EQ(treescope_add(port_.server, nullptr, &options, nullptr), TREESCOPE_SUCCESS);
  const treescope_part_options array{
      .id = 98, .type = TREESCOPE_BOOL, .elements = 1, .element_names = names};
  EXPECT_EQ(treescope_add(port_.server, nullptr, &array, nullptr), TREESCOPE_BAD_ARGUMENT);
}

TEST_F(CArguments, TheNumberThatChangesNoGroupIsNoGroup) {
  ServedPort other;
  EXPECT_EQ(treescope_publish_to_group(other.server, other.name.c_str(), static_cast<gid_t>(-1)),
            TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_publish(other.server, other.name.c_str()), TREESCOPE_SUCCESS);
}

TEST_F(CArguments, EachThreadHasItsOwnMessage) {
  EXPECT_EQ(get(client_, "/one"), "</one: no such part>");
  std::thread([this] {
    EXPECT_STREQ(treescope_message(), "");
    EXPECT_EQ(get(client_, "/two"), "</two: no such part>");
  }).join();
  EXPECT_STREQ(treescope_message(), "/one: no such part");
}

}  // namespace

}  // namespace bindings_tests
