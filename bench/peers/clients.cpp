#include "bench/peers/clients.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "bench/peers/bus_session.h"
#include "bench/peers/model_client.h"

namespace bench::peers {

namespace {

/// A connection to the server of a Unix socket.
class UnixStream {
 public:
  explicit UnixStream(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), buffer_(65536, '\0') {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      ::close(socket_);
      throw std::runtime_error("cannot connect to " + path);
    }
  }
  ~UnixStream() { ::close(socket_); }
  UnixStream(const UnixStream&) = delete;
  UnixStream& operator=(const UnixStream&) = delete;

  void send(std::string_view bytes) const {
    while (!bytes.empty()) {
      bytes.remove_prefix(check(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL)));
    }
  }

  /// Waits for bytes and reads up to `limit` of them; returns their number, at least 1.
  std::size_t receive(std::size_t limit) {
    return check(::recv(socket_, buffer_.data(), std::min(limit, buffer_.size()), 0));
  }
  std::size_t receive() { return receive(buffer_.size()); }

  /// Reads and discards exactly `count` bytes.
  void skip(std::size_t count) {
    while (count > 0) {
      count -= receive(count);
    }
  }

 private:
  static std::size_t check(ssize_t count) {
    if (count <= 0) {
      throw std::runtime_error("a server closed the connection");
    }
    return static_cast<std::size_t>(count);
  }

  int socket_;
  std::string buffer_;
};

/// Connects, sends `opening` and waits for a reply of `reply` bytes.
std::shared_ptr<UnixStream> openStream(const std::string& socket, const std::string& opening,
                                       std::size_t reply) {
  auto stream = std::make_shared<UnixStream>(socket);
  stream->send(opening);
  stream->skip(reply);
  return stream;
}

Store streamStore(Fields& fields) {
  const std::string socket = fields.text();
  const std::string opening = fields.bytes();
  const auto stream = openStream(socket, opening, fields.number());
  Template message(fields.bytes());
  return [stream, message, reply = fields.number()](unsigned long value) mutable {
    stream->send(message.with(value));
    stream->skip(reply);
  };
}

/// All updates have the same length, so counting bytes takes a subscriber the least time.
Subscriber::Body streamSubscriber(Fields& fields) {
  const std::string socket = fields.text();
  const std::string opening = fields.bytes();
  const std::size_t reply = fields.number();
  const std::size_t size = fields.number();
  return [=](Subscriber::Count& count, const std::function<void()>& ready) {
    const auto stream = openStream(socket, opening, reply);
    ready();
    for (std::size_t bytes = 0;;) {
      bytes += stream->receive();
      count.store(bytes / size);
    }
  };
}

std::shared_ptr<sd_bus> connectToBus() {
  return {openBus(), sd_bus_flush_close_unref};
}

Store busStore() {
  return [bus = connectToBus()](unsigned long value) {
    check(sd_bus_set_property(bus.get(), busService, "/group_000", busInterface, "item_0000",
                              nullptr, "i", static_cast<std::int32_t>(value)),
          "set property");
  };
}

Store busSignals(Fields& fields) {
  return [bus = connectToBus(), number = fields.number()](unsigned long /*value*/) {
    check(sd_bus_call_method(bus.get(), busService, busBurstPath, busBurstInterface, "Burst",
                             nullptr, nullptr, "u", static_cast<std::uint32_t>(number)),
          "Burst");
  };
}

int countOne(sd_bus_message* /*message*/, void* count, sd_bus_error* /*error*/) {
  static_cast<Subscriber::Count*>(count)->fetch_add(1);
  return 0;
}

/// Counts signals without reading their content.
Subscriber::Body busSubscriber(Fields& fields) {
  const std::string path = fields.text();
  const std::string interface = fields.text();
  const std::string signal = fields.text();
  return [=](Subscriber::Count& count, const std::function<void()>& ready) {
    const auto bus = connectToBus();
    check(sd_bus_match_signal(bus.get(), nullptr, busService, path.c_str(), interface.c_str(),
                              signal.c_str(), countOne, &count),
          "match");
    ready();
    dispatchBus(bus.get());
  };
}

Store modelStore(Fields& fields) {
  return [client = std::make_shared<ModelClient>(fields.text(), 1)](unsigned long value) {
    client->store(0, value);
  };
}

Subscriber::Body modelSubscriber(Fields& fields) {
  const std::string server = fields.text();
  const unsigned long groups = fields.number();
  const bool values = fields.number() != 0;
  return [=](Subscriber::Count& count, const std::function<void()>& ready) {
    ModelClient(server, groups)
        .countUpdates(values ? ModelClient::Values::requested : ModelClient::Values::none, count,
                      ready);
  };
}

Subscriber::Body subscriberBody(Fields& fields) {
  const std::string kind = fields.text();
  if (kind == "stream") {
    return streamSubscriber(fields);
  }
  if (kind == "bus") {
    return busSubscriber(fields);
  }
  if (kind == "model") {
    return modelSubscriber(fields);
  }
  throw std::runtime_error("no such subscriber: " + kind);
}

}  // namespace

Store makeStore(Fields& fields) {
  const std::string kind = fields.text();
  if (kind == "stream") {
    return streamStore(fields);
  }
  if (kind == "bus") {
    return busStore();
  }
  if (kind == "bus-signals") {
    return busSignals(fields);
  }
  if (kind == "model") {
    return modelStore(fields);
  }
  throw std::runtime_error("no such client: " + kind);
}

std::shared_ptr<Subscriber> makeSubscriber(Fields& fields) {
  return std::make_shared<Subscriber>(subscriberBody(fields));
}

}  // namespace bench::peers
