#include "tests/fault/raw_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace fault {

namespace {

constexpr std::array<const char*, 3> suffixes{".req", ".rep", ".evt"};

}  // namespace

RawPipe RawPipe::open(const std::string& path, int flags) {
  return RawPipe(::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
}

bool RawPipe::lock() const {
  return ::flock(descriptor(), LOCK_EX | LOCK_NB) == 0;
}

bool RawPipe::await(short events) const {
  pollfd waited{descriptor(), events, 0};
  int ready = 0;
  do {
    ready = ::poll(&waited, 1, static_cast<int>(test_support::timeout.count()));
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

bool RawPipe::write(std::string_view bytes) const {
  const test_support::BlockedPipeSignal block;
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor(), bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR && (errno != EAGAIN || !await(POLLOUT))) {
      return false;
    }
  }
  return true;
}

std::string RawPipe::read(std::size_t count) const {
  std::string bytes(count, '\0');
  std::size_t done = 0;
  // Waits first: while no writer has opened the pipe, a read returns an end of file.
  while (done < count && await(POLLIN)) {
    const ssize_t received = ::read(descriptor(), bytes.data() + done, count - done);
    if (received > 0) {
      done += static_cast<std::size_t>(received);
    } else if (received == 0 || (errno != EINTR && errno != EAGAIN)) {
      break;
    }
  }
  bytes.resize(done);
  return bytes;
}

std::optional<wire::Frame> RawPipe::readFrame() const {
  const std::string header = read(wire::headerSize);
  if (header.size() != wire::headerSize) {
    return std::nullopt;
  }
  wire::Frame frame = wire::parseHeader(header);
  frame.payload = read(frame.length);
  return frame.payload.size() == frame.length ? std::optional(std::move(frame)) : std::nullopt;
}

std::size_t RawPipe::pendingBytes() const {
  int count = 0;
  return ::ioctl(descriptor(), FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

bool RawPipe::ended() const {
  char byte = 0;
  return await(POLLIN) && ::read(descriptor(), &byte, 1) == 0;
}

RawClient::RawClient() {
  requestReader_ = make(suffixes[0]);
  requests = RawPipe::open(wire::privatePipePath(token, suffixes[0]), O_WRONLY);
  replies = make(suffixes[1]);
  events = make(suffixes[2]);
}

RawClient::~RawClient() {
  removeNames();
}

RawPipe RawClient::make(std::string_view suffix) const {
  const std::string path = wire::privatePipePath(token, suffix);
  constexpr int attempts = 100;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    ::mkfifo(path.c_str(), 0600);
    RawPipe pipe = RawPipe::open(path, O_RDONLY);
    struct stat status {};
    // Another test's handshake may sweep it before it is locked.
    if (pipe.isOpen() && pipe.lock() && ::fstat(pipe.descriptor(), &status) == 0 &&
        status.st_nlink > 0) {
      return pipe;
    }
  }
  return {};
}

void RawClient::removeNames() const {
  for (const char* const suffix : suffixes) {
    ::unlink(wire::privatePipePath(token, suffix).c_str());
  }
}

bool RawClient::sendHello(const std::string& mailbox, std::string_view before,
                          wire::Order order) const {
  const RawPipe pipe = RawPipe::open(mailbox, O_WRONLY);
  return pipe.isOpen() && pipe.write(std::string(before) + wire::hello(token, order));
}

bool RawClient::awaitWelcome() {
  const auto reply = replies.readFrame();
  if (!reply || reply->kind != wire::welcome || reply->code != 0) {
    return false;
  }
  requestReader_.close();
  removeNames();
  const auto started = events.readFrame();
  return started && started->kind == wire::event && started->code == 1;
}

std::optional<wire::Frame> RawClient::exchange(std::uint16_t operation, std::string_view payload) {
  const std::uint32_t sequence = ++sequence_;
  if (!requests.write(wire::frame(wire::request, operation, sequence, payload))) {
    return std::nullopt;
  }
  auto reply = replies.readFrame();
  const bool isReply = reply && reply->kind == wire::reply && reply->sequence == sequence;
  return isReply ? reply : std::nullopt;
}

RawServer::RawServer(const std::string& mailbox) : path_(mailbox) {
  ::mkfifo(path_.c_str(), 0600);
  mailbox_ = RawPipe::open(path_, O_RDWR);
  static_cast<void>(mailbox_.lock());
}

RawServer::~RawServer() {
  ::unlink(path_.c_str());
}

bool RawServer::accept(std::string_view welcome) {
  const std::string hello = mailbox_.read(wire::helloSize);
  if (hello.size() != wire::helloSize) {
    return false;
  }
  constexpr std::size_t tokenAt = 12;
  constexpr std::size_t tokenSize = 16;
  constexpr std::size_t behaviourAt = tokenAt + tokenSize;
  const auto order = static_cast<wire::Order>(hello[8]);
  const auto behaviour = wire::readNumber(std::string_view(hello).substr(behaviourAt, 4), order);
  if (hello != wire::hello(hello.substr(tokenAt, tokenSize), order, behaviour)) {
    return false;
  }
  const std::string token = hello.substr(tokenAt, tokenSize);
  replies = RawPipe::open(wire::privatePipePath(token, suffixes[1]), O_WRONLY);
  events = RawPipe::open(wire::privatePipePath(token, suffixes[2]), O_WRONLY);
  requests = RawPipe::open(wire::privatePipePath(token, suffixes[0]), O_RDONLY);
  return replies.isOpen() && events.isOpen() && requests.isOpen() && replies.write(welcome);
}

std::optional<wire::Frame> RawServer::readRequest() const {
  auto request = requests.readFrame();
  while (request && request->code == wire::prefetch &&
         replies.write(wire::frame(wire::reply, wire::badRequest, request->sequence, {}))) {
    request = requests.readFrame();
  }
  return request;
}

}  // namespace fault
