#include "gateway/link/broker_address.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using modelgate::BrokerAddress;

struct AcceptedUrl {
  std::string url;
  BrokerAddress address;
};

TEST(GatewayBrokerAddress, IsParsedFromEachKindOfUrl) {
  const AcceptedUrl cases[] = {
      {"mqtt://broker", {false, "broker", 1883, ""}},
      {"mqtt://broker/", {false, "broker", 1883, ""}},
      {"mqtt://broker.example.org:1", {false, "broker.example.org", 1, ""}},
      {"mqtt://127.0.0.1:65535", {false, "127.0.0.1", 65535, ""}},
      {"mqtts://my_broker-2", {true, "my_broker-2", 8883, ""}},
      {"mqtts://[::1]", {true, "::1", 8883, ""}},
      {"mqtt://[fe80::1%eth0]:99", {false, "fe80::1%eth0", 99, ""}},
      {"unix:/run/mosquitto/broker", {false, "", 0, "/run/mosquitto/broker"}},
      {"unix:/" + std::string(106, 'p'), {false, "", 0, "/" + std::string(106, 'p')}},
  };
  for (const auto& [url, expected] : cases) {
    std::string error;
    const auto parsed = modelgate::parseBroker(url, error);
    ASSERT_TRUE(parsed) << url << ": " << error;
    EXPECT_EQ(parsed->tls, expected.tls) << url;
    EXPECT_EQ(parsed->host, expected.host) << url;
    EXPECT_EQ(parsed->port, expected.port) << url;
    EXPECT_EQ(parsed->path, expected.path) << url;
  }
}

TEST(GatewayBrokerAddress, SaysWhatIsWrongWithAUrl) {
  const std::string kinds = "expected mqtt://HOST[:PORT], mqtts://HOST[:PORT] or unix:/PATH";
  const std::string host = "expected a host name or address";
  const std::string port = "expected a port from 1 to 65535 after the host";
  const std::string path = "expected an absolute path after \"unix:\"";
  const struct {
    std::string url;
    std::string error;
  } cases[] = {
      {"", kinds},
      {"broker", kinds},
      {"http://broker", kinds},
      {"MQTT://broker", kinds},
      {"mqtt://", host},
      {"mqtt:///", host},
      {"mqtt://:1883", host},
      {"mqtt://user@broker", host},
      {"mqtt://broker/path", host},
      {"mqtt://-broker", host},
      {"mqtt://bro ker", host},
      {"mqtt://" + std::string(254, 'a'), host},
      {"mqtt://::1", host},
      {"mqtt://[::1", "missing \"]\""},
      {"mqtt://[]", host},
      {"mqtt://[::1]99", port},
      {"mqtt://broker:", port},
      {"mqtt://broker:0", port},
      {"mqtt://broker:65536", port},
      {"mqtt://broker:+1", port},
      {"mqtt://broker:1883x", port},
      {"mqtt://broker:99999999999", port},
      {"unix:", path},
      {"unix:broker", path},
      {std::string("unix:/a\0b", 9), path},
      {"unix:/" + std::string(107, 'p'), "the path is longer than 107 bytes"},
  };
  for (const auto& [url, expected] : cases) {
    std::string error;
    EXPECT_FALSE(modelgate::parseBroker(url, error)) << url;
    EXPECT_EQ(error, expected) << url;
  }
}

}  // namespace
