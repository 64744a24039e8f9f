#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "tests/fault/wire.h"
#include "tests/support/process.h"

namespace fault {

/// One end of a pipe in a test's hand. Every wait has a deadline.
class RawPipe {
 public:
  RawPipe() = default;
  explicit RawPipe(int descriptor) : descriptor_(descriptor) {}
  ~RawPipe() { close(); }
  RawPipe(RawPipe&& other) noexcept;
  RawPipe& operator=(RawPipe&& other) noexcept;

  /// open(2), not blocking, closed on exec and not through links; not open where
  /// it failed.
  static RawPipe open(const std::string& path, int flags);

  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
  [[nodiscard]] int descriptor() const { return descriptor_; }
  void close();

  /// flock(2) against others and sweeps.
  [[nodiscard]] bool lock() const;

  /// Writes all of `bytes`; false where the reader has gone or takes none.
  [[nodiscard]] bool write(std::string_view bytes) const;

  /// Exactly `count` bytes; fewer where the writer has gone or sends no more.
  [[nodiscard]] std::string read(std::size_t count) const;

  /// The next frame; nothing where none came whole.
  [[nodiscard]] std::optional<wire::Frame> readFrame() const;

  /// How many bytes lie in the pipe now, seen from either end.
  [[nodiscard]] std::size_t pendingBytes() const;

  /// Waits for the end of the pipe: the writer has gone. False where bytes came
  /// instead, or nothing.
  [[nodiscard]] bool ended() const;

 private:
  bool await(short events) const;

  int descriptor_ = -1;
};

/// A client made by hand: its pipes, its hello.
class RawClient {
 public:
  RawClient();
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  /// Writes its hello to the mailbox, `before` in front of it in the same write.
  [[nodiscard]] bool sayHello(const std::string& mailbox, std::string_view before = {},
                              wire::Order order = wire::Order::leastFirst) const;

  /// Waits for the welcome and, behind it, the started event, and takes the names
  /// of the pipes away.
  [[nodiscard]] bool welcomed();

  [[nodiscard]] bool connect(const std::string& mailbox) { return sayHello(mailbox) && welcomed(); }

  /// Sends one request and waits for its reply.
  std::optional<wire::Frame> ask(std::uint16_t operation, std::string_view payload);

  const std::string token = wire::newToken();
  RawPipe requests;  ///< for writing
  RawPipe replies;   ///< for reading
  RawPipe events;    ///< for reading

 private:
  void removeNames() const;
  RawPipe make(std::string_view ending) const;

  RawPipe requestReader_;  ///< until the server reads them
  std::uint32_t sequence_ = 0;
};

/// A server made by hand, for one client.
class RawServer {
 public:
  /// Makes and locks the mailbox.
  explicit RawServer(const std::string& mailbox);
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  /// Takes one hello and opens the client's pipes; `welcome` is what it answers.
  [[nodiscard]] bool accept(std::string_view welcome);
  /// As it ought to be.
  [[nodiscard]] bool accept() { return accept(wire::frame(wire::welcome, 0, 0, {})); }

  /// The next request that is for one thing: a server need not give prefetch, and
  /// this one answers that it does not.
  [[nodiscard]] std::optional<wire::Frame> readQuestion() const;

  RawPipe requests;  ///< for reading
  RawPipe replies;   ///< for writing
  RawPipe events;    ///< for writing

 private:
  const std::string path_;
  RawPipe mailbox_;
};

}  // namespace fault
