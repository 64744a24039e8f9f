#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "evtsrv/source/mailbox.h"
#include "evtsrv/source/manager_core.h"
#include "evtsrv/source/port_client.h"
#include "evtsrv/source/port_server.h"

/// What the tests of the event ports share: servers and clients on managers of
/// their own, with real pipes between them.
namespace EvtSrv::internal {

/// A name that no other test uses.
inline std::string uniquePort() {
  static std::atomic<int> count{0};
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name = "EvtTest_" + std::to_string(::getpid()) + "_" +
                     (test == nullptr ? "" : test->name()) + "_" + std::to_string(++count);
  // Tests that run for several values have a slash in their names.
  std::replace(name.begin(), name.end(), '/', '_');
  return name;
}

inline std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

/// Forks; the child ends with its parent.
inline pid_t forkChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
  return child;
}

/// A system whose time moves only by waiting in vain, and in which single calls
/// can be made to fail.
class TestSystem : public PosixSystem {
 public:
  /// From the `skip`-th call on after this, `call` gives `refusal` `times` times.
  void failNext(const std::string& call, int refusal, int skip = 0, int times = 1) {
    call_ = call;
    error_ = refusal;
    skip_ = skip;
    times_ = times;
    hit_ = false;
  }
  [[nodiscard]] bool wasHit() const { return hit_; }

  /// From now on a wait in vain takes no time but moves the clock.
  void freezeTime() { frozen_ = true; }

  std::int64_t nowMs() override {
    ++looksAtClock;
    return PosixSystem::nowMs() + offset_;
  }
  int poll(std::span<pollfd> ends, int milliseconds) override {
    if (const int refusal = refuse("poll"); refusal < 0) {
      offset_ += refusedWaitMs;
      return refusal;
    }
    if (!frozen_ || milliseconds <= 0) {
      return PosixSystem::poll(ends, milliseconds);
    }
    int ready = PosixSystem::poll(ends, 0);
    if (ready == 0 && whileWaiting) {
      whileWaiting();
      ready = PosixSystem::poll(ends, 0);
    }
    if (ready == 0) {
      offset_ += milliseconds;
    }
    return ready;
  }
  int createEvent() override {
    return refused("createEvent", [&] { return PosixSystem::createEvent(); });
  }
  int createEpoll() override {
    return refused("createEpoll", [&] { return PosixSystem::createEpoll(); });
  }
  int epollCtl(int epoll, int operation, int descriptor, std::uint32_t interest,
               std::uint64_t token) override {
    return refused("epollCtl", [&] {
      return PosixSystem::epollCtl(epoll, operation, descriptor, interest, token);
    });
  }
  int waitEpoll(int epoll, std::span<epoll_event> events, int milliseconds) override {
    ++waits;
    --calls;
    return refused("waitEpoll",
                   [&] { return PosixSystem::waitEpoll(epoll, events, milliseconds); });
  }
  int makeFifo(const std::string& path, mode_t mode) override {
    made.push_back(path);
    return refused("makeFifo", [&] { return PosixSystem::makeFifo(path, mode); });
  }
  int fstat(int descriptor, struct stat& out) override {
    return refused("fstat", [&] { return PosixSystem::fstat(descriptor, out); });
  }
  int lstat(const std::string& path, struct stat& out) override {
    return refused("lstat", [&] { return PosixSystem::lstat(path, out); });
  }
  int setMode(int descriptor, mode_t mode) override {
    return refused("setMode", [&] { return PosixSystem::setMode(descriptor, mode); });
  }
  int list(const char* directory, std::string_view prefix,
           std::vector<std::string>& names) override {
    return refused("list", [&] { return PosixSystem::list(directory, prefix, names); });
  }
  int random(std::span<std::uint8_t> room) override {
    return refused("random", [&] { return PosixSystem::random(room); });
  }

  /// What the peer does while this side waits in frozen time.
  std::function<void()> whileWaiting;

  /// The paths of the pipes that were to be made.
  std::vector<std::string> made;

  /// How long a wait takes that is made to fail, in milliseconds.
  int refusedWaitMs = 0;

  /// How many of the writes were of two pieces.
  int writesOfTwo = 0;

  /// At most so many bytes go with one write, and come with one read.
  std::size_t writeLimit = SIZE_MAX;
  std::size_t readLimit = SIZE_MAX;

  std::atomic<int> looksAtClock{0};

  /// How often somebody waited for the reactor, and how many other calls were made.
  std::atomic<int> waits{0};
  std::atomic<int> calls{0};

 protected:
  int openOnce(const char* path, int flags) override {
    return refused("open", [&] { return PosixSystem::openOnce(path, flags); });
  }
  ssize_t readOnce(int descriptor, std::span<std::uint8_t> room) override {
    return refused("read", [&] {
      return PosixSystem::readOnce(descriptor, room.first(std::min(readLimit, room.size())));
    });
  }
  ssize_t writeOnce(int descriptor, std::span<const std::uint8_t> head,
                    std::span<const std::uint8_t> body) override {
    writesOfTwo += body.empty() ? 0 : 1;
    return refused("write", [&] {
      return writeLimit < head.size() + body.size()
                 ? PosixSystem::writeOnce(descriptor, head.first(std::min(writeLimit, head.size())),
                                          {})
                 : PosixSystem::writeOnce(descriptor, head, body);
    });
  }
  int lockOnce(int descriptor) override {
    return refused("lock", [&] { return PosixSystem::lockOnce(descriptor); });
  }

 private:
  int refuse(const char* call) {
    ++calls;
    if (times_ == 0 || call_ != call) {
      return 0;
    }
    if (skip_ > 0) {
      --skip_;
      return 0;
    }
    --times_;
    hit_ = true;
    return error_;
  }
  template <typename Call>
  auto refused(const char* name, Call call) -> decltype(call()) {
    const int refusal = refuse(name);
    return refusal < 0 ? refusal : call();
  }

  std::string call_;
  int error_ = 0;
  int skip_ = 0;
  int times_ = 0;
  bool hit_ = false;
  bool frozen_ = false;
  std::atomic<std::int64_t> offset_{0};
};

/// Answers every request with its own bytes and the operation as the code; sends
/// the events that were queued.
class EchoPort : public ServedPort {
 public:
  class Session : public ServerSession {
   public:
    Session(EchoPort& port, ServerConnection& connection) : port_(port), connection_(connection) {
      port_.session = this;
      ++port_.sessions;
    }
    ~Session() override {
      --port_.sessions;
      port_.session = port_.session == this ? nullptr : port_.session;
    }
    std::uint16_t handle(std::uint16_t operation, PayloadReader& request,
                         std::vector<std::uint8_t>& reply) override {
      ++port_.handled;
      const std::string_view asked = request.rest();
      if (port_.onRequest) {
        port_.onRequest();
      }
      PayloadWriter(reply).bytes(asked);
      return operation;
    }
    bool takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) override {
      if (events_.empty()) {
        return false;
      }
      ++port_.taken;
      type = events_.front().first;
      PayloadWriter(payload).bytes(events_.front().second);
      events_.pop_front();
      return true;
    }
    void post(std::uint16_t type, std::string bytes) {
      events_.emplace_back(type, std::move(bytes));
      connection_.eventsPending();
    }

   private:
    EchoPort& port_;
    ServerConnection& connection_;
    std::deque<std::pair<std::uint16_t, std::string>> events_;
  };

  std::unique_ptr<ServerSession> openSession(ServerConnection& connection) override {
    if (onOpen) {
      onOpen();
    }
    return refuses ? nullptr : std::make_unique<Session>(*this, connection);
  }

  Session* session = nullptr;
  std::atomic<int> sessions{0};
  std::atomic<int> handled{0};
  int taken = 0;
  bool refuses = false;
  std::function<void()> onOpen;
  std::function<void()> onRequest;
};

/// A served port on a manager of its own; `pump` starts a thread that serves it.
class EchoServer {
 public:
  EchoServer() : core(system, mutex, true), server(std::make_shared<PortServer>(core, port)) {}
  ~EchoServer() {
    stopPumping();
    destroy();
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;

  /// Destroys the port; nothing but the pump may be called after this.
  void destroy() {
    const std::lock_guard lock(mutex);
    if (server != nullptr) {
      server->close();
      server.reset();
    }
  }
  /// Replaces the port by one that has not been started.
  void recreate() {
    const std::lock_guard lock(mutex);
    server->close();
    server = std::make_shared<PortServer>(core, port);
  }
  EvtRes start(const std::string& name, std::optional<gid_t> group = {}) {
    const std::lock_guard lock(mutex);
    return server->start(name, group);
  }
  void beginStop() {
    const std::lock_guard lock(mutex);
    server->beginStop();
  }
  bool stopping() {
    const std::lock_guard lock(mutex);
    return server->stopping();
  }
  std::size_t connectionCount() {
    const std::lock_guard lock(mutex);
    return server->connectionCount();
  }
  /// Queues an event in the latest session.
  void post(std::uint16_t type, std::string bytes) {
    const std::lock_guard lock(mutex);
    port.session->post(type, std::move(bytes));
  }
  void pump() {
    running_ = true;
    thread_ = std::thread([this] {
      while (running_) {
        static_cast<void>(core.receive(-1));
      }
    });
  }
  void stopPumping() {
    if (thread_.joinable()) {
      running_ = false;
      core.wake();
      thread_.join();
    }
  }
  /// Serves until nothing is left to do. For servers without a thread.
  void serveAll() {
    while (core.receive(0) == EvtRes_Success) {
    }
  }

  TestSystem system;
  KSTD::KThreadMutex mutex;
  ManagerCore core;
  EchoPort port;
  std::shared_ptr<PortServer> server;

 private:
  std::atomic<bool> running_{false};
  std::thread thread_;
};

/// A client on a manager of its own that keeps the events it gets.
class EchoClient : public EventSink {
 public:
  explicit EchoClient(bool reconnects = true)
      : core(system, mutex, reconnects), client(std::make_unique<PortClient>(core, *this)) {}
  ~EchoClient() override { destroy(); }
  EchoClient(const EchoClient&) = delete;
  EchoClient& operator=(const EchoClient&) = delete;

  void destroy() {
    const std::lock_guard lock(mutex);
    client.reset();
  }
  void close() {
    const std::lock_guard lock(mutex);
    client->close();
  }
  bool isOpen() {
    const std::lock_guard lock(mutex);
    return client->isOpen();
  }

  void eventReceived(std::uint16_t type, std::span<const std::uint8_t> payload,
                     ByteOrder /*order*/) override {
    events.emplace_back(type, std::string(payload.begin(), payload.end()));
    if (onEvent) {
      onEvent();
    }
  }
  EvtRes connect(const std::string& name) {
    const std::lock_guard lock(mutex);
    return client->connect(name);
  }
  /// The reply's bytes replace `text`, its code is left in `code`.
  EvtRes ask(std::string& text, std::uint16_t operation = 7) {
    const std::lock_guard lock(mutex);
    Reply reply;
    const EvtRes result = client->exchange(
        operation, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
        reply);
    if (result == EvtRes_Success) {
      text.assign(reinterpret_cast<const char*>(reply.payload.data()), reply.payload.size());
      code = reply.code;
    }
    return result;
  }
  EvtRes ask() {
    std::string text = "question";
    return ask(text);
  }
  EvtRes resume(bool& renewed) {
    const std::lock_guard lock(mutex);
    return client->resume(renewed);
  }

  TestSystem system;
  KSTD::KThreadMutex mutex;
  ManagerCore core;
  std::unique_ptr<PortClient> client;
  std::vector<std::pair<std::uint16_t, std::string>> events;
  std::function<void()> onEvent;
  std::uint16_t code = 0;
};

}  // namespace EvtSrv::internal
