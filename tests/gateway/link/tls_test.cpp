// Connections with TLS and client certificates.

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/certificates.h"
#include "tests/gateway/link/client.h"

namespace {

using gateway_test::Broker;
using gateway_test::Certificates;
using gateway_test::Client;
using gateway_test::runUntil;
using modelgate::EventLoop;
using modelgate::LinkOptions;
using modelgate::Publication;
using namespace std::chrono_literals;

class GatewayTls : public testing::Test {
 protected:
  GatewayTls() {
    ours_.makeServer("broker");
    ours_.makeClient("device");
  }

  [[nodiscard]] Broker::Options brokerOptions(const std::string& server = "broker") const {
    return {.tcp = true, .listener = ours_.listener(server)};
  }

  [[nodiscard]] static LinkOptions with(const std::string& url, const Certificates& authority,
                                        const Certificates& client, const std::string& name) {
    LinkOptions options = Client::options(url, "client");
    options.caFile = authority.authority();
    options.certFile = client.certificate(name);
    options.keyFile = client.key(name);
    return options;
  }

  std::string failureOf(const LinkOptions& options) {
    Client client(loop_, options);
    return client.reasons.empty() ? client.failure() : client.reasons[0];
  }

  const Certificates ours_;
  EventLoop loop_;
};

TEST_F(GatewayTls, CarriesMessagesOfAnySizeBothWays) {
  const Broker broker(brokerOptions());
  Client client(loop_, with(broker.tlsUrl(), ours_, ours_, "device"));
  ASSERT_TRUE(client.connects()) << client.reasons[0];
  ASSERT_TRUE(client.subscribes("a"));
  std::size_t sent = 0;
  for (const std::size_t size : {0UL, 1UL, 16384UL, 100'000UL, 3'000'000UL}) {
    Publication publication;
    publication.topic = "a";
    publication.payload.assign(size, 'x');
    publication.qos = 1;
    EXPECT_TRUE(client.link.publish(publication));
    ++sent;
  }
  ASSERT_TRUE(client.receives(sent));
  EXPECT_EQ(client.messages.back().payload.size(), 3'000'000U);
  EXPECT_TRUE(client.reasons.empty());
}

TEST_F(GatewayTls, DeliversManyMessagesOfOneRecordWithoutWaitingForMore) {
  const Broker broker(brokerOptions());
  Client client(loop_, with(broker.tlsUrl(), ours_, ours_, "device"));
  ASSERT_TRUE(client.connects());
  ASSERT_TRUE(client.subscribes("a", 0));
  // A handler whose last system call has failed with EAGAIN, as one that wakes another thread may.
  client.onMessage = [](const modelgate::Message&) { errno = EAGAIN; };
  Publication publication;
  publication.topic = "a";
  publication.payload = "x";
  for (int count = 0; count < 500; ++count) {
    EXPECT_TRUE(client.link.publish(publication));
  }
  EXPECT_TRUE(client.receives(500));
}

TEST_F(GatewayTls, ConnectsAnewWithCertificatesThatWereRenewed) {
  Broker broker(brokerOptions());
  ours_.makeClient("renewed");
  Client client(loop_, with(broker.tlsUrl(), ours_, ours_, "renewed"));
  ASSERT_TRUE(client.connects());
  ours_.makeClient("renewed");
  broker.restart();
  ASSERT_TRUE(runUntil(loop_, [&] { return client.connections == 2; }));
}

TEST_F(GatewayTls, ChecksTheBrokersCertificate) {
  const Certificates foreign("foreign authority");
  ours_.makeServer("elsewhere", "elsewhere.example.org");
  ours_.makeServer("numeric", "IP:127.0.0.1");
  const Broker broker(brokerOptions());
  const Broker elsewhere(brokerOptions("elsewhere"));
  const Broker numeric(brokerOptions("numeric"));
  const std::string start = "the broker's certificate: ";
  const std::string stranger = start + "self-signed certificate in certificate chain";
  EXPECT_EQ(failureOf(with(broker.tlsUrl(), foreign, ours_, "device")), stranger);
  EXPECT_EQ(failureOf(with(elsewhere.tlsUrl(), ours_, ours_, "device")),
            start + "hostname mismatch");
  EXPECT_EQ(failureOf(with(broker.tlsUrl("127.0.0.1"), ours_, ours_, "device")),
            start + "IP address mismatch");
  LinkOptions system = with(broker.tlsUrl(), ours_, ours_, "device");
  system.caFile.clear();
  EXPECT_EQ(failureOf(system), stranger);
  Client client(loop_, with(numeric.tlsUrl("127.0.0.1"), ours_, ours_, "device"));
  EXPECT_TRUE(client.connects());
}

TEST_F(GatewayTls, SaysWhyTheBrokerTakesNoCertificate) {
  const Certificates foreign("foreign authority");
  foreign.makeClient("device");
  ours_.makeClient("expired", -1);
  const Broker broker(brokerOptions());
  // The broker's reason arrives after the handshake, and is lost if the client writes meanwhile.
  const auto expectReason = [](const std::string& reason, const std::string& alert) {
    EXPECT_TRUE(reason == "TLS: " + alert ||
                reason ==
                    "TLS: the broker closed the connection, perhaps for want of a valid "
                    "certificate")
        << reason;
  };
  expectReason(failureOf(with(broker.tlsUrl(), ours_, foreign, "device")),
               "tlsv1 alert unknown ca");
  expectReason(failureOf(with(broker.tlsUrl(), ours_, ours_, "expired")),
               "sslv3 alert certificate expired");
  LinkOptions without = with(broker.tlsUrl(), ours_, ours_, "device");
  without.certFile.clear();
  expectReason(failureOf(without), "tlsv13 alert certificate required");
}

TEST_F(GatewayTls, DoesNotTalkToABrokerWithoutIt) {
  const Broker plain({.tcp = true});
  const std::string reason = failureOf(with(plain.tlsUrl(), ours_, ours_, "device"));
  EXPECT_FALSE(reason.empty());
  const Broker broker(brokerOptions());
  EXPECT_FALSE(failureOf(Client::options(broker.tcpUrl(), "client")).empty());
}

TEST_F(GatewayTls, NamesTheFileThatCannotBeUsed) {
  const auto error = [&](const LinkOptions& options) -> std::string {
    try {
      const modelgate::BrokerLink link(loop_, options, {});
      return "";
    } catch (const std::runtime_error& caught) {
      return caught.what();
    }
  };
  const LinkOptions good = with("mqtts://localhost", ours_, ours_, "device");
  EXPECT_EQ(error(good), "");
  LinkOptions options = good;
  options.caFile = "/no/such/ca.crt";
  EXPECT_EQ(error(options), "/no/such/ca.crt: No such file or directory");
  options = good;
  options.certFile = "/no/such/device.crt";
  EXPECT_EQ(error(options), "/no/such/device.crt: No such file or directory");
  options = good;
  options.keyFile = "/no/such/device.key";
  EXPECT_EQ(error(options), "/no/such/device.key: No such file or directory");
  options = good;
  options.keyFile = ours_.key("broker");
  EXPECT_EQ(error(options), options.keyFile + ": key values mismatch");
  options = good;
  options.caFile = ours_.key("device");
  EXPECT_EQ(error(options), options.caFile + ": no certificate or crl found");
  options = good;
  const test_support::TemporaryFile empty("");
  options.certFile = empty.path();
  EXPECT_EQ(error(options), empty.path() + ": no start line");
}

}  // namespace
