#include "tests/attack/floods.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <list>
#include <string_view>

#include "tests/attack/changing_server.h"
#include "tests/fault/raw_pipe.h"
#include "tests/fault/wire.h"

namespace attack {

namespace {

namespace wire = fault::wire;
using fault::RawClient;

// The ids of the parts of `floodedTree()`.
enum PartId : std::uint16_t { value = readPart, array, text, group, arrays, large };
constexpr std::uint16_t groupSize = 5000;
constexpr std::uint16_t largeSize = 20000;
constexpr std::uint16_t arraySize = 5000;
constexpr std::uint16_t arrayCount = 40;
constexpr std::uint16_t smallerArraySize = 4000;

constexpr std::uint32_t largeFrame = 16U * 1024 * 1024;

std::string request(std::uint16_t operation, std::string_view payload) {
  return wire::frame(wire::request, operation, 1, payload);
}

std::string repeated(const std::string& bytes, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) {
    all += bytes;
  }
  return all;
}

std::string get(PartId part) {
  return request(wire::save, wire::chain({part}) + wire::u16(wire::wholeValue));
}

std::string store(PartId part, std::string_view stored) {
  return request(wire::load, wire::chain({part}) + wire::u16(wire::wholeValue) +
                                 std::string(1, '\0') + std::string(stored));
}

/// A watch of a subtree.
std::string watchOf(const std::string& chain, std::uint32_t number) {
  constexpr char subtree = 1;
  return request(wire::watch, chain + wire::u32(number) + wire::u16(wire::wholeValue) +
                                  std::string(1, subtree) + wire::u32(0));
}

/// Watches that begin and end at once, or after a part of their values was sent.
std::string watchAndUnwatch() {
  std::string all;
  for (std::uint32_t number = 1; number <= 100; ++number) {
    all += watchOf(wire::chain({large}), number);
    all += get(value);
    all += request(wire::unwatch, wire::chain({large}) + wire::u32(number));
  }
  return all;
}

std::string subscribe(const std::string& chain) {
  return request(wire::subscribe, chain + wire::u16(wire::wholeValue));
}

/// What a connection writes over and over, and what it reads.
struct Behaviour {
  std::string written;
  bool readsReplies = true;
  bool readsEvents = true;
  std::size_t writeSize = SIZE_MAX;  ///< bytes of one write
};

/// Reads and discards what a pipe holds; false at its end.
bool drain(const fault::RawPipe& pipe) {
  std::array<char, 65536> bytes;
  ssize_t count = 0;
  do {
    count = ::read(pipe.descriptor(), bytes.data(), bytes.size());
  } while (count > 0);
  return count != 0;
}

class FloodingConnection {
 public:
  FloodingConnection(const std::string& mailbox, const Behaviour& behaviour)
      : behaviour_(behaviour) {
    isOpen_ = client_.connect(mailbox);
  }

  /// Writes and reads without waiting. False at the end of the connection.
  bool proceed() {
    isOpen_ = isOpen_ && write() && (!behaviour_.readsReplies || drain(client_.replies)) &&
              (!behaviour_.readsEvents || drain(client_.events));
    return isOpen_;
  }

  [[nodiscard]] const RawClient& client() const { return client_; }

 private:
  bool write() {
    ssize_t count = 0;
    do {
      const std::string_view rest = std::string_view(behaviour_.written).substr(written_);
      const std::string_view part = rest.substr(0, behaviour_.writeSize);
      count = part.empty() ? -1 : ::write(client_.requests.descriptor(), part.data(), part.size());
      if (count > 0) {
        written_ = (written_ + static_cast<std::size_t>(count)) % behaviour_.written.size();
      }
    } while (count > 0 && behaviour_.writeSize == SIZE_MAX);
    return count >= 0 || errno == EAGAIN || behaviour_.written.empty();
  }

  const Behaviour& behaviour_;
  RawClient client_;
  std::size_t written_ = 0;
  bool isOpen_ = false;
};

/// Keeps `count` connections busy, and replaces those that end. Meanwhile `watchers` read.
void keepBusy(const std::string& mailbox, std::size_t count, const Behaviour& behaviour,
              const std::list<RawClient>& watchers = {}) {
  std::list<FloodingConnection> connections;
  for (;;) {
    for (const RawClient& watcher : watchers) {
      drain(watcher.events);
      drain(watcher.replies);
    }
    while (connections.size() < count) {
      connections.emplace_back(mailbox, behaviour);
    }
    connections.remove_if([](FloodingConnection& connection) { return !connection.proceed(); });
    std::vector<pollfd> waited;
    for (const FloodingConnection& connection : connections) {
      const RawClient& client = connection.client();
      const auto when = [](bool condition, int events) {
        return static_cast<short>(condition ? events : 0);
      };
      waited.push_back(
          {client.requests.descriptor(), when(!behaviour.written.empty(), POLLOUT), 0});
      waited.push_back({client.replies.descriptor(), when(behaviour.readsReplies, POLLIN), 0});
      waited.push_back({client.events.descriptor(), when(behaviour.readsEvents, POLLIN), 0});
    }
    ::poll(waited.data(), waited.size(), 1000);
  }
}

std::function<void(const Target&)> busy(std::size_t count, Behaviour behaviour) {
  return [count, behaviour = std::move(behaviour)](const Target& server) {
    keepBusy(server.mailbox, count, behaviour);
  };
}

/// Hellos without pipes, and bytes that are none.
void sayHello(const Target& server) {
  const auto pipe = fault::RawPipe::open(server.mailbox, O_WRONLY);
  while (pipe.write(wire::hello(wire::newToken()) + std::string(36, '\x9E'))) {
  }
}

void connectAndDisconnect(const Target& server) {
  for (;;) {
    RawClient client;
    static_cast<void>(client.connect(server.mailbox));
  }
}

void sendGarbage(const Target& server) {
  for (;;) {
    RawClient client;
    if (client.connect(server.mailbox)) {
      static_cast<void>(
          client.requests.write(repeated(get(value), 100) + std::string(500, '\xA5')));
    }
  }
}

/// Subscribes to every value of the group, and to one that is then stored again and again.
std::string subscribeToAll() {
  std::string requests = subscribe(wire::chain({value}));
  for (std::uint16_t id = 1; id <= groupSize; ++id) {
    requests += subscribe(wire::chain({group, id}));
  }
  return requests;
}

std::string storeBoth() {
  return repeated(store(value, "1") + store(value, "2"), 100);
}

constexpr unsigned nameCount = 1000;

/// A name that may be a port's; `owner` is the process that began the flood.
std::string pathOfName(pid_t owner, unsigned number) {
  return "/tmp/Model_" + std::to_string(owner) + "_" + std::to_string(number) + ".fifo";
}

/// Makes and removes such names.
void nameFiles(const Target& /*server*/) {
  for (unsigned number = 0;; ++number) {
    ::mkfifo(pathOfName(::getppid(), number % nameCount).c_str(), 0600);
    ::unlink(pathOfName(::getppid(), (number + nameCount / 2) % nameCount).c_str());
  }
}

void removeNames() {
  for (unsigned number = 0; number < nameCount; ++number) {
    ::unlink(pathOfName(::getpid(), number).c_str());
  }
}

/// Has the server read its file all the time.
void reload(const Target& server) {
  while (server.process > 0 && ::kill(server.process, SIGHUP) == 0) {
  }
}

/// A directory whose characters are all replaced in names of parts: one of some hundreds, of which
/// a server may keep the ids.
std::string mountPoint(unsigned number) {
  constexpr std::string_view replaced = "!\"#$%&'()*,;<=>?[]^`{|}~ ";
  std::string path = "/tmp/mounts/";
  for (int digit = 0; digit < 2; ++digit) {
    path += replaced[number % replaced.size()];
    number /= static_cast<unsigned>(replaced.size());
  }
  return path;
}

void mountAndUnmount(const Target& /*server*/) {
  constexpr unsigned mounted = 200;
  ::mkdir("/tmp/mounts", 0700);
  for (unsigned number = 0;; ++number) {
    const std::string path = mountPoint(number);
    ::mkdir(path.c_str(), 0700);
    ::mount("tmpfs", path.c_str(), "tmpfs", 0, "size=4k");
    if (number >= mounted) {
      const std::string old = mountPoint(number - mounted);
      ::umount2(old.c_str(), MNT_DETACH);
      ::rmdir(old.c_str());
    }
  }
}

void storeForIdleSubscribers(const Target& server) {
  std::list<RawClient> idle;
  for (int i = 0; i < 100; ++i) {
    if (idle.emplace_back().connect(server.mailbox)) {
      static_cast<void>(idle.back().requests.write(subscribe(wire::chain({value}))));
    }
  }
  keepBusy(server.mailbox, 4, {storeBoth()});
}

std::vector<Flood> makeFloods() {
  const std::string half =
      wire::frame(wire::request, wire::load, 1, std::string(largeFrame / 2, 'x'), largeFrame);
  return {
      {"pipelined gets", busy(4, {repeated(get(value), 1000)})},
      {"pipelined gets of an array", busy(4, {repeated(get(array), 100)})},
      {"stores", busy(4, {storeBoth()})},
      {"large stores", busy(4, {store(text, std::string(largeFrame - 100, 'x'))})},
      {"subscribing and unsubscribing",
       busy(4, {subscribeToAll() +
                repeated(
                    request(wire::unsubscribe, wire::chain({value}) + wire::u16(wire::wholeValue)),
                    100)})},
      {"hellos", sayHello},
      {"connecting and disconnecting", connectAndDisconnect},
      {"half frames", busy(200, {half + std::string(1, 'x'), true, true})},
      {"large frames byte by byte", busy(100, {half, true, true, 1})},
      {"gets without reading", busy(200, {repeated(get(array), 100), false, false})},
      {"stores for subscribers that do not read", storeForIdleSubscribers},
      {"malformed frames", sendGarbage},
      {"prefetch requests",
       busy(4, {repeated(request(wire::prefetch, wire::chain({arrays}) + wire::u16(1000)), 100)})},
      {"listings of a large node",
       busy(4, {repeated(request(wire::childNames, wire::chain({group})), 100)})},
      {"descriptions", busy(4, {repeated(request(wire::describe, wire::chain({array})), 1000)})},
      {"whole subtrees",
       busy(4, {repeated(request(wire::readTree, wire::chain({}) + std::string(1, '\0')), 100)})},
      {"watches of a large node", busy(4, {watchAndUnwatch()})},
      {"watches that are not read", busy(200, {watchAndUnwatch(), true, false})},
      {"names in the directory of the ports", nameFiles, removeNames},
      {"reloads", reload},
      {"300 silent sessions", busy(300, {"", true, true})},
  };
}

std::string arrayOf(std::size_t count) {
  std::string elements;
  for (std::size_t i = 0; i < count; ++i) {
    elements += (i == 0 ? "" : ",") + std::string(R"({"value":)") + std::to_string(i) + ".0625}";
  }
  return R"("type":"double","elements":[)" + elements + "]";
}

}  // namespace

const std::vector<Flood>& floods() {
  static const std::vector<Flood> all = makeFloods();
  return all;
}

const std::vector<Flood>& structureFloods() {
  constexpr std::uint16_t parts = ChangingServer::changingParts;
  const auto change = [](char value) {
    return store(PartId{ChangingServer::toggle}, std::string(1, value)) +
           request(wire::prefetch, wire::chain({ChangingServer::changing}) + wire::u16(parts));
  };
  const std::string changes = repeated(change('0') + change('1'), 1000);
  // The subscriptions sleep and wake up with each change.
  std::string subscriptions;
  for (std::uint16_t id = 1; id <= parts; ++id) {
    subscriptions += subscribe(wire::chain({ChangingServer::changing, id}));
  }
  static const std::vector<Flood> all{
      {"structure changes", busy(4, {change('1') + subscriptions + changes})},
      {"structure changes and 64 watches", [changes](const Target& server) {
         std::list<RawClient> watchers;
         for (int i = 0; i < 64; ++i) {
           if (watchers.emplace_back().connect(server.mailbox)) {
             static_cast<void>(watchers.back().requests.write(watchOf(wire::chain({}), 1)));
           }
         }
         keepBusy(server.mailbox, 4, {changes}, watchers);
       }}};
  return all;
}

const Flood& mountFlood() {
  static const Flood flood{"mounts", mountAndUnmount};
  return flood;
}

Target liveTarget(const std::string& port, pid_t process) {
  // /host/uptime
  return {"/tmp/" + port + ".fifo", process, wire::chain({1, 3})};
}

std::string floodedTree() {
  const auto entry = [](unsigned id, const std::string& rest) {
    return R"({"id":)" + std::to_string(id) + R"(,"name":"part_)" + std::to_string(id) + R"(",)" +
           rest + "}";
  };
  const auto values = [&](unsigned count) {
    std::string children;
    for (unsigned id = 1; id <= count; ++id) {
      children += (id == 1 ? "" : ",") + entry(id, R"("type":"int32","value":0)");
    }
    return children;
  };
  std::string more;
  for (unsigned id = 1; id <= arrayCount; ++id) {
    more += (id == 1 ? "" : ",") + entry(id, arrayOf(smallerArraySize));
  }
  return R"({"name":"Model_flooded","children":[)" + entry(value, R"("type":"int32","value":0)") +
         "," + entry(array, arrayOf(arraySize)) + "," + entry(text, R"("type":"text","value":"")") +
         "," + entry(group, R"("children":[)" + values(groupSize) + "]") + "," +
         entry(arrays, R"("children":[)" + more + "]") + "]}";
}

}  // namespace attack
