// Brokers that send larger packets than a client takes.

#include "gateway/link/packet_limit.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <string_view>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/client.h"
#include "tests/gateway/link/flooding_broker.h"
#include "tests/gateway/link/loopback_listener.h"
#include "tests/support/descriptor.h"

namespace {

using gateway_test::Broker;
using gateway_test::Client;
using gateway_test::FloodingBroker;
using modelgate::EventLoop;
using modelgate::PacketLimit;
using test_support::Descriptor;
using namespace std::chrono_literals;

constexpr const char* tooLarge = "the broker sends a packet that is too large";
/// The beginning of a message that states 256 MiB.
constexpr std::string_view largestMessage("\x30\xff\xff\xff\x7f\0\1a", 8);
constexpr std::size_t largestSize = std::size_t{256} * 1024 * 1024;

/// Sends one client, over TCP, a message of 256 MiB: some of it in each turn of the client's loop.
class LargeMessageBroker {
 public:
  explicit LargeMessageBroker(EventLoop& loop)
      : loop_(loop), url_("mqtt://127.0.0.1:" + std::to_string(listener_.port())) {
    loop_.watch(listener_.get(), POLLIN, [this] { accept(); });
  }
  ~LargeMessageBroker() {
    end();
    loop_.unwatch(listener_.get());
  }
  LargeMessageBroker(const LargeMessageBroker&) = delete;
  LargeMessageBroker& operator=(const LargeMessageBroker&) = delete;

  [[nodiscard]] const std::string& url() const { return url_; }
  /// What the system has taken.
  [[nodiscard]] std::size_t sent() const { return sent_; }

 private:
  void accept() {
    end();
    client_ = Descriptor(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    loop_.watch(client_.get(), POLLIN, [this] { answer(); });
  }
  void answer() {
    std::array<char, 4096> bytes{};
    // CONNACK without properties, for MQTT 5.
    const std::string first = std::string("\x20\x03\0\0\0", 5).append(largestMessage);
    if (::recv(client_.get(), bytes.data(), bytes.size(), 0) <= 0 ||
        ::send(client_.get(), first.data(), first.size(), MSG_NOSIGNAL) < 0) {
      return end();
    }
    loop_.watch(client_.get(), POLLOUT, [this] { sendPiece(); });
  }
  void sendPiece() {
    const ssize_t length =
        ::send(client_.get(), piece_.data(), piece_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (length <= 0 || (sent_ += static_cast<std::size_t>(length)) >= largestSize) {
      end();
    }
  }
  void end() {
    if (client_.isOpen()) {
      loop_.unwatch(client_.get());
      client_.close();
    }
  }

  EventLoop& loop_;
  gateway_test::LoopbackListener listener_;
  Descriptor client_;
  std::string url_;
  const std::string piece_ = std::string(std::size_t{64} * 1024, '\0');
  std::size_t sent_ = 0;
};

TEST(GatewayPacketLimit, EndsAConnectionWithATooLargePacketBeforeItIsWhole) {
  EventLoop loop;
  const LargeMessageBroker broker(loop);
  Client client(loop, broker.url(), "client");
  EXPECT_EQ(client.failure(), tooLarge);
  EXPECT_EQ(client.connections, 1);
  EXPECT_TRUE(client.messages.empty());
  // The socket's buffers take some of it, too.
  EXPECT_LT(broker.sent(), 2 * PacketLimit::maxPacket + largestSize / 16);
}

TEST(GatewayPacketLimit, EndsAConnectionWithTlsToo) {
  const gateway_test::Certificates certificates;
  certificates.makeServer("broker");
  const FloodingBroker broker(certificates, "broker", largestMessage,
                              largestSize / largestMessage.size());
  EventLoop loop;
  modelgate::LinkOptions options = Client::options(broker.url(), "client");
  options.caFile = certificates.authority();
  Client client(loop, options);
  EXPECT_EQ(client.failure(), tooLarge);
  EXPECT_FALSE(broker.hasSentAll());
  // The message before it.
  EXPECT_EQ(client.messages.size(), 1U);
}

TEST(GatewayPacketLimit, IsStatedToTheBroker) {
  const Broker broker({.tcp = true});
  for (const std::string& url : {broker.url(), broker.tcpUrl()}) {
    EventLoop loop;
    Client client(loop, url, "client");
    ASSERT_TRUE(client.connects());
    ASSERT_TRUE(client.subscribes("a"));
    Client other(loop, url, "other");
    ASSERT_TRUE(other.connects());
    const std::string most(std::size_t{4} * 1024 * 1024, 'x');
    for (const std::string& payload : {most, most + most, std::string("last")}) {
      ASSERT_TRUE(other.publishes("a", payload));
    }
    ASSERT_TRUE(client.receives(2));
    EXPECT_EQ(client.messages[0].payload.size(), most.size());
    EXPECT_EQ(client.messages[1].payload, "last");
    EXPECT_EQ(client.connections, 1);
  }
}

TEST(GatewayPacketLimit, CountsNothingButWhatATcpConnectionReceives) {
  PacketLimit limit;
  const PacketLimit::Clock::time_point now{};
  EXPECT_FALSE(limit.isExceeded(-1, false, now));
  std::array<int, 2> pair{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
  const Descriptor one(pair[0]);
  const Descriptor other(pair[1]);
  EXPECT_FALSE(limit.isExceeded(one.get(), false, now));
}

}  // namespace
