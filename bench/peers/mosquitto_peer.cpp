#include <unistd.h>

#include "bench/peers/counting_child.h"
#include "bench/peers/mqtt_session.h"
#include "bench/peers/peer.h"

namespace bench::peers {

namespace {

/// Topics are the values' paths without the slash in front, and retained.
std::string topicOf(const Shape& shape, std::size_t number) {
  return pathOf(shape, number).substr(1);
}

class Mosquitto : public Peer {
 public:
  Mosquitto(const Directory& directory, const Shape& shape)
      : shape_(shape),
        socket_(directory.path("mosquitto")),
        server_({"mosquitto", "-c",
                 directory.write("mosquitto.conf", "listener 0 " + socket_ +
                                                       "\n"
                                                       "allow_anonymous true\n"
                                                       "persistence false\n"
                                                       "log_dest none\n"
                                                       "max_queued_messages 0\n"
                                                       "user root\n")}) {
    awaitSocket(socket_);
    MqttSession session(socket_, "filling");
    for (std::size_t i = 0; i < shape_.total(); ++i) {
      session.send(MqttSession::publication(topicOf(shape_, i), "0", true));
    }
    session.awaitTaken();
  }

  [[nodiscard]] std::string name() const override { return "Mosquitto"; }

  [[nodiscard]] Task read() const override {
    return {"mosquitto_sub -C 1", client("mosquitto_sub", {"-t", topicOf(shape_, 0), "-C", "1"}),
            1};
  }

  [[nodiscard]] Task write(int value) const override {
    return {"mosquitto_pub -r",
            client("mosquitto_pub", {"-t", topicOf(shape_, 0), "-m", std::to_string(value), "-r"}),
            0};
  }

  [[nodiscard]] std::vector<Task> list() const override {
    return {{"mosquitto_sub -v -t '#'",
             client("mosquitto_sub", {"-v", "-t", "#", "-C", std::to_string(shape_.total())}),
             shape_.total()}};
  }

  [[nodiscard]] Servers servers() const override { return {"mosquitto", {server_.pid()}}; }

  [[nodiscard]] std::unique_ptr<Watcher> watch() override {
    auto tool =
        std::make_unique<Running>(client("mosquitto_sub", {"-v", "-t", topicOf(shape_, 0)}));
    tool->await("\n");
    auto session = std::make_shared<MqttSession>(socket_, "storing");
    return std::make_unique<Watcher>(
        Watcher{"retained topic, shown by mosquitto_sub", std::move(tool),
                [session, topic = topicOf(shape_, 0)](int value) {
                  session->send(MqttSession::publication(topic, std::to_string(value), true));
                },
                [](int value) { return ' ' + std::to_string(value) + '\n'; }});
  }

  [[nodiscard]] std::vector<Rate> answeredStores() override {
    auto subscriber = subscribe();
    auto session = std::make_shared<MqttSession>(socket_, "answered");
    return {{"QoS 1, a client that counts bytes", [this, subscriber, session] {
               const unsigned long before = subscriber->count();
               const double rate = repetitionRate(10'000, [&](unsigned long i) {
                 session->send(publication(static_cast<std::uint16_t>(1 + i)));
                 session->awaitAcknowledgement();
               });
               subscriber->await(before + 10'000);
               return rate;
             }}};
  }

  [[nodiscard]] std::vector<Rate> streams() override {
    auto subscriber = subscribe();
    auto session = std::make_shared<MqttSession>(socket_, "streaming");
    std::string thousand;
    for (int i = 0; i < 1000; ++i) {
      thousand += publication(0);
    }
    return {{"QoS 0, a client that counts bytes", [subscriber, session, thousand] {
               return arrivalRate(*subscriber, 100'000, [&] {
                 for (int i = 0; i < 100; ++i) {
                   session->send(thousand);
                 }
               });
             }}};
  }

 private:
  [[nodiscard]] std::string publication(std::uint16_t packetId) const {
    return MqttSession::publication("changes", pathOf(shape_, 0) + " 1234567", false, packetId);
  }

  /// Takes the least time that a subscriber can: all messages have the same length.
  [[nodiscard]] std::shared_ptr<CountingChild> subscribe() const {
    const std::size_t size = publication(0).size();
    return std::make_shared<CountingChild>(
        [this, size](CountingChild::Count& count, const std::function<void()>& ready) {
          MqttSession session(socket_, "subscriber" + std::to_string(::getpid()));
          session.subscribe("changes");
          ready();
          for (std::size_t bytes = 0;;) {
            bytes += session.stream().receive().size();
            count.store(bytes / size);
          }
        });
  }

  [[nodiscard]] Words client(const std::string& program, const Words& rest) const {
    Words words{program, "--unix", socket_};
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
  }

  Shape shape_;
  std::string socket_;
  Running server_;
};

}  // namespace

std::unique_ptr<Peer> serveMosquitto(const Directory& directory, const Shape& shape) {
  return std::make_unique<Mosquitto>(directory, shape);
}

}  // namespace bench::peers
