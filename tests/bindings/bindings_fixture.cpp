#include "tests/bindings/bindings_fixture.h"

#include <array>

namespace bindings_tests {

void Bindings::SetUp() {
  static constexpr std::array<const char*, 2> gainNames{"p", "i"};
  static constexpr std::array<const char*, 2> modes{"off", "heat"};
  drive_ = addTo(nullptr, {.id = 1, .name = "drive", .type = TREESCOPE_NODE});
  speed_ = addTo(drive_, {.id = 1,
                          .name = "speed",
                          .type = TREESCOPE_INT32,
                          .value = "42",
                          .unit = "rpm",
                          .minimum = "0",
                          .maximum = "100",
                          .text = "of the motor"});
  gains_ = addTo(drive_, {.id = 3,
                          .name = "gains",
                          .type = TREESCOPE_DOUBLE,
                          .value = "1.5\n0.25",
                          .elements = gainNames.size(),
                          .element_names = gainNames.data()});
  label_ = addTo(drive_, {.id = 4, .name = "label", .type = TREESCOPE_TEXT, .value = "two words"});
  addTo(drive_, {.id = 5,
                 .name = "serial",
                 .type = TREESCOPE_TEXT,
                 .access = TREESCOPE_READ,
                 .value = "A-17",
                 .not_watchable = true});
  addTo(drive_,
        {.id = 6, .name = "offset", .type = TREESCOPE_FLOAT, .access = TREESCOPE_LOADER_ONLY});
  addTo(drive_, {.id = 12, .type = TREESCOPE_UINT16, .value = "7"});
  mode_ = addTo(nullptr, {.id = 2,
                          .name = "mode",
                          .type = TREESCOPE_TEXT,
                          .value = "off",
                          .choices = modes.data(),
                          .choice_count = modes.size()});
  ASSERT_NO_FATAL_FAILURE(port_.publish());
  ASSERT_EQ(treescope_connect(port_.name.c_str(), &client_), TREESCOPE_SUCCESS)
      << treescope_message();
}

void Bindings::TearDown() {
  static_cast<void>(treescope_disconnect(client_));
  port_.close();
}

void Bindings::dispatchUntil(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + test_support::timeout;
  while (!done()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    static_cast<void>(
        treescope_client_dispatch(client_, test_support::millisecondsUntil(deadline)));
  }
}

}  // namespace bindings_tests
