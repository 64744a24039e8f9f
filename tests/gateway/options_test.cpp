#include "gateway/options.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "gateway/config_file.h"
#include "tests/support/scratch_directory.h"

namespace {

using modelgate::OptionError;
using modelgate::Options;
using modelgate::OptionText;
using modelgate::parseOptions;
using test_support::TemporaryFile;
using Arguments = std::vector<std::string>;

std::string errorOf(const Arguments& arguments) {
  const auto parsed = parseOptions(arguments);
  const auto* const error = std::get_if<OptionError>(&parsed);
  return error != nullptr ? error->text : "";
}

Options optionsOf(const Arguments& arguments) {
  EXPECT_EQ(errorOf(arguments), "");
  return std::get<Options>(parseOptions(arguments));
}

TEST(GatewayOptions, HaveDefaultsForEverything) {
  const Options options = optionsOf({"export"});
  EXPECT_EQ(options.role, Options::Role::exporter);
  EXPECT_EQ(options.broker.host, "localhost");
  EXPECT_EQ(options.broker.port, 1883);
  EXPECT_EQ(options.fleet, "default");
  EXPECT_EQ(options.device, "");
  EXPECT_TRUE(options.servers.empty() && options.allowSet.empty() && options.json.empty());
  EXPECT_EQ(options.interval.count(), 50);
  EXPECT_EQ(options.heartbeat.count(), 10000);
  EXPECT_EQ(options.keepAlive.count(), 10);
  EXPECT_FALSE(options.verbose || options.retainValues);
  EXPECT_EQ(optionsOf({"view"}).role, Options::Role::viewer);
}

TEST(GatewayOptions, AreAllTakenFromTheCommandLine) {
  const Options exporter = optionsOf({"export",
                                      "--broker",
                                      "mqtts://broker",
                                      "--fleet",
                                      "plant",
                                      "--device",
                                      "pump-1",
                                      "--server",
                                      "host",
                                      "--server=Model_x",
                                      "--allow-set",
                                      "/",
                                      "--json",
                                      "/cpu",
                                      "--interval",
                                      "0",
                                      "--heartbeat",
                                      "100",
                                      "--keep-alive",
                                      "3600",
                                      "--cafile",
                                      "ca",
                                      "--cert",
                                      "c",
                                      "--key",
                                      "k",
                                      "--user",
                                      "u",
                                      "--password-file",
                                      "p",
                                      "-v",
                                      "--retain-values"});
  EXPECT_TRUE(exporter.broker.tls);
  EXPECT_EQ(exporter.fleet, "plant");
  EXPECT_EQ(exporter.device, "pump-1");
  EXPECT_EQ(exporter.servers, (Arguments{"host", "Model_x"}));
  EXPECT_EQ(exporter.allowSet, (Arguments{"/"}));
  EXPECT_EQ(exporter.json, (Arguments{"/cpu"}));
  EXPECT_EQ(exporter.interval.count(), 0);
  EXPECT_EQ(exporter.heartbeat.count(), 100);
  EXPECT_EQ(exporter.keepAlive.count(), 3600);
  EXPECT_EQ(exporter.caFile + exporter.certFile + exporter.keyFile, "cack");
  EXPECT_EQ(exporter.user + exporter.passwordFile, "up");
  EXPECT_TRUE(exporter.verbose && exporter.retainValues);
  const Options viewer = optionsOf({"view", "--device", "a", "--device", "b", "--group", "staff",
                                    "--keep-alive", "5", "--verbose"});
  EXPECT_EQ(viewer.devices, (Arguments{"a", "b"}));
  EXPECT_EQ(viewer.group, "staff");
  EXPECT_EQ(viewer.keepAlive.count(), 5);
  EXPECT_TRUE(viewer.verbose);
}

TEST(GatewayOptions, ComeFromAFileUnlessTheCommandLineStatesThem) {
  const TemporaryFile file(
      "# a comment\n"
      "broker = unix:/run/broker\n"
      "  fleet=\"plant\"\r\n"
      "\n"
      "server = one\n"
      "server = two\n"
      "allow-set = /cpu\n"
      "allow-set = /two/fan\n"
      "verbose = true");
  const Options options =
      optionsOf({"export", "--config", file.path(), "--server", "three", "--fleet", "other"});
  EXPECT_EQ(options.broker.path, "/run/broker");
  EXPECT_EQ(options.fleet, "other");
  EXPECT_EQ(options.servers, (Arguments{"three"}));
  EXPECT_EQ(options.allowSet, (Arguments{"/cpu", "/two/fan"}));
  EXPECT_TRUE(options.verbose);
}

TEST(GatewayOptions, NameTheLineOfAFileThatIsWrong) {
  const struct {
    std::string text;
    std::string error;
  } cases[] = {
      {"broker", ":1: expected \"name = value\""},
      {"\n\n= x", ":3: missing name before \"=\""},
      {"fleet = \"x", ":1: missing \" at the end of the line"},
      {"fleet = \"", ":1: missing \" at the end of the line"},
      {"bro\x1bker = x", ":1: unknown name \"bro?ker\""},
      {"group = x", ":1: unknown name \"group\""},
      {"config = x", ":1: unknown name \"config\""},
      {"fleet = a\nfleet = b", ":2: fleet: given twice"},
      {"#\ninterval = 10001", ":2: interval: expected 0 to 10000 milliseconds, got \"10001\""},
      {"verbose = yes", ":1: verbose: expected true or false, got \"yes\""},
      {"cert =", ":1: cert: expected a text, got \"\""},
  };
  for (const auto& [text, error] : cases) {
    const TemporaryFile file(text);
    EXPECT_EQ(errorOf({"export", "--config", file.path()}), file.path() + error) << text;
  }
  EXPECT_EQ(errorOf({"view", "--config", "/no/such\n/file"}),
            "/no/such?/file: No such file or directory");
  EXPECT_EQ(errorOf({"view", "--config", "/tmp"}), "/tmp: not a regular file");
  const TemporaryFile large(std::string((std::size_t{1} << 20) + 1, '#'));
  EXPECT_EQ(errorOf({"view", "--config", large.path()}), large.path() + ": larger than 1 MiB");
}

TEST(GatewayOptions, NameTheArgumentThatIsWrong) {
  const std::string help = "; see modelgate --help";
  const std::string fleet = "expected 1 to 64 characters of A-Z, a-z, 0-9, \".\", \"_\", \"-\"";
  const struct {
    Arguments arguments;
    std::string error;
  } cases[] = {
      {{}, "expected \"export\" or \"view\"" + help},
      {{"exprot"}, "expected \"export\" or \"view\", got \"exprot\"" + help},
      {{"--broker", "x"}, "expected \"export\" or \"view\", got \"--broker\"" + help},
      {{"export", "--group", "x"}, "\"--group\": unknown argument" + help},
      {{"view", "--allow-set", "/"}, "\"--allow-set\": unknown argument" + help},
      {{"export", "more"}, "\"more\": unknown argument" + help},
      {{"export", "--fleet"}, "--fleet: missing value" + help},
      {{"export", "--verbose=maybe"}, "--verbose: expected true or false" + help},
      {{"export", "--fleet", "a", "--fleet", "a"}, "--fleet: given twice"},
      {{"export", "--config", "a", "--config", "b"}, "--config: given twice"},
      {{"export", "--fleet", "a/b"}, "--fleet: " + fleet + ", got \"a/b\""},
      {{"export", "--device", ""}, "--device: " + fleet + ", got \"\""},
      {{"view", "--device", "\n"}, "--device: " + fleet + ", got \"?\""},
      {{"export", "--broker", "broker"},
       "--broker: expected mqtt://HOST[:PORT], mqtts://HOST[:PORT] or unix:/PATH, got \"broker\""},
      {{"export", "--server", "a/b"}, "--server: expected the name of a server, got \"a/b\""},
      {{"export", "--allow-set", "cpu"},
       "--allow-set: expected a path such as /cpu, or / for everything, got \"cpu\""},
      {{"export", "--json", "/a//b"},
       "--json: expected a path such as /cpu, or / for everything, got \"/a//b\""},
      {{"export", "--interval", "-1"}, "--interval: expected 0 to 10000 milliseconds, got \"-1\""},
      {{"export", "--interval", "5ms"},
       "--interval: expected 0 to 10000 milliseconds, got \"5ms\""},
      {{"export", "--heartbeat", "99"},
       "--heartbeat: expected 100 to 3600000 milliseconds, got \"99\""},
      {{"view", "--heartbeat", "1000"}, "\"--heartbeat\": unknown argument" + help},
      {{"view", "--keep-alive", "4"}, "--keep-alive: expected 5 to 3600 seconds, got \"4\""},
      {{"view", "--user", "a/b"},
       "--user: expected 1 to 128 bytes of UTF-8 without \"/\", \"+\", \"#\", \";\" and control "
       "characters, got \"a/b\""},
      {{"view", "--key", "k", "--broker", "mqtts://b"}, "--key: needs --cert"},
      {{"view", "--cert", "c"}, "--cert: needs a broker at mqtts://"},
      {{"view", "--cafile", "c"}, "--cafile: needs a broker at mqtts://"},
      {{"view", "--password-file", "p"}, "--password-file: needs --user"},
  };
  for (const auto& [arguments, error] : cases) {
    EXPECT_EQ(errorOf(arguments), error) << testing::PrintToString(arguments);
  }
}

TEST(GatewayOptions, ExplainThemselves) {
  const auto textOf = [](const Arguments& arguments) {
    const auto parsed = parseOptions(arguments);
    const auto* const text = std::get_if<OptionText>(&parsed);
    return text != nullptr ? text->text : "";
  };
  EXPECT_NE(textOf({"--help"}).find("export"), std::string::npos);
  EXPECT_NE(textOf({"export", "--help"}).find("--allow-set PATH"), std::string::npos);
  EXPECT_NE(textOf({"export", "--help"}).find("modelgate export ["), std::string::npos);
  EXPECT_EQ(textOf({"view", "--help"}).find("--allow-set"), std::string::npos);
  EXPECT_EQ(textOf({"--version"}).substr(0, 10), "modelgate ");
}

}  // namespace
