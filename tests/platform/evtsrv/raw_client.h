#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "evtsrv/source/frame.h"
#include "evtsrv/source/hello.h"
#include "evtsrv/source/mailbox.h"
#include "evtsrv/source/private_pipe.h"

namespace EvtSrv::internal {

using Bytes = std::vector<std::uint8_t>;

inline Bytes frame(FrameKind kind, std::uint16_t code, std::uint32_t sequence,
                   const std::string& text) {
  FrameHeader header;
  header.kind = kind;
  header.code = code;
  header.sequence = sequence;
  header.length = static_cast<std::uint32_t>(text.size());
  Bytes bytes(FrameHeader::size);
  encodeHeader(header, bytes.data());
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

/// A client that speaks the protocol without the client of the library.
class RawClient {
 public:
  RawClient() { EXPECT_EQ(posixSystem().random(hello_.token), 0); }
  ~RawClient() {
    removePipes();
    ::close(mailbox_);
  }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  /// Repeats it if the sweep of another test has removed a pipe.
  void makePipes() {
    do {
      removePipes();
      ASSERT_EQ(posixSystem().random(hello_.token), 0);
      request = make(PipePurpose::request, O_RDWR);
      reply = make(PipePurpose::reply, O_RDONLY);
      event = make(PipePurpose::event, O_RDONLY);
    } while (!isOwned(request) || !isOwned(reply) || !isOwned(event));
  }
  void openMailbox(const std::string& port) {
    mailbox_ = ::open(mailboxPath(port).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(mailbox_, 0);
  }
  void writeToMailbox(const std::string& port, const Bytes& bytes) {
    ASSERT_NO_FATAL_FAILURE(openMailbox(port));
    writeToMailbox(bytes);
  }
  void writeToMailbox(const Bytes& bytes) const {
    ASSERT_EQ(::write(mailbox_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  [[nodiscard]] Bytes hello() const {
    const auto bytes = encodeHello(hello_);
    return {bytes.begin(), bytes.end()};
  }
  static Bytes readAll(int end) {
    Bytes bytes(100000);
    const ssize_t count = ::read(end, bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  /// The code of the welcome that has arrived; empty if that is not what has.
  [[nodiscard]] std::optional<std::uint16_t> welcome() const {
    const Bytes bytes = readAll(reply);
    const auto header =
        bytes.size() == FrameHeader::size ? decodeHeader(bytes.data()) : std::nullopt;
    return header && header->kind == FrameKind::welcome ? std::optional(header->code)
                                                        : std::nullopt;
  }
  void writeRequest(const Bytes& bytes) const {
    ASSERT_EQ(::write(request, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  [[nodiscard]] bool hungUp() const {
    pollfd end{reply, POLLIN, 0};
    return ::poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
  }

  int request = -1;
  int reply = -1;
  int event = -1;

 private:
  int make(PipePurpose purpose, int access) {
    const std::string path = privatePipePath(hello_.token, purpose);
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    return ::open(path.c_str(), access | O_NONBLOCK | O_CLOEXEC);
  }
  static bool isOwned(int end) {
    struct stat status {};
    return end >= 0 && ::flock(end, LOCK_EX | LOCK_NB) == 0 && ::fstat(end, &status) == 0 &&
           status.st_nlink > 0;
  }
  void removePipes() const {
    for (const int end : {request, reply, event}) {
      ::close(end);
    }
    for (const PipePurpose purpose :
         {PipePurpose::request, PipePurpose::reply, PipePurpose::event}) {
      ::unlink(privatePipePath(hello_.token, purpose).c_str());
    }
  }

  Hello hello_;
  int mailbox_ = -1;
};

}  // namespace EvtSrv::internal
