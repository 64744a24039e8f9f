#pragma once

#include <cstddef>

struct ssl_st;

namespace modelgate {

/// Limits what a TLS connection reads of its socket in one turn of the event loop.
///
/// The client library reads on as long as TLS has decrypted something, so a peer whose records end
/// within packets, and who sends fast enough, would keep it for ever. With this limit TLS reports
/// that nothing is there once a turn's bytes have been read. It has used up what it had decrypted
/// then, and the rest is in the socket, which stays readable. For one thread.
class ReadLimit {
 public:
  /// What may be read in a turn; one record more may be.
  static constexpr std::size_t turnSize = std::size_t{128} * 1024;

  /// Limits `ssl`, which has a socket. Throws std::bad_alloc. This object outlives `ssl`.
  void attach(ssl_st* ssl);
  /// Begins a turn.
  void renew() { left_ = turnSize; }
  /// The bytes that were read in this turn, at most `turnSize`.
  [[nodiscard]] std::size_t taken() const { return turnSize - left_; }

 private:
  struct Method;

  std::size_t left_ = turnSize;
};

}  // namespace modelgate
