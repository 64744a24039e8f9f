#include "bench/peers/counting_child.h"
#include "bench/peers/peer.h"
#include "bench/peers/unix_stream.h"

namespace bench::peers {

namespace {

class Redis : public Peer {
 public:
  Redis(const Directory& directory, const Shape& shape)
      : shape_(shape),
        socket_(directory.path("redis")),
        server_({"redis-server", "--port", "0", "--unixsocket", socket_, "--save", "",
                 "--appendonly", "no", "--loglevel", "warning", "--daemonize", "no"}) {
    awaitSocket(socket_);
    UnixStream stream(socket_);
    for (std::size_t i = 0; i < shape_.total(); i += Shape::valuesPerGroup) {
      std::string commands;
      for (std::size_t j = i; j < i + Shape::valuesPerGroup; ++j) {
        commands += "HSET tree " + pathOf(shape_, j) + " 0\r\n";
      }
      stream.send(commands);
      stream.skip(Shape::valuesPerGroup * std::string_view(":1\r\n").size());
    }
  }

  [[nodiscard]] std::string name() const override { return "Redis"; }

  [[nodiscard]] Task read() const override {
    return {"redis-cli HGET", client({"HGET", "tree", pathOf(shape_, 0)}), 1};
  }

  [[nodiscard]] Task write(int value) const override {
    return {"redis-cli HSET", client({"HSET", "tree", pathOf(shape_, 0), std::to_string(value)}),
            1};
  }

  [[nodiscard]] std::vector<Task> list() const override {
    return {{"redis-cli HGETALL, a flat hash", client({"HGETALL", "tree"}), 2 * shape_.total()}};
  }

  [[nodiscard]] Servers servers() const override { return {"redis-server", {server_.pid()}}; }

  [[nodiscard]] std::unique_ptr<Watcher> watch() override {
    auto tool = std::make_unique<Running>(client({"SUBSCRIBE", pathOf(shape_, 0)}));
    tool->await("1\n");
    auto stream = std::make_shared<UnixStream>(socket_);
    return std::make_unique<Watcher>(
        Watcher{"PUBLISH, shown by redis-cli SUBSCRIBE", std::move(tool),
                [stream, path = pathOf(shape_, 0)](int value) {
                  stream->send("PUBLISH " + path + " v" + std::to_string(value) + "\r\n");
                  stream->skip(std::string_view(":1\r\n").size());
                },
                [](int value) { return 'v' + std::to_string(value) + '\n'; }});
  }

  [[nodiscard]] std::vector<Rate> answeredStores() override {
    auto subscriber = subscribe();
    auto stream = std::make_shared<UnixStream>(socket_);
    return {{"PUBLISH, a client that counts bytes", [this, subscriber, stream] {
               const unsigned long before = subscriber->count();
               const double rate = repetitionRate(20'000, [&](unsigned long) {
                 stream->send(publication());
                 stream->skip(std::string_view(":1\r\n").size());
               });
               subscriber->await(before + 20'000);
               return rate;
             }}};
  }

  [[nodiscard]] std::vector<Rate> streams() override {
    auto subscriber = subscribe();
    auto stream = std::make_shared<UnixStream>(socket_);
    stream->send("CLIENT REPLY OFF\r\n");
    std::string thousand;
    for (int i = 0; i < 1000; ++i) {
      thousand += publication();
    }
    return {{"PUBLISH in a pipeline, a client that counts bytes", [subscriber, stream, thousand] {
               return arrivalRate(*subscriber, 200'000, [&] {
                 for (int i = 0; i < 200; ++i) {
                   stream->send(thousand);
                 }
               });
             }}};
  }

 private:
  [[nodiscard]] std::string publication() const {
    return "PUBLISH changes \"" + pathOf(shape_, 0) + " 1234567\"\r\n";
  }

  /// Takes the least time that a subscriber can: all messages have the same length.
  [[nodiscard]] std::shared_ptr<CountingChild> subscribe() const {
    const std::string payload = pathOf(shape_, 0) + " 1234567";
    const std::string message = "*3\r\n$7\r\nmessage\r\n$7\r\nchanges\r\n$" +
                                std::to_string(payload.size()) + "\r\n" + payload + "\r\n";
    return std::make_shared<CountingChild>(
        [this, &message](CountingChild::Count& count, const std::function<void()>& ready) {
          UnixStream stream(socket_);
          stream.send("SUBSCRIBE changes\r\n");
          stream.skip(std::string_view("*3\r\n$9\r\nsubscribe\r\n$7\r\nchanges\r\n:1\r\n").size());
          ready();
          for (std::size_t bytes = 0;;) {
            bytes += stream.receive().size();
            count.store(bytes / message.size());
          }
        });
  }

  [[nodiscard]] Words client(const Words& command) const {
    Words words{"redis-cli", "-s", socket_};
    words.insert(words.end(), command.begin(), command.end());
    return words;
  }

  Shape shape_;
  std::string socket_;
  Running server_;
};

}  // namespace

std::unique_ptr<Peer> serveRedis(const Directory& directory, const Shape& shape) {
  return std::make_unique<Redis>(directory, shape);
}

}  // namespace bench::peers
