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
#include "tests/platform/evtsrv/test_system.h"

/// The fixtures of the event port tests: servers and clients, each with its own manager,
/// connected by real pipes.
namespace EvtSrv::internal {

/// A port name that no other test uses.
inline std::string uniquePort() {
  static std::atomic<int> count{0};
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name = "EvtTest_" + std::to_string(::getpid()) + "_" +
                     (test == nullptr ? "" : test->name()) + "_" + std::to_string(++count);
  // The names of parameterized tests contain a slash.
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

/// fork(2). The child is killed when its parent ends.
inline pid_t forkChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
  return child;
}

/// Replies to every request with the same payload and with the operation as the code;
/// sends the events that were posted.
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
    void opened() override {
      if (port_.onOpened) {
        port_.onOpened(connection_);
      }
    }
    std::uint16_t handle(std::uint16_t operation, PayloadReader& request,
                         std::vector<std::uint8_t>& reply) override {
      ++port_.handled;
      const std::string_view payload = request.rest();
      port_.serving = &connection_;
      if (port_.onRequest) {
        port_.onRequest();
      }
      PayloadWriter(reply).bytes(payload);
      return operation;
    }
    bool takeEvent(std::uint16_t& type, std::vector<std::uint8_t>& payload) override {
      if (events_.empty()) {
        return false;
      }
      ++port_.eventsTaken;
      type = events_.front().first;
      PayloadWriter(payload).bytes(events_.front().second);
      events_.pop_front();
      return true;
    }
    [[nodiscard]] std::uint16_t limitReached() const override { return EvtRes_TooLarge; }
    [[nodiscard]] bool isShort(std::uint16_t operation) const override {
      return operation == port_.shortOperation;
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
    return refusesClients ? nullptr : std::make_unique<Session>(*this, connection);
  }

  Session* session = nullptr;
  ServerConnection* serving = nullptr;  // That of the latest request.
  std::atomic<int> sessions{0};
  std::atomic<int> handled{0};
  int eventsTaken = 0;
  bool refusesClients = false;
  std::uint16_t shortOperation = 0;  // 0: none.
  std::function<void()> onOpen;
  std::function<void(ServerConnection&)> onOpened;
  std::function<void()> onRequest;
};

/// A served port with its own manager; `pump` starts a thread that dispatches its events.
class EchoServer {
 public:
  EchoServer() : core(system, mutex, true), server(std::make_shared<PortServer>(core, port)) {}
  ~EchoServer() {
    stopPumping();
    destroy();
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;

  /// Ends the service and destroys the port.
  void destroy() {
    const std::lock_guard lock(mutex);
    if (server != nullptr) {
      server->close();
      server.reset();
    }
  }
  /// Replaces the port by a new one, which has not been started.
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
  /// Dispatches until there is no more input. For servers without a thread.
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

/// A client with its own manager that records the events it receives.
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
  /// Sends `text`, and sets `text` to the reply's payload and `code` to its code.
  EvtRes request(std::string& text, std::uint16_t operation = 7) {
    const std::lock_guard lock(mutex);
    Reply reply;
    Deadline deadline = replyDeadline();
    const EvtRes result = client->exchange(
        operation, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
        reply, deadline);
    if (result == EvtRes_Success) {
      text.assign(reinterpret_cast<const char*>(reply.payload.data()), reply.payload.size());
      code = reply.code;
    }
    return result;
  }
  EvtRes request() {
    std::string text = "request";
    return request(text);
  }
  EvtRes resume(bool& renewed) {
    const std::lock_guard lock(mutex);
    Deadline deadline = replyDeadline();
    return client->resume(renewed, deadline);
  }
  /// The time of one request.
  Deadline replyDeadline() { return {system, replyTimeoutMs}; }

  TestSystem system;
  KSTD::KThreadMutex mutex;
  ManagerCore core;
  std::unique_ptr<PortClient> client;
  std::vector<std::pair<std::uint16_t, std::string>> events;
  std::function<void()> onEvent;
  std::uint16_t code = 0;
};

}  // namespace EvtSrv::internal
