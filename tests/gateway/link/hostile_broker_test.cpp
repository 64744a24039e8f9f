// A broker that sends what it likes.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "tests/gateway/link/client.h"
#include "tests/support/descriptor.h"
#include "tests/support/scratch_directory.h"

namespace {

using gateway_test::Client;
using gateway_test::runUntil;
using modelgate::EventLoop;
using test_support::Descriptor;
using namespace std::chrono_literals;
using namespace std::string_literals;

/// Accepts one client at a time and answers its first packet with `answer`.
class FakeBroker {
 public:
  FakeBroker(EventLoop& loop, std::string answer)
      : loop_(loop),
        answer_(std::move(answer)),
        listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, directory_.file("broker").c_str(), sizeof address.sun_path - 1);
    if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 8) != 0) {
      test_support::throwError("bind");
    }
    loop_.watch(listener_.get(), POLLIN, [this] { accept(); });
  }
  ~FakeBroker() {
    loop_.unwatch(listener_.get());
    if (client_.isOpen()) {
      loop_.unwatch(client_.get());
    }
  }
  FakeBroker(const FakeBroker&) = delete;
  FakeBroker& operator=(const FakeBroker&) = delete;

  [[nodiscard]] std::string url() const { return "unix:" + directory_.file("broker"); }
  void send(const std::string& bytes) {
    static_cast<void>(::send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }
  void close() {
    loop_.unwatch(client_.get());
    client_.close();
  }

 private:
  void accept() {
    if (client_.isOpen()) {
      close();
    }
    client_ = Descriptor(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    loop_.watch(client_.get(), POLLIN, [this] {
      std::array<char, 4096> bytes{};
      if (::recv(client_.get(), bytes.data(), bytes.size(), 0) <= 0) {
        close();
        return;
      }
      static_cast<void>(::send(client_.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL));
      answer_.clear();
    });
  }

  EventLoop& loop_;
  std::string answer_;
  test_support::ScratchDirectory directory_;
  Descriptor listener_;
  Descriptor client_;
};

// CONNACK without properties, for MQTT 5.
const std::string accepted = "\x20\x03\0\0\0"s;

TEST(GatewayHostileBroker, SaysThatTheClientWasTakenOver) {
  EventLoop loop;
  const FakeBroker broker(loop, accepted + "\xe0\x02\x8e\0"s);
  Client client(loop, broker.url(), "client");
  EXPECT_EQ(client.failure(), "the broker disconnects: Session taken over");
  EXPECT_TRUE(client.takenOver);
}

TEST(GatewayHostileBroker, RefusesWithAReason) {
  EventLoop loop;
  const FakeBroker broker(loop, "\x20\x03\0\x88\0"s);
  Client client(loop, broker.url(), "client");
  EXPECT_EQ(client.failure(), "the broker refuses: Server unavailable");
  EXPECT_EQ(client.connections, 0);
}

TEST(GatewayHostileBroker, CausesANewConnectionWithWhateverItSends) {
  // Not a property that MQTT does not know: libmosquitto 2.0.11 ends the process for it.
  const std::string cases[] = {
      "\x20"s,                                  // cut
      "\x20\x03\0\0"s,                          // cut
      "\x20\xff\xff\xff\xff\xff"s,              // a length of five bytes
      accepted + "\x30\xff\xff\xff\x7f\0\1a"s,  // 256 MiB that do not follow
      accepted + "\x30\x04\xff\xff\0\0"s,       // a topic longer than the packet
      accepted + "\x30\x04\0\1\xff\0"s,         // a topic that is no UTF-8
      accepted + "\x40\x02\0\x09"s,             // an acknowledgement of nothing
      accepted + "\x90\x04\0\x09\0\0"s,         // a subscription of nothing
      accepted + "\xd0\0\xd0\0"s,               // answers to no ping
      accepted + "\xf0\0"s,                     // AUTH
      accepted + "\x10\0"s,                     // a client's packet
      accepted + accepted,                      //
      "\x30\x04\0\1a\0"s,                       // a message before the client is accepted
      "HTTP/1.1 400 Bad Request\r\n\r\n",
  };
  for (const std::string& answer : cases) {
    EventLoop loop;
    FakeBroker broker(loop, answer);
    Client client(loop, broker.url(), "client");
    // Either the answer ends the connection or, a little later, the broker closes it.
    const auto closing = loop.after(100ms, [&] {
      if (client.reasons.empty()) {
        broker.close();
      }
    });
    EXPECT_TRUE(runUntil(loop, [&] { return !client.reasons.empty(); })) << answer;
    EXPECT_FALSE(client.takenOver);
    EXPECT_TRUE(client.messages.empty());
  }
}

TEST(GatewayHostileBroker, MustAnswerPingsAlsoWhileItSends) {
  EventLoop loop;
  FakeBroker broker(loop, accepted);
  modelgate::LinkOptions options = Client::options(broker.url(), "client");
  options.keepAlive = 5s;
  Client client(loop, std::move(options));
  ASSERT_TRUE(client.connects());
  EventLoop::Timer timer;
  std::function<void()> sendMore = [&] {
    broker.send("\x30\x05\0\1a\0x"s);
    timer = loop.after(500ms, sendMore);
  };
  sendMore();
  EXPECT_EQ(client.failure(), "the broker does not answer");
  EXPECT_FALSE(client.messages.empty());
}

TEST(GatewayHostileBroker, GetsNoMoreTimeThanTenSecondsToAccept) {
  EventLoop loop;
  const FakeBroker broker(loop, "");
  Client client(loop, broker.url(), "client");
  EXPECT_EQ(client.failure(), "no answer");
}

}  // namespace
