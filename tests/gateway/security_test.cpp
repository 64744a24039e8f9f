// The rights that the shipped configuration of the broker gives, with certificates of the shipped
// script.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/certificates.h"
#include "tests/gateway/link/client.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

namespace {

using gateway_test::Broker;
using gateway_test::Certificates;
using gateway_test::Client;
using gateway_test::runUntil;
using modelgate::EventLoop;
using modelgate::LinkOptions;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

class GatewaySecurity : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = std::make_unique<test_support::ScratchDirectory>();
    EXPECT_EQ(certificates({"authority"}), "");
    EXPECT_EQ(certificates({"broker", "localhost", "127.0.0.1"}), "");
    EXPECT_EQ(certificates({"device", "pump-1", "pump-2"}), "");
    EXPECT_EQ(certificates({"operator", "anna", "bob", "eve"}), "");
    std::string rules = shipped("acl");
    // Anna may see and set, Bob may see, Eve has a certificate and no right.
    rules += certificates({"grant", "anna", "plant", "set"});
    rules += certificates({"grant", "bob", "plant", "view"});
    static_cast<void>(directory_->write("acl", rules));
  }
  static void TearDownTestSuite() { directory_.reset(); }

  /// The output of modelgate-certificates; its error if it fails.
  static std::string certificates(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {test_support::sourceDirectory() +
                                             "/packaging/modelgate/modelgate-certificates",
                                         "--directory", directory_->path()});
    const test_support::Finished finished = test_support::run(arguments);
    return finished.status.code == 0 ? finished.output : finished.errors;
  }

  static std::string shipped(const std::string& name) {
    const std::string path = test_support::sourceDirectory() + "/packaging/modelgate/" + name;
    return test_support::run({"cat", path}).output;
  }

  static Broker::Options configuration() {
    Broker::Options options;
    options.whole = [](int port) {
      const std::string text =
          replaced(shipped("mosquitto.conf"), "/etc/mosquitto/modelgate", directory_->path());
      return replaced(text, "listener 8883", "listener " + std::to_string(port) + " 127.0.0.1");
    };
    return options;
  }

  [[nodiscard]] LinkOptions with(const std::string& user) const {
    LinkOptions options = Client::options(broker_.tlsUrl(), "test-" + user);
    options.caFile = directory_->file("ca.crt");
    options.certFile = directory_->file(user + ".crt");
    options.keyFile = directory_->file(user + ".key");
    return options;
  }

  std::unique_ptr<Client> connected(const std::string& user) {
    auto client = std::make_unique<Client>(loop_, with(user));
    EXPECT_TRUE(client->connects()) << user;
    return client;
  }

  /// Whether the broker lets `client` write to `topic`.
  static bool mayWrite(Client& client, const std::string& topic) {
    return client.publishes(topic, "x");
  }

  /// The topics that reach `reader`, which subscribes to everything, when `writer` writes to
  /// `topics` and then to "…/last", which the reader must be allowed to read.
  std::vector<std::string> readable(Client& reader, Client& writer,
                                    const std::vector<std::string>& topics,
                                    const std::string& last) {
    EXPECT_TRUE(reader.subscribes("#"));
    for (const std::string& topic : topics) {
      EXPECT_TRUE(mayWrite(writer, topic)) << topic;
    }
    EXPECT_TRUE(mayWrite(writer, last)) << last;
    std::vector<std::string> seen;
    EXPECT_TRUE(runUntil(
        loop_, [&] { return !reader.messages.empty() && reader.messages.back().topic == last; }));
    for (const Client::Received& message : reader.messages) {
      if (message.topic != last) {
        seen.push_back(message.topic);
      }
    }
    return seen;
  }

  std::string failureOf(const LinkOptions& options) {
    Client client(loop_, options);
    return client.reasons.empty() ? client.failure() : client.reasons[0];
  }

  static inline std::unique_ptr<test_support::ScratchDirectory> directory_;
  const Broker broker_{configuration()};
  EventLoop loop_;
};

const std::vector<std::string> ofPump1{
    "ts/1/plant/pump-1/state",      "ts/1/plant/pump-1/shape/host/0",
    "ts/1/plant/pump-1/val/host/0", "ts/1/plant/pump-1/upd/host",
    "ts/1/plant/pump-1/j/host/cpu", "ts/1/plant/pump-1/conflict",
    "ts/1/plant/pump-1/rsp/anna/1", "ts/1/plant/pump-1/rsp/bob/1",
};

TEST_F(GatewaySecurity, ADeviceWritesItsOwnSubtreeAndNoOther) {
  const auto device = connected("pump-2");
  EXPECT_TRUE(mayWrite(*device, "ts/1/plant/pump-2/state"));
  EXPECT_TRUE(mayWrite(*device, "ts/1/plant/pump-2/rsp/anna/1"));
  for (const std::string& topic : ofPump1) {
    EXPECT_FALSE(mayWrite(*device, topic)) << topic;
  }
  for (const std::string topic :
       {"ts/1/plant/pump-2x/state", "ts/1/plant/pump-1/req/get/pump-2", "ts/1/plant/x/pump-2/state",
        "ts/2/plant/pump-2/state", "pump-2", "$SYS/broker/x"}) {
    EXPECT_FALSE(mayWrite(*device, topic)) << topic;
  }
}

TEST_F(GatewaySecurity, ADeviceReadsNothingOfOthers) {
  const auto one = connected("pump-1");
  const auto two = connected("pump-2");
  EXPECT_EQ(readable(*two, *one, ofPump1, "ts/1/plant/pump-1/rsp/pump-2/last"),
            std::vector<std::string>{});
}

TEST_F(GatewaySecurity, AnOperatorStoresOnlyWithTheRight) {
  const auto anna = connected("anna");
  const auto bob = connected("bob");
  for (const std::string verb : {"get", "sync", "watch"}) {
    EXPECT_TRUE(mayWrite(*anna, "ts/1/plant/pump-1/req/" + verb + "/anna")) << verb;
    EXPECT_TRUE(mayWrite(*bob, "ts/1/plant/pump-1/req/" + verb + "/bob")) << verb;
  }
  for (const std::string verb : {"set", "load"}) {
    EXPECT_TRUE(mayWrite(*anna, "ts/1/plant/pump-1/req/" + verb + "/anna")) << verb;
    EXPECT_FALSE(mayWrite(*bob, "ts/1/plant/pump-1/req/" + verb + "/bob")) << verb;
    EXPECT_FALSE(mayWrite(*anna, "ts/1/other/pump-1/req/" + verb + "/anna")) << verb;
  }
}

TEST_F(GatewaySecurity, NobodyPosesAsAnother) {
  const auto anna = connected("anna");
  const auto bob = connected("bob");
  for (const std::string verb : {"get", "set", "load", "sync", "watch"}) {
    EXPECT_FALSE(mayWrite(*anna, "ts/1/plant/pump-1/req/" + verb + "/bob")) << verb;
    EXPECT_FALSE(mayWrite(*bob, "ts/1/plant/pump-1/req/" + verb + "/anna")) << verb;
    EXPECT_FALSE(mayWrite(*bob, "ts/1/plant/pump-1/req/" + verb + "/anna/bob")) << verb;
  }
  for (const std::string& topic : ofPump1) {
    EXPECT_FALSE(mayWrite(*anna, topic)) << topic;
  }
  // The certificate decides, whatever name the client states.
  LinkOptions options = with("bob");
  options.user = "anna";
  options.password = "x";
  Client posing(loop_, options);
  ASSERT_TRUE(posing.connects());
  EXPECT_FALSE(mayWrite(posing, "ts/1/plant/pump-1/req/set/anna"));
  EXPECT_TRUE(mayWrite(posing, "ts/1/plant/pump-1/req/get/bob"));
}

TEST_F(GatewaySecurity, AnOperatorReadsTheFleetButNotTheRepliesToOthers) {
  const auto device = connected("pump-1");
  const auto bob = connected("bob");
  const std::vector<std::string> expected{
      "ts/1/plant/pump-1/state",      "ts/1/plant/pump-1/shape/host/0",
      "ts/1/plant/pump-1/val/host/0", "ts/1/plant/pump-1/upd/host",
      "ts/1/plant/pump-1/j/host/cpu", "ts/1/plant/pump-1/rsp/bob/1"};
  EXPECT_EQ(readable(*bob, *device, ofPump1, "ts/1/plant/pump-1/rsp/bob/last"), expected);
}

TEST_F(GatewaySecurity, AnOperatorReadsNoRequestsOfOthers) {
  const auto anna = connected("anna");
  const auto bob = connected("bob");
  const auto device = connected("pump-1");
  EXPECT_TRUE(bob->subscribes("#"));
  EXPECT_TRUE(mayWrite(*anna, "ts/1/plant/pump-1/req/set/anna"));
  EXPECT_TRUE(mayWrite(*device, "ts/1/plant/pump-1/rsp/bob/last"));
  ASSERT_TRUE(bob->receives(1));
  EXPECT_EQ(bob->messages[0].topic, "ts/1/plant/pump-1/rsp/bob/last");
}

// The broker drops what is above its limits, and says so to no client.
TEST_F(GatewaySecurity, AnOperatorGetsTheStatesOfAWholeFleetAtOnce) {
  constexpr std::size_t count = 2'000;
  const auto device = connected("pump-1");
  modelgate::Publication publication;
  publication.payload = std::string(300, 's');  // the size of a state
  publication.qos = 1;
  publication.retain = true;
  for (std::size_t i = 0; i < count; ++i) {
    publication.topic = "ts/1/plant/pump-1/val/host/" + std::to_string(i);
    ASSERT_TRUE(runUntil(loop_, [&] { return device->link.hasCapacity(); }));
    ASSERT_TRUE(device->link.publish(publication));
  }
  ASSERT_TRUE(mayWrite(*device, "ts/1/plant/pump-1/state"));
  const auto anna = connected("anna");
  ASSERT_TRUE(anna->subscribes("ts/1/plant/+/val/host/+"));
  EXPECT_TRUE(anna->receives(count)) << anna->messages.size();
}

TEST_F(GatewaySecurity, ACertificateAloneGivesNoRightToAFleet) {
  const auto device = connected("pump-1");
  const auto eve = connected("eve");
  EXPECT_EQ(readable(*eve, *device, ofPump1, "ts/1/plant/pump-1/rsp/eve/last"),
            std::vector<std::string>{});
  EXPECT_FALSE(mayWrite(*eve, "ts/1/plant/pump-1/req/get/eve"));
}

TEST_F(GatewaySecurity, OnlyCertificatesOfTheAuthorityAreLetIn) {
  const Certificates foreign("modelgate-authority");
  foreign.makeClient("anna");
  LinkOptions options = with("anna");
  options.certFile = foreign.certificate("anna");
  options.keyFile = foreign.key("anna");
  EXPECT_NE(failureOf(options), "");
  options.certFile.clear();
  EXPECT_NE(failureOf(options), "");
  options.user = "anna";
  EXPECT_NE(failureOf(options), "");
  options.broker.tls = false;
  EXPECT_NE(failureOf(options), "");
  // A broker's certificate is not a client's.
  EXPECT_NE(failureOf(with("broker")), "");
}

TEST_F(GatewaySecurity, AnExpiredCertificateIsNotLetIn) {
  EXPECT_EQ(certificates({"--days", "0", "operator", "late"}), "");
  // It ends within a second.
  EXPECT_TRUE(test_support::eventually([&] {
    Client client(loop_, with("late"));
    EXPECT_TRUE(
        runUntil(loop_, [&] { return client.link.isConnected() || !client.reasons.empty(); }));
    return !client.reasons.empty();
  }));
}

TEST_F(GatewaySecurity, TheScriptMakesNoNameThatIsMoreThanALevel) {
  const std::string rule = "expected 1 to 64 characters of A-Z, a-z, 0-9, \".\", \"_\", \"-\"\n";
  for (const std::string name : {"", "a/b", "+", "#", "pump-1/state", "a b", "a\nb", "\xc3\xa4"}) {
    std::string expected("modelgate-certificates: \"");
    expected.append(name).append("\": ").append(rule);
    EXPECT_EQ(certificates({"device", "good", name}), expected);
    EXPECT_NE(certificates({"grant", name, "plant", "view"}).find(rule), std::string::npos);
    EXPECT_NE(certificates({"grant", "anna", name, "view"}).find(rule), std::string::npos);
  }
  EXPECT_EQ(certificates({"device", "ca"}),
            "modelgate-certificates: \"ca\": this name is not for clients\n");
  EXPECT_NE(certificates({"device", std::string(65, 'a')}).find("longer than 64"),
            std::string::npos);
  const std::string existing = directory_->file("pump-1.crt");
  EXPECT_EQ(certificates({"device", "pump-1"}),
            "modelgate-certificates: " + existing + ": exists\n");
  EXPECT_EQ(certificates({"authority"}),
            "modelgate-certificates: " + directory_->file("ca.crt") + ": exists\n");
  EXPECT_EQ(certificates({"--days", "x", "device", "y"}),
            "modelgate-certificates: --days: expected a number, got \"x\"\n");
}

}  // namespace
