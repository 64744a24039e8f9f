#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace bench::peers {

/// A connection with the server at a Unix socket. What fails is a
/// `std::runtime_error`.
class UnixStream {
 public:
  /// Whether somebody serves `path`.
  [[nodiscard]] static bool canConnect(const std::string& path);

  explicit UnixStream(const std::string& path);
  ~UnixStream();
  UnixStream(const UnixStream&) = delete;
  UnixStream& operator=(const UnixStream&) = delete;

  void send(std::string_view bytes) const;

  /// Waits for bytes and returns them, at least one; valid until the next call.
  [[nodiscard]] std::string_view receive();

  /// Takes exactly `count` bytes.
  void skip(std::size_t count);

 private:
  int socket_ = -1;
  std::string buffer_;
};

}  // namespace bench::peers
