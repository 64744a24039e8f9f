#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "tests/fault/wire.h"
#include "tests/support/descriptor.h"
#include "tests/support/process.h"

namespace fault {

/// One end of a pipe that a test reads or writes itself. Every wait has a timeout.
class RawPipe {
 public:
  RawPipe() = default;
  explicit RawPipe(int descriptor) : descriptor_(descriptor) {}

  /// open(2) with O_NONBLOCK, O_CLOEXEC and O_NOFOLLOW. After an error the result is not
  /// open.
  static RawPipe open(const std::string& path, int flags);

  [[nodiscard]] bool isOpen() const { return descriptor_.isOpen(); }
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  void close() { descriptor_.close(); }

  /// flock(2), which also keeps a sweep from removing the pipe.
  [[nodiscard]] bool lock() const;

  /// Writes all of `bytes`; false if the reader has closed the pipe or does not read.
  [[nodiscard]] bool write(std::string_view bytes) const;

  /// Reads `count` bytes; fewer if the writer has closed the pipe or writes no more.
  [[nodiscard]] std::string read(std::size_t count) const;

  /// The next frame; empty if no complete frame comes.
  [[nodiscard]] std::optional<wire::Frame> readFrame() const;

  /// The number of bytes in the pipe; works at either end.
  [[nodiscard]] std::size_t pendingBytes() const;

  /// Waits until the writer has closed the pipe. False if bytes come instead, or nothing.
  [[nodiscard]] bool ended() const;

 private:
  bool await(short events) const;

  test_support::Descriptor descriptor_;
};

/// A client that speaks the protocol without the library.
class RawClient {
 public:
  RawClient();
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  /// Writes `before` and the hello to the mailbox in one write.
  [[nodiscard]] bool sendHello(const std::string& mailbox, std::string_view before = {},
                               wire::Order order = wire::Order::leastFirst) const;

  /// Waits for the welcome and the started event, and removes the names of the pipes.
  [[nodiscard]] bool awaitWelcome();

  [[nodiscard]] bool connect(const std::string& mailbox) {
    return sendHello(mailbox) && awaitWelcome();
  }

  /// Sends one request and waits for its reply; empty if none comes.
  std::optional<wire::Frame> exchange(std::uint16_t operation, std::string_view payload);

  const std::string token = wire::newToken();
  RawPipe requests;  ///< for writing
  RawPipe replies;   ///< for reading
  RawPipe events;    ///< for reading

 private:
  void removeNames() const;
  RawPipe make(std::string_view suffix) const;

  RawPipe requestReader_;  ///< open until the server has opened the pipe
  std::uint32_t sequence_ = 0;
};

/// A server that speaks the protocol without the library, for one client.
class RawServer {
 public:
  /// Makes and locks the mailbox.
  explicit RawServer(const std::string& mailbox);
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  /// Reads one hello, opens the client's pipes and writes `welcome`.
  [[nodiscard]] bool accept(std::string_view welcome);
  /// Accepts one client with a valid welcome.
  [[nodiscard]] bool accept() { return accept(wire::frame(wire::welcome, 0, 0, {})); }

  /// The next request that is not a prefetch. Replies to prefetch requests that they are
  /// not supported, as a server may.
  [[nodiscard]] std::optional<wire::Frame> readRequest() const;

  /// Readable when a client has sent a hello.
  [[nodiscard]] const RawPipe& mailbox() const { return mailbox_; }

  RawPipe requests;  ///< for reading
  RawPipe replies;   ///< for writing
  RawPipe events;    ///< for writing

 private:
  const std::string path_;
  RawPipe mailbox_;
};

}  // namespace fault
