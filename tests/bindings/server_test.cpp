#include <unistd.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "tests/bindings/bindings_fixture.h"

// The servers' functions of the C interface, with a real client.

namespace bindings_tests {

namespace {

using testing::HasSubstr;

using CServer = Bindings;

TEST_F(CServer, HoldsValuesOfEveryType) {
  const std::array<std::pair<treescope_type, const char*>, 12> values{{
      {TREESCOPE_BOOL, "true"},
      {TREESCOPE_INT8, "-128"},
      {TREESCOPE_INT16, "-32768"},
      {TREESCOPE_INT32, "-2147483648"},
      {TREESCOPE_INT64, "-9223372036854775808"},
      {TREESCOPE_UINT8, "255"},
      {TREESCOPE_UINT16, "65535"},
      {TREESCOPE_UINT32, "4294967295"},
      {TREESCOPE_UINT64, "18446744073709551615"},
      {TREESCOPE_FLOAT, "0.1"},
      {TREESCOPE_DOUBLE, "0.1"},
      {TREESCOPE_TEXT, "text"},
  }};
  std::uint16_t i = 0;
  for (const auto& [type, value] : values) {
    const std::string name = "v" + std::to_string(type);
    const std::string path = "/" + name;
    const std::string array = path + "s";
    const treescope_part_options single{.id = static_cast<std::uint16_t>(100 + i),
                                        .name = name.c_str(),
                                        .type = type,
                                        .value = value};
    const treescope_part_options several{.id = static_cast<std::uint16_t>(200 + i),
                                         .name = array.c_str() + 1,
                                         .type = type,
                                         .elements = 3};
    port_.add(single);
    treescope_part* const elements = port_.add(several);
    EXPECT_EQ(get(client_, path.c_str()), value);
    EXPECT_EQ(treescope_part_set(elements, 1, value), TREESCOPE_SUCCESS) << treescope_message();
    EXPECT_EQ(get(client_, (array + "[1]").c_str()), value);
    EXPECT_EQ(get(elements, 1), value);
    treescope_description* description = nullptr;
    ASSERT_EQ(treescope_describe(client_, array.c_str(), &description), TREESCOPE_SUCCESS);
    EXPECT_EQ(description->type, type);
    EXPECT_EQ(description->elements, 3U);
    treescope_free(description);
    ++i;
  }
}

TEST_F(CServer, SetsValuesFromItsOwnSide) {
  EXPECT_EQ(treescope_part_set_int64(speed_, TREESCOPE_ALL, 1000), TREESCOPE_SUCCESS)
      << "limits are for clients";
  EXPECT_EQ(get(client_, "/drive/speed"), "1000");
  EXPECT_EQ(treescope_part_set_double(gains_, 0, -1.25), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/gains"), "-1.25\n0.25");
  EXPECT_EQ(treescope_part_store(label_, TREESCOPE_ALL, "a\0b", 3), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/label"), std::string("a\0b", 3));
  double real = 0;
  std::int64_t integer = 0;
  EXPECT_EQ(treescope_part_get_double(gains_, 1, &real), TREESCOPE_SUCCESS);
  EXPECT_EQ(real, 0.25);
  EXPECT_EQ(treescope_part_get_int64(speed_, TREESCOPE_ALL, &integer), TREESCOPE_SUCCESS);
  EXPECT_EQ(integer, 1000);
  EXPECT_EQ(treescope_part_set(gains_, 2, "1"), TREESCOPE_NO_SUCH_ELEMENT);
  EXPECT_EQ(treescope_part_set(speed_, TREESCOPE_ALL, "x"), TREESCOPE_BAD_TEXT);
  EXPECT_THAT(treescope_message(), HasSubstr("speed: "));
  EXPECT_EQ(treescope_part_get_double(label_, TREESCOPE_ALL, &real), TREESCOPE_BAD_TEXT);
  EXPECT_EQ(treescope_part_set(drive_, TREESCOPE_ALL, "1"), TREESCOPE_NO_VALUE);
}

TEST_F(CServer, ChecksStores) {
  struct Seen {
    std::vector<std::string> texts;
    std::vector<int> indices;
    std::vector<double> numbers;
    treescope_part* part = nullptr;
  } seen;
  const treescope_store_check check = [](void* context, const treescope_store_request* request) {
    auto& noted = *static_cast<Seen*>(context);
    noted.texts.emplace_back(request->text, request->size);
    noted.indices.push_back(request->index);
    noted.numbers.push_back(request->number);
    noted.part = request->part;
    return request->number > 10 ? treescope_refuse(request, "more than ten") : TREESCOPE_SUCCESS;
  };
  ASSERT_EQ(treescope_on_store(gains_, check, &seen), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/gains", "2.5\n9"), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/gains[1]", "11"), TREESCOPE_VETOED);
  EXPECT_STREQ(treescope_message(), "/drive/gains[1]: more than ten");
  EXPECT_EQ(get(gains_), "2.5\n9");
  EXPECT_THAT(seen.texts, testing::ElementsAre("2.5", "9", "11"));
  EXPECT_THAT(seen.indices, testing::ElementsAre(0, 1, 1));
  EXPECT_THAT(seen.numbers, testing::ElementsAre(2.5, 9, 11));
  EXPECT_EQ(seen.part, gains_);

  ASSERT_EQ(treescope_on_store(label_, check, &seen), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/label", "x"), TREESCOPE_SUCCESS);
  EXPECT_TRUE(std::isnan(seen.numbers.back()));
  EXPECT_EQ(seen.indices.back(), TREESCOPE_ALL);
  ASSERT_EQ(treescope_on_store(gains_, nullptr, nullptr), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/gains[1]", "11"), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_on_store(drive_, check, &seen), TREESCOPE_BAD_ARGUMENT);
}

TEST_F(CServer, ACheckMayRemoveItselfWhileAnArrayIsStored) {
  ASSERT_EQ(treescope_on_store(
                gains_,
                [](void*, const treescope_store_request* request) {
                  return treescope_on_store(request->part, nullptr, nullptr);
                },
                nullptr),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/gains", "2\n3"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(gains_), "2\n3");
}

TEST_F(CServer, ACheckMayReturnAnyResult) {
  int result = 0;
  ASSERT_EQ(treescope_on_store(
                label_,
                [](void* context, const treescope_store_request*) {
                  return static_cast<treescope_result>(*static_cast<int*>(context));
                },
                &result),
            TREESCOPE_SUCCESS);
  for (const auto& [returned, received] :
       std::vector<std::pair<int, int>>{{TREESCOPE_OUT_OF_RANGE, TREESCOPE_OUT_OF_RANGE},
                                        {TREESCOPE_TIMEOUT, TREESCOPE_VETOED},
                                        {TREESCOPE_CLOSED, TREESCOPE_VETOED},
                                        {4711, TREESCOPE_VETOED},
                                        {-1, TREESCOPE_VETOED},
                                        {TREESCOPE_SUCCESS, TREESCOPE_SUCCESS}}) {
    result = returned;
    EXPECT_EQ(treescope_set(client_, "/drive/label", "y"), received) << returned;
  }
}

TEST_F(CServer, ComputesValuesWhenTheyAreRead) {
  double reading = 20.5;
  ASSERT_EQ(treescope_on_get(
                speed_,
                [](void* context, treescope_part*, treescope_reply* reply) {
                  return treescope_reply_double(reply, *static_cast<double*>(context));
                },
                &reading),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/speed"),
            "</drive/speed: the text is no value of the part's type>");
  reading = 21;
  EXPECT_EQ(get(client_, "/drive/speed"), "21");
  EXPECT_EQ(get(speed_), "21");
  reading = 22;
  EXPECT_EQ(get(client_, "/drive/speed"), "22");
  EXPECT_EQ(treescope_notify(speed_), TREESCOPE_SUCCESS);
  ASSERT_EQ(treescope_on_get(speed_, nullptr, nullptr), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/speed"), "42");
  EXPECT_EQ(treescope_on_get(drive_, nullptr, nullptr), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_on_get(gains_, nullptr, nullptr), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_notify(gains_), TREESCOPE_BAD_ARGUMENT);
}

TEST_F(CServer, AGetterGivesAValueInAnyFormOrAResult) {
  using Getter = treescope_getter;
  const auto readWith = [&](treescope_part* part, const char* path, Getter getter) {
    EXPECT_EQ(treescope_on_get(part, getter, nullptr), TREESCOPE_SUCCESS);
    return get(client_, path);
  };
  EXPECT_EQ(readWith(speed_, "/drive/speed",
                     [](void*, treescope_part*, treescope_reply* reply) {
                       return treescope_reply_int64(reply, -7);
                     }),
            "-7");
  EXPECT_EQ(readWith(speed_, "/drive/speed",
                     [](void*, treescope_part*, treescope_reply* reply) {
                       return treescope_reply_text(reply, "8", 1);
                     }),
            "8");
  EXPECT_EQ(readWith(label_, "/drive/label",
                     [](void*, treescope_part*, treescope_reply* reply) {
                       return treescope_reply_int64(reply, 9);
                     }),
            "9");
  EXPECT_EQ(readWith(speed_, "/drive/speed",
                     [](void*, treescope_part*, treescope_reply* reply) {
                       return treescope_reply_int64(reply, std::int64_t{1} << 40U);
                     }),
            "</drive/speed: the value is out of the range of the part's type>");
  EXPECT_EQ(readWith(speed_, "/drive/speed",
                     [](void*, treescope_part*, treescope_reply*) { return TREESCOPE_SUCCESS; }),
            "</drive/speed: the part has no value>");
  EXPECT_EQ(readWith(speed_, "/drive/speed",
                     [](void*, treescope_part*, treescope_reply*) { return TREESCOPE_TIMEOUT; }),
            "</drive/speed: the device behind the server cannot be reached>");
}

TEST_F(CServer, AGetterCannotReadItsOwnPart) {
  ASSERT_EQ(treescope_on_get(
                speed_,
                [](void*, treescope_part* part, treescope_reply*) {
                  double value = 0;
                  return treescope_part_get_double(part, TREESCOPE_ALL, &value);
                },
                nullptr),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/speed"),
            "</drive/speed: the device behind the server cannot be reached>");
}

TEST_F(CServer, AddsAndRemovesPartsWhileItServes) {
  treescope_part* const node = port_.add({.id = 7, .name = "new", .type = TREESCOPE_NODE});
  treescope_part* const value =
      addTo(node, {.id = 1, .name = "value", .type = TREESCOPE_INT8, .value = "1"});
  EXPECT_EQ(get(client_, "/new/value"), "1");
  EXPECT_EQ(treescope_remove(node), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/new/value"), "</new/value: no such part>");
  EXPECT_EQ(treescope_part_set(value, TREESCOPE_ALL, "2"), TREESCOPE_CLOSED)
      << "a part is removed with its parent";
  EXPECT_EQ(treescope_remove(node), TREESCOPE_CLOSED);
  const treescope_part_options again{.id = 7, .name = "new", .type = TREESCOPE_NODE};
  EXPECT_NE(port_.add(again), node);
}

TEST_F(CServer, RemovesDeepTrees) {
  treescope_part* top = nullptr;
  treescope_part* deepest = nullptr;
  const treescope_part_options node{.id = 9, .name = "n", .type = TREESCOPE_NODE};
  int levels = 0;
  for (treescope_part* part = nullptr;
       treescope_add(port_.server, deepest, &node, &part) == TREESCOPE_SUCCESS; ++levels) {
    top = top == nullptr ? part : top;
    deepest = part;
  }
  EXPECT_EQ(levels, 4096);
  EXPECT_EQ(treescope_remove(top), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_remove(deepest), TREESCOPE_CLOSED);
}

TEST_F(CServer, RefusesWhatIsNoPart) {
  const std::array<const char*, 2> missing{"a", nullptr};
  const std::vector<treescope_part_options> wrong{
      {.id = 50, .name = "no type"},
      {.id = 50, .type = static_cast<treescope_type>(14)},
      {.id = 50, .type = static_cast<treescope_type>(-1)},
      {.id = 65534, .type = TREESCOPE_BOOL},
      {.id = 65535, .type = TREESCOPE_BOOL},
      {.id = 50, .type = TREESCOPE_BOOL, .access = static_cast<treescope_access>(4)},
      {.id = 50, .type = TREESCOPE_BOOL, .elements = 65535},
      {.id = 50, .type = TREESCOPE_BOOL, .elements = 2, .element_names = missing.data()},
      {.id = 50, .type = TREESCOPE_BOOL, .element_names = missing.data()},
      {.id = 50, .type = TREESCOPE_BOOL, .choices = missing.data(), .choice_count = 2},
      {.id = 50, .type = TREESCOPE_BOOL, .choice_count = 2},
      {.id = 50, .type = TREESCOPE_NODE, .value = "1"},
      {.id = 50, .type = TREESCOPE_NODE, .elements = 1},
      {.id = 50, .type = TREESCOPE_TEXT, .minimum = "1"},
      {.id = 50, .type = TREESCOPE_INT8, .unit = "two\nlines"}};
  for (const treescope_part_options& options : wrong) {
    treescope_part* part = nullptr;
    EXPECT_EQ(treescope_add(port_.server, nullptr, &options, &part), TREESCOPE_BAD_ARGUMENT)
        << &options - wrong.data();
    EXPECT_EQ(part, nullptr);
  }
  const treescope_part_options taken{.id = 1, .name = "x", .type = TREESCOPE_BOOL};
  EXPECT_EQ(treescope_add(port_.server, nullptr, &taken, nullptr), TREESCOPE_DUPLICATE_ID);
  const treescope_part_options bad{.id = 50, .type = TREESCOPE_INT8, .value = "300"};
  EXPECT_EQ(treescope_add(port_.server, nullptr, &bad, nullptr), TREESCOPE_OUT_OF_RANGE);
  const treescope_part_options child{.id = 50, .type = TREESCOPE_INT8};
  EXPECT_EQ(treescope_add(port_.server, speed_, &child, nullptr), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_add(port_.server, nullptr, &child, nullptr), TREESCOPE_SUCCESS)
      << "nothing was left behind";
}

TEST_F(CServer, PublishesOnceAndSharesWithAGroup) {
  EXPECT_EQ(treescope_publish(port_.server, "Model_other"), TREESCOPE_BUSY);
  treescope_server* second = nullptr;
  ASSERT_EQ(treescope_server_new(&second), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_publish(second, port_.name.c_str()), TREESCOPE_NAME_IN_USE);
  EXPECT_EQ(treescope_publish(second, "a;b"), TREESCOPE_BAD_NAME);
  const std::string shared = test_support::uniquePortName();
  EXPECT_EQ(treescope_publish_to_group(second, shared.c_str(), getgid()), TREESCOPE_SUCCESS)
      << treescope_message();
  EXPECT_EQ(treescope_unpublish(second, test_support::timeoutMilliseconds), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_publish(second, shared.c_str()), TREESCOPE_SUCCESS) << "once more";
  EXPECT_EQ(treescope_server_close(second), TREESCOPE_SUCCESS);
}

TEST_F(CServer, UnpublishingThatWaitsForAClientEndsWithTheServer) {
  // What this client watches and does not receive fills its pipe.
  treescope_watch* watch = nullptr;
  ASSERT_EQ(treescope_watch_start(
                client_, "/", TREESCOPE_SUBTREE, 0, [](void*, const treescope_update*) {}, nullptr,
                &watch),
            TREESCOPE_SUCCESS);
  const std::string value(4000, 'x');
  for (std::uint16_t id = 100; id < 200; ++id) {
    port_.add({.id = id, .type = TREESCOPE_TEXT, .value = value.c_str()});
  }
  ASSERT_EQ(treescope_unpublish(port_.server, 0), TREESCOPE_TIMEOUT) << "the client is awaited";
  std::thread unpublishing([&] {
    const treescope_result result = treescope_unpublish(port_.server, -1);
    EXPECT_TRUE(result == TREESCOPE_SUCCESS || result == TREESCOPE_CLOSED) << result;
  });
  EXPECT_EQ(treescope_server_close(port_.server), TREESCOPE_SUCCESS);
  unpublishing.join();
}

TEST_F(CServer, ACallbackUsesPartsButChangesNoTree) {
  struct Context {
    CServer* test;
    std::vector<treescope_result> results;
  } context{this, {}};
  ASSERT_EQ(treescope_on_store(
                label_,
                [](void* given, const treescope_store_request* request) {
                  auto& [test, results] = *static_cast<Context*>(given);
                  const treescope_part_options part{.id = 77, .type = TREESCOPE_BOOL};
                  treescope_server* const server = test->port_.server;
                  results = {treescope_part_set(test->speed_, TREESCOPE_ALL, "5"),
                             treescope_add(server, nullptr, &part, nullptr),
                             treescope_remove(request->part),
                             treescope_remove(test->mode_),
                             treescope_server_dispatch(server, 0),
                             treescope_unpublish(server, 0),
                             treescope_server_close(server),
                             treescope_on_store(request->part, nullptr, nullptr)};
                  return TREESCOPE_SUCCESS;
                },
                &context),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/label", "z"), TREESCOPE_SUCCESS);
  EXPECT_THAT(
      context.results,
      testing::ElementsAre(TREESCOPE_SUCCESS, TREESCOPE_BUSY, TREESCOPE_BUSY, TREESCOPE_BUSY,
                           TREESCOPE_BUSY, TREESCOPE_BUSY, TREESCOPE_BUSY, TREESCOPE_SUCCESS));
  EXPECT_EQ(get(client_, "/drive/speed"), "5");
}

TEST_F(CServer, WhatACallbackGotIsNoArgumentAfterIt) {
  struct Given {
    treescope_store_request copy;
    const treescope_store_request* request;
    treescope_reply* reply;
    treescope_result refused;
  } given{};
  ASSERT_EQ(treescope_on_store(
                label_,
                [](void* context, const treescope_store_request* request) {
                  auto& kept = *static_cast<Given*>(context);
                  kept.copy = *request;
                  kept.request = request;
                  kept.refused = treescope_refuse(&kept.copy, "a copy");
                  return TREESCOPE_SUCCESS;
                },
                &given),
            TREESCOPE_SUCCESS);
  ASSERT_EQ(treescope_on_get(
                speed_,
                [](void* context, treescope_part*, treescope_reply* reply) {
                  static_cast<Given*>(context)->reply = reply;
                  return treescope_reply_int64(reply, 3);
                },
                &given),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/label", "x"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(speed_), "3");
  EXPECT_EQ(given.refused, TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_refuse(given.request, "late"), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_reply_int64(given.reply, 1), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_reply_double(given.reply, 1), TREESCOPE_BAD_ARGUMENT);
  EXPECT_EQ(treescope_reply_text(given.reply, "x", 1), TREESCOPE_BAD_ARGUMENT);
}

TEST_F(CServer, AnExceptionOfACallbackEndsTheConnectionOnly) {
  ASSERT_EQ(treescope_on_store(
                label_, [](void*, const treescope_store_request*) -> treescope_result { throw 1; },
                nullptr),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/drive/label", "z"), TREESCOPE_OUTCOME_UNKNOWN);
  EXPECT_EQ(get(client_, "/drive/speed"), "42") << "connected again";
}

}  // namespace

}  // namespace bindings_tests
