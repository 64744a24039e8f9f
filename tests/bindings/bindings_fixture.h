#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "treescope.h"

/// A server and a client of the C interface in one process.
namespace bindings_tests {

/// A text that the library allocated; freed at the end.
class OwnedText {
 public:
  OwnedText() = default;
  ~OwnedText() { treescope_free(text_); }
  OwnedText(const OwnedText&) = delete;
  OwnedText& operator=(const OwnedText&) = delete;
  char** operator&() { return &text_; }
  std::size_t size = 0;
  [[nodiscard]] std::string string() const {
    return text_ == nullptr ? "(none)" : std::string(text_, size);
  }

 private:
  char* text_ = nullptr;
};

/// The value at `path`, or "<message>".
inline std::string get(treescope_client* client, const char* path) {
  OwnedText text;
  return treescope_get(client, path, &text, &text.size) == TREESCOPE_SUCCESS
             ? text.string()
             : "<" + std::string(treescope_message()) + ">";
}

inline std::string get(treescope_part* part, int index = TREESCOPE_ALL) {
  OwnedText text;
  return treescope_part_get(part, index, &text, &text.size) == TREESCOPE_SUCCESS
             ? text.string()
             : "<" + std::string(treescope_message()) + ">";
}

/// Dispatches a server on a thread of its own, until it is closed.
class ServedPort {
 public:
  ServedPort() {
    EXPECT_EQ(treescope_server_new(&server), TREESCOPE_SUCCESS) << treescope_message();
  }
  ~ServedPort() { close(); }
  ServedPort(const ServedPort&) = delete;
  ServedPort& operator=(const ServedPort&) = delete;

  void publish() {
    ASSERT_EQ(treescope_publish(server, name.c_str()), TREESCOPE_SUCCESS) << treescope_message();
    pump();
  }

  void pump() {
    thread_ = std::thread([this] {
      while (treescope_server_dispatch(server, -1) != TREESCOPE_CLOSED) {
      }
    });
  }

  void close() {
    static_cast<void>(treescope_server_close(server));
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  treescope_part* add(const treescope_part_options& options, treescope_part* parent = nullptr) {
    treescope_part* part = nullptr;
    EXPECT_EQ(treescope_add(server, parent, &options, &part), TREESCOPE_SUCCESS)
        << treescope_message();
    return part;
  }

  const std::string name = test_support::uniquePortName();
  treescope_server* server = nullptr;

 private:
  std::thread thread_;
};

/// A published tree:
///
///     /drive            1    node
///     /drive/speed      1.1  int32 42, rpm, 0 to 100
///     /drive/gains      1.3  double array p 1.5, i 0.25
///     /drive/label      1.4  text "two words"
///     /drive/serial     1.5  text "A-17", read-only
///     /drive/offset     1.6  float 0, protected
///     /drive/<unnamed>  1.12 uint16 7
///     /mode             2    text "off", of "off" and "heat"
class Bindings : public testing::Test {
 public:
  // Callbacks use these, too.
  ServedPort port_;
  treescope_part* drive_ = nullptr;
  treescope_part* speed_ = nullptr;
  treescope_part* gains_ = nullptr;
  treescope_part* label_ = nullptr;
  treescope_part* mode_ = nullptr;
  treescope_client* client_ = nullptr;

 protected:
  void SetUp() override;
  void TearDown() override;

  treescope_part* addTo(treescope_part* parent, treescope_part_options options) {
    return port_.add(options, parent);
  }
  /// Dispatches the client until `done`.
  void dispatchUntil(const std::function<bool()>& done);
};

}  // namespace bindings_tests
