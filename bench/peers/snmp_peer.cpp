#include <cstdlib>
#include <stdexcept>

#include "bench/peers/peer.h"

namespace bench::peers {

namespace {

/// What the net-snmp project keeps free for trials.
constexpr const char* base = ".1.3.6.1.4.1.8072.9999.9999";

class Snmp : public Peer {
 public:
  Snmp(const Directory& directory, const Shape& shape)
      : shape_(shape),
        address_("unix:" + directory.path("snmp")),
        server_(
            {"/usr/sbin/snmpd", "-f", "-LE", "3", "-I", "-smux", "-C", "-c", prepare(directory)}) {
    awaitSocket(directory.path("snmp"));
    // The first question starts the program that holds the values.
    static_cast<void>(runToEnd(read().words));
  }

  [[nodiscard]] std::string name() const override { return "net-snmp"; }

  [[nodiscard]] Task read() const override {
    return {"snmpget", client("snmpget", {}, ".1.1", {}), 1};
  }

  [[nodiscard]] Task write(int value) const override {
    return {"snmpset", client("snmpset", {}, ".1.1", {"i", std::to_string(value)}), 1};
  }

  [[nodiscard]] std::vector<Task> list() const override {
    return {{"snmpbulkwalk -Cr100, names in numbers", client("snmpbulkwalk", {"-Cr100"}, "", {}),
             shape_.total()}};
  }

  [[nodiscard]] Servers servers() const override {
    return {"snmpd and the program with the values", withChildren(server_.pid())};
  }

  [[nodiscard]] std::string whyNoUpdates() const override {
    return "net-snmp tells of changes by traps, which snmpd has to be configured to send for "
           "each kind of value; nobody subscribes to a value.";
  }

 private:
  /// Keeps the machine's own configuration out; the path of the one here.
  [[nodiscard]] std::string prepare(const Directory& directory) const {
    if (::setenv("SNMPCONFPATH", directory.path("none").c_str(), 1) != 0 ||
        ::setenv("SNMP_PERSISTENT_DIR", directory.path("persistent").c_str(), 1) != 0 ||
        ::setenv("MIBS", "", 1) != 0) {
      throw std::runtime_error("setenv");
    }
    return directory.write("snmpd.conf", "agentaddress " + address_ +
                                             "\n"
                                             "com2secunix here default public\n"
                                             "group here v2c here\n"
                                             "view all included .1\n"
                                             "access here \"\" any noauth exact all all none\n"
                                             "dontLogTCPWrappersConnects yes\n"
                                             "pass_persist " +
                                             base + ' ' + SNMP_VALUES + ' ' + base + ' ' +
                                             std::to_string(shape_.groups) + ' ' +
                                             std::to_string(Shape::valuesPerGroup) + '\n');
  }

  [[nodiscard]] Words client(const std::string& program, const Words& options,
                             const std::string& value, const Words& rest) const {
    Words words{program, "-v2c", "-c", "public", "-m", "", "-On"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {address_, base + value});
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
  }

  Shape shape_;
  std::string address_;
  Running server_;
};

}  // namespace

std::unique_ptr<Peer> serveSnmp(const Directory& directory, const Shape& shape) {
  return std::make_unique<Snmp>(directory, shape);
}

}  // namespace bench::peers
