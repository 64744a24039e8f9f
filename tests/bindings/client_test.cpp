#include <poll.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <cmath>
#include <fstream>
#include <limits>
#include <thread>
#include <vector>

#include "tests/bindings/bindings_fixture.h"

// The clients' functions of the C interface, with a real server.

namespace bindings_tests {

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class CClient : public Bindings {
 protected:
  /// The children of `path` as "id name" each.
  std::vector<std::string> list(const char* path) {
    treescope_child* children = nullptr;
    std::size_t count = 0;
    const treescope_result result = treescope_list(client_, path, &children, &count);
    if (result != TREESCOPE_SUCCESS) {
      return {treescope_message()};
    }
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(children[i].name.data[children[i].name.size], 0);
      lines.push_back(std::to_string(children[i].id) + " " +
                      std::string(children[i].name.data, children[i].name.size));
    }
    treescope_free(children);
    return lines;
  }
};

TEST_F(CClient, ReadsValuesByPath) {
  EXPECT_EQ(get(client_, "/drive/speed"), "42");
  EXPECT_EQ(get(client_, "drive/speed"), "42");
  EXPECT_EQ(get(client_, "//drive//label"), "two words");
  EXPECT_EQ(get(client_, "/drive/gains"), "1.5\n0.25");
  EXPECT_EQ(get(client_, "/drive/gains[1]"), "0.25");
}

TEST_F(CClient, ReadsPartsByIdWhateverTheirNames) {
  EXPECT_EQ(get(client_, "/#1/#12"), "7");
  EXPECT_EQ(get(client_, "#1/gains[0]"), "1.5");
  EXPECT_EQ(get(client_, "/#1/#99"), "</#1/#99: no such part>");
}

TEST_F(CClient, SaysWhatWasNotFound) {
  EXPECT_EQ(get(client_, "/drive/sped"), "</drive/sped: no such part>");
  EXPECT_EQ(get(client_, "/drive"), "</drive: the part has no value>");
  EXPECT_EQ(get(client_, ""), "<the part has no value>");
  EXPECT_EQ(get(client_, "/drive/gains[2]"), "</drive/gains[2]: no such element>");
  EXPECT_THAT(get(client_, "/drive/gains[65534]"), HasSubstr("out of range"));
  EXPECT_THAT(get(client_, "/#65536"), HasSubstr("out of range"));
  EXPECT_EQ(get(client_, "/dri\nve"), "</dri?ve: no such part>");
  EXPECT_THAT(get(client_, std::string(5000, 'x').c_str()), StartsWith("<xxx"));
  EXPECT_THAT(get(client_, std::string(5000, 'x').c_str()), HasSubstr(": no such part>"));
}

TEST_F(CClient, ReadsNumbers) {
  double real = 0;
  std::int64_t integer = 0;
  EXPECT_EQ(treescope_get_double(client_, "/drive/gains[1]", &real), TREESCOPE_SUCCESS);
  EXPECT_EQ(real, 0.25);
  EXPECT_EQ(treescope_get_int64(client_, "/drive/speed", &integer), TREESCOPE_SUCCESS);
  EXPECT_EQ(integer, 42);
  EXPECT_EQ(treescope_get_int64(client_, "/drive/gains[1]", &integer), TREESCOPE_BAD_TEXT);
  EXPECT_EQ(treescope_get_double(client_, "/drive/label", &real), TREESCOPE_BAD_TEXT);
  EXPECT_EQ(treescope_get_double(client_, "/drive/gains", &real), TREESCOPE_BAD_TEXT);
  EXPECT_EQ(real, 0.25) << "unchanged";
  EXPECT_EQ(integer, 42) << "unchanged";
}

TEST_F(CClient, ReadsNumbersAtTheLimitsOfTheirTypes) {
  treescope_part* const number = port_.add({.id = 20, .name = "n", .type = TREESCOPE_UINT64});
  std::int64_t integer = 0;
  ASSERT_EQ(treescope_part_set(number, TREESCOPE_ALL, "18446744073709551615"), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_get_int64(client_, "/n", &integer), TREESCOPE_OUT_OF_RANGE);
  treescope_part* const flag = port_.add({.id = 21, .name = "flag", .type = TREESCOPE_BOOL});
  ASSERT_EQ(treescope_part_set(flag, TREESCOPE_ALL, "true"), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_get_int64(client_, "/flag", &integer), TREESCOPE_SUCCESS);
  EXPECT_EQ(integer, 1);
  const treescope_part_options real{.id = 22, .name = "real", .type = TREESCOPE_DOUBLE};
  port_.add(real);
  for (const double value : {0.1, -0.0, 1e300, 5e-324, std::numeric_limits<double>::infinity()}) {
    double read = 1;
    EXPECT_EQ(treescope_set_double(client_, "/real", value), TREESCOPE_SUCCESS) << value;
    EXPECT_EQ(treescope_get_double(client_, "/real", &read), TREESCOPE_SUCCESS) << value;
    EXPECT_EQ(read, value);
  }
}

TEST_F(CClient, ReadsWholeNumbersWhateverTheirText) {
  treescope_part* const real = port_.add({.id = 20, .name = "real", .type = TREESCOPE_DOUBLE});
  const auto readAs = [&](const char* text, treescope_result expected) {
    std::int64_t integer = -7;
    std::int64_t same = -7;
    EXPECT_EQ(treescope_part_set(real, TREESCOPE_ALL, text), TREESCOPE_SUCCESS) << text;
    EXPECT_EQ(treescope_get_int64(client_, "/real", &integer), expected) << text;
    EXPECT_EQ(treescope_part_get_int64(real, TREESCOPE_ALL, &same), expected) << text;
    EXPECT_EQ(integer, same) << text;
    return integer;
  };
  // The shortest form of these has an exponent.
  EXPECT_EQ(readAs("100000", TREESCOPE_SUCCESS), 100000);
  EXPECT_EQ(readAs("-1e18", TREESCOPE_SUCCESS), -1000000000000000000);
  EXPECT_EQ(readAs("-9223372036854775808", TREESCOPE_SUCCESS),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(readAs("9223372036854775808", TREESCOPE_OUT_OF_RANGE), -7);
  EXPECT_EQ(readAs("1e300", TREESCOPE_OUT_OF_RANGE), -7);
  EXPECT_EQ(readAs("-inf", TREESCOPE_OUT_OF_RANGE), -7);
  EXPECT_EQ(readAs("nan", TREESCOPE_BAD_TEXT), -7);
  EXPECT_EQ(readAs("1e-05", TREESCOPE_BAD_TEXT), -7);
}

TEST_F(CClient, StoresWholeNumbersInWholeNumbers) {
  treescope_part* const wide = port_.add({.id = 20, .name = "wide", .type = TREESCOPE_UINT64});
  EXPECT_EQ(treescope_set_double(client_, "/wide", 1e19), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(wide), "10000000000000000000");
  EXPECT_EQ(treescope_set_double(client_, "/wide", 0x1p64), TREESCOPE_OUT_OF_RANGE);
  EXPECT_EQ(treescope_part_set_double(wide, TREESCOPE_ALL, 1e18), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(wide), "1000000000000000000");
}

TEST_F(CClient, IgnoresTheLocale) {
  // Falls back to the present locale where the system has no other.
  const char* const before = std::setlocale(LC_ALL, "de_DE.UTF-8");
  EXPECT_EQ(treescope_set_double(client_, "/drive/gains[0]", 2.5), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/gains[0]"), "2.5");
  if (before != nullptr) {
    std::setlocale(LC_ALL, "C");
  }
}

TEST_F(CClient, StoresValues) {
  EXPECT_EQ(treescope_set(client_, "/drive/label", "three small words"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(label_), "three small words");
  EXPECT_EQ(treescope_set_int64(client_, "/drive/speed", 17), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(speed_), "17");
  EXPECT_EQ(treescope_set_double(client_, "/drive/speed", 18), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(speed_), "18");
  EXPECT_EQ(treescope_set(client_, "/drive/gains[1]", "3"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(gains_), "1.5\n3");
  const std::string bytes("a\0b;\n\xff", 6);
  EXPECT_EQ(treescope_store(client_, "/drive/label", bytes.data(), bytes.size(), 0),
            TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/label"), bytes);
  EXPECT_EQ(treescope_store(client_, "/drive/label", nullptr, 0, 0), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(client_, "/drive/label"), "");
}

TEST_F(CClient, ATextArrivesAsItIsAlsoInTheFormOfACountedOne) {
  for (const char* const text : {"1\nx", "3\n1\nx", "1\nxy", "0\n"}) {
    EXPECT_EQ(treescope_set(client_, "/drive/label", text), TREESCOPE_SUCCESS);
    EXPECT_EQ(get(client_, "/drive/label"), text);
    EXPECT_EQ(treescope_part_set(label_, TREESCOPE_ALL, text), TREESCOPE_SUCCESS);
    EXPECT_EQ(get(label_), text);
  }
  treescope_part* const array =
      port_.add({.id = 30, .name = "texts", .type = TREESCOPE_TEXT, .elements = 2});
  EXPECT_EQ(treescope_set(client_, "/texts", "1\nx"), TREESCOPE_SUCCESS) << "two elements";
  EXPECT_EQ(get(array, 1), "x");
  EXPECT_EQ(treescope_set(client_, "/texts[1]", "2\nab"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(array, 1), "2\nab");
  EXPECT_EQ(treescope_part_set(array, 0, "1\nx"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(array, 0), "1\nx");
  EXPECT_EQ(treescope_part_set(array, TREESCOPE_ALL, "1\ny"), TREESCOPE_SUCCESS);
  EXPECT_EQ(get(array, 1), "y");
}

TEST_F(CClient, ReportsWhyAStoreWasRefused) {
  EXPECT_EQ(treescope_set(client_, "/drive/speed", "fast"), TREESCOPE_BAD_TEXT);
  EXPECT_EQ(treescope_set_double(client_, "/drive/speed", 0.5), TREESCOPE_BAD_TEXT);
  EXPECT_EQ(treescope_set_int64(client_, "/drive/speed", 101), TREESCOPE_OUT_OF_RANGE);
  EXPECT_STREQ(treescope_message(), "/drive/speed: speed 101 is not within 0 to 100");
  EXPECT_EQ(treescope_set(client_, "/mode", "warm"), TREESCOPE_VETOED);
  EXPECT_THAT(treescope_message(), HasSubstr("warm"));
  EXPECT_EQ(treescope_set(client_, "/drive/serial", "B"), TREESCOPE_READ_ONLY);
  EXPECT_EQ(treescope_set(client_, "/drive/offset", "1"), TREESCOPE_PROTECTED);
  EXPECT_EQ(treescope_store(client_, "/drive/offset", "1", 1, TREESCOPE_LOADER), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_set(client_, "/nothing", "1"), TREESCOPE_NO_SUCH_PART);
  EXPECT_EQ(treescope_set(client_, "/drive", "1"), TREESCOPE_NO_VALUE);
}

TEST_F(CClient, ListsChildrenInTheServersOrder) {
  EXPECT_THAT(list("/"), testing::ElementsAre("1 drive", "2 mode"));
  EXPECT_THAT(list("/drive"),
              testing::ElementsAre("1 speed", "3 gains", "4 label", "5 serial", "6 offset", "12 "));
  EXPECT_THAT(list("/mode"), testing::IsEmpty());
  EXPECT_THAT(list("/no"), testing::ElementsAre("/no: no such part"));
}

TEST_F(CClient, DescribesParts) {
  treescope_description* description = nullptr;
  ASSERT_EQ(treescope_describe(client_, "/drive/speed", &description), TREESCOPE_SUCCESS);
  EXPECT_EQ(description->type, TREESCOPE_INT32);
  EXPECT_EQ(description->access, TREESCOPE_READ_WRITE);
  EXPECT_TRUE(description->watchable);
  EXPECT_EQ(description->elements, 0U);
  EXPECT_EQ(description->element_names, nullptr);
  EXPECT_STREQ(description->unit, "rpm");
  EXPECT_STREQ(description->minimum, "0");
  EXPECT_STREQ(description->maximum, "100");
  EXPECT_STREQ(description->text, "of the motor");
  EXPECT_EQ(description->choices, nullptr);
  EXPECT_EQ(description->choice_count, 0U);
  treescope_free(description);

  ASSERT_EQ(treescope_describe(client_, "/drive/gains", &description), TREESCOPE_SUCCESS);
  EXPECT_EQ(description->type, TREESCOPE_DOUBLE);
  ASSERT_EQ(description->elements, 2U);
  EXPECT_STREQ(description->element_names[0].data, "p");
  EXPECT_STREQ(description->element_names[1].data, "i");
  EXPECT_STREQ(description->unit, "");
  treescope_free(description);

  ASSERT_EQ(treescope_describe(client_, "/mode", &description), TREESCOPE_SUCCESS);
  ASSERT_EQ(description->choice_count, 2U);
  EXPECT_STREQ(description->choices[0], "off");
  EXPECT_STREQ(description->choices[1], "heat");
  treescope_free(description);

  ASSERT_EQ(treescope_describe(client_, "/drive", &description), TREESCOPE_SUCCESS);
  EXPECT_EQ(description->type, TREESCOPE_NODE);
  EXPECT_EQ(description->access, TREESCOPE_NO_ACCESS);
  treescope_free(description);
  ASSERT_EQ(treescope_describe(client_, "/drive/serial", &description), TREESCOPE_SUCCESS);
  EXPECT_EQ(description->access, TREESCOPE_READ);
  EXPECT_FALSE(description->watchable);
  treescope_free(description);
}

TEST_F(CClient, ResolvesPathsToIds) {
  OwnedText ids;
  ASSERT_EQ(treescope_resolve(client_, "/drive/gains[1]", &ids), TREESCOPE_SUCCESS);
  OwnedText root;
  ASSERT_EQ(treescope_resolve(client_, "/", &root), TREESCOPE_SUCCESS);
  ids.size = 9;
  EXPECT_EQ(ids.string(), std::string("#1/#3[1]\0", 9));
  EXPECT_EQ(get(client_, "#1/#3[1]"), "0.25");
}

TEST_F(CClient, ReportsTheLossAndTheReturnOfTheServer) {
  std::vector<treescope_event> events;
  ASSERT_EQ(treescope_on_event(
                client_,
                [](void* context, treescope_event event) {
                  static_cast<std::vector<treescope_event>*>(context)->push_back(event);
                },
                &events),
            TREESCOPE_SUCCESS);
  const std::string name = port_.name;
  port_.close();
  dispatchUntil([&] { return events == std::vector{TREESCOPE_LOST}; });
  EXPECT_EQ(get(client_, "/mode"),
            "</mode: no server serves that name, or there is no connection>");
  treescope_server* second = nullptr;
  ASSERT_EQ(treescope_server_new(&second), TREESCOPE_SUCCESS);
  ASSERT_EQ(treescope_publish(second, name.c_str()), TREESCOPE_SUCCESS);
  std::thread pump([second] {
    while (treescope_server_dispatch(second, -1) != TREESCOPE_CLOSED) {
    }
  });
  dispatchUntil([&] { return events == std::vector{TREESCOPE_LOST, TREESCOPE_RESTORED}; });
  EXPECT_EQ(treescope_server_close(second), TREESCOPE_SUCCESS);
  pump.join();
}

TEST_F(CClient, ItsDescriptorIsReadableWhenThereIsSomethingToDo) {
  while (treescope_client_dispatch(client_, 0) == TREESCOPE_SUCCESS) {
  }
  pollfd waiting{treescope_client_descriptor(client_), POLLIN, 0};
  ASSERT_GE(waiting.fd, 0);
  EXPECT_EQ(poll(&waiting, 1, 0), 0);
  port_.close();
  EXPECT_EQ(poll(&waiting, 1, test_support::timeoutMilliseconds), 1);
  EXPECT_EQ(treescope_client_dispatch(client_, 0), TREESCOPE_SUCCESS);
}

TEST_F(CClient, AWaitingDispatchEndsWhenItIsWokenOrClosed) {
  while (treescope_client_dispatch(client_, 0) == TREESCOPE_SUCCESS) {
  }
  ASSERT_EQ(treescope_client_wake(client_), TREESCOPE_SUCCESS);
  EXPECT_EQ(treescope_client_dispatch(client_, -1), TREESCOPE_TIMEOUT);
  std::vector<std::thread> waiting;
  for (int i = 0; i < 3; ++i) {
    waiting.emplace_back([this] {
      while (treescope_client_dispatch(client_, -1) != TREESCOPE_CLOSED) {
      }
    });
  }
  EXPECT_EQ(treescope_disconnect(client_), TREESCOPE_SUCCESS);
  for (std::thread& thread : waiting) {
    thread.join();
  }
}

/// A thread that reads while a callback closes the client.
struct MeetingReader {
  treescope_client* client = nullptr;
  std::atomic<pid_t> id{0};
  treescope_result result = TREESCOPE_SUCCESS;
  std::thread thread;
};

bool isAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text);
  return text.find(") S ") != std::string::npos;
}

void closeWhileAnotherWaits(void* context, const treescope_update* /*update*/) {
  auto& reader = *static_cast<MeetingReader*>(context);
  if (reader.id != 0) {
    return;
  }
  reader.thread = std::thread([&reader] {
    reader.id = gettid();
    char* text = nullptr;
    reader.result = treescope_get(reader.client, "/mode", &text, nullptr);
    treescope_free(text);
  });
  // It waits for this callback to end.
  while (reader.id == 0 || !isAsleep(reader.id)) {
    std::this_thread::yield();
  }
  EXPECT_EQ(treescope_disconnect(reader.client), TREESCOPE_SUCCESS);
}

TEST_F(CClient, ACallThatWaitsWhileItsClientIsClosedIsClosed) {
  MeetingReader reader;
  treescope_watch* watch = nullptr;
  ASSERT_EQ(treescope_connect(port_.name.c_str(), &reader.client), TREESCOPE_SUCCESS);
  ASSERT_EQ(
      treescope_watch_start(reader.client, "/mode", 0, 0, closeWhileAnotherWaits, &reader, &watch),
      TREESCOPE_SUCCESS);
  while (treescope_client_dispatch(reader.client, -1) != TREESCOPE_CLOSED) {
  }
  reader.thread.join();
  EXPECT_EQ(reader.result, TREESCOPE_CLOSED) << treescope_result_text(reader.result);
}

TEST(CConnect, SaysThatThereIsNoServer) {
  treescope_client* client = nullptr;
  EXPECT_EQ(treescope_connect("Model_of_nobody", &client), TREESCOPE_NO_SERVER);
  EXPECT_EQ(client, nullptr);
  EXPECT_THAT(treescope_message(), StartsWith("Model_of_nobody: no server"));
  EXPECT_EQ(treescope_connect("a/b", &client), TREESCOPE_BAD_NAME);
}

TEST(CResults, HaveTexts) {
  EXPECT_STREQ(treescope_result_text(TREESCOPE_SUCCESS), "success");
  EXPECT_STREQ(treescope_result_text(TREESCOPE_OUTCOME_UNKNOWN),
               "the connection ended before the server answered; the change may have been made");
  EXPECT_STREQ(treescope_result_text(TREESCOPE_CLOSED), "the handle is not open");
  EXPECT_STREQ(treescope_result_text(static_cast<treescope_result>(-1)), "unknown result");
  EXPECT_THAT(treescope_version(), testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
}

}  // namespace

}  // namespace bindings_tests
