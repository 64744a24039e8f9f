#include <poll.h>
#include <unistd.h>

#include <chrono>

#include "bench/peers/counting_child.h"
#include "bench/peers/own_client.h"
#include "bench/peers/peer.h"

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

/// So many in that time, in thousands a second.
double thousands(unsigned long count, Clock::duration time) {
  return static_cast<double>(count) / std::chrono::duration<double>(time).count() / 1e3;
}

/// A server whose values change a million times a second, as far as it can.
class ChangingServer {
 public:
  ChangingServer()
      : server_({"modelsrvd", "--name", name_, "--synthetic", "10x1000", "--churn", "1000000"}) {
    server_.await("ready");
  }

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_ = "Model_changing" + std::to_string(::getpid());
  Running server_;
};

class Own : public Peer {
 public:
  Own(const Directory& directory, const Shape& shape)
      : shape_(shape),
        saved_(directory.path("saved")),
        server_({"modelsrvd", "--name", name_, "--synthetic",
                 std::to_string(shape.groups) + 'x' + std::to_string(Shape::valuesPerGroup)}) {
    server_.await("ready");
  }

  [[nodiscard]] std::string name() const override { return "treescope"; }

  [[nodiscard]] Task read() const override {
    return {"treescope -c \"cd S;get PATH\"", shell("get " + pathOf(shape_, 0)), 1};
  }

  [[nodiscard]] Task write(int value) const override {
    return {"treescope -c \"cd S;set N PATH\"",
            shell("set " + std::to_string(value) + ' ' + pathOf(shape_, 0)), 1};
  }

  [[nodiscard]] std::vector<Task> list() const override {
    return {{"treescope -c \"cd S;ls -lr\"", shell("ls -lr"), shape_.total()},
            {"treescope -c \"cd S;to FILE\"", shell("to " + saved_), shape_.total()}};
  }

  [[nodiscard]] Servers servers() const override { return {"modelsrvd", {server_.pid()}}; }

  [[nodiscard]] std::unique_ptr<Watcher> watch() override {
    auto shell = std::make_unique<Running>(Words{"treescope"}, Running::Input::typed);
    for (const std::string& line : {"cd " + name_, "eu " + pathOf(shape_, 0)}) {
      shell->await("$ ");
      shell->clear();
      shell->type(line);
    }
    shell->await("$ ");
    auto client = std::make_shared<OwnClient>(name_, Shape{1});
    return std::make_unique<Watcher>(
        Watcher{"stored by a client, shown by treescope (eu)", std::move(shell),
                [client](int value) { client->store(0, value); },
                [path = pathOf(shape_, 0)](int /*value*/) { return path; }});
  }

  [[nodiscard]] std::vector<Rate> answeredStores() override;
  [[nodiscard]] std::vector<Rate> streams() override;

 private:
  [[nodiscard]] Words shell(const std::string& command) const {
    return {"treescope", "-c", "cd " + name_ + ';' + command};
  }

  Shape shape_;
  std::string name_ = "Model_peers" + std::to_string(::getpid());
  std::string saved_;
  Running server_;
};

/// Takes the updates of all parts of `server`.
std::shared_ptr<CountingChild> subscribe(const std::string& server, const Shape& shape,
                                         bool values) {
  return std::make_shared<CountingChild>(
      [&](CountingChild::Count& count, const std::function<void()>& ready) {
        OwnClient(server, shape).take(values, count, ready);
      });
}

std::vector<Rate> Own::answeredStores() {
  auto subscriber = subscribe(name_, Shape{1}, true);
  auto client = std::make_shared<OwnClient>(name_, Shape{1});
  auto arrivedRate = std::make_shared<double>(0);
  const auto run = [subscriber, client, arrivedRate, round = 0]() mutable {
    constexpr unsigned long stores = 20'000;
    static_cast<void>(subscriber->awaitQuiet());
    const unsigned long before = subscriber->count();
    const Clock::time_point begin = Clock::now();
    const double rate = repetitionRate(stores, [&](unsigned long i) {
      // Another value for each part, each time round.
      round += i % Shape::valuesPerGroup == 0 ? 1 : 0;
      client->store(i, round);
    });
    const Clock::time_point last = subscriber->awaitQuiet();
    *arrivedRate = thousands(subscriber->count() - before, last - begin);
    return rate;
  };
  return {{"stores in 1,000 parts, with such a client", run,
           "the updates of the same stores that arrive, with values",
           [arrivedRate] { return *arrivedRate; }}};
}

/// Updates of a server that makes as many as it can, and runs for no longer.
double streamRate(bool values) {
  constexpr int settlingMilliseconds = 100;
  constexpr int arrivingMilliseconds = 5;
  constexpr int countedMilliseconds = 500;
  const ChangingServer server;
  const auto subscriber = subscribe(server.name(), Shape{10}, values);
  // What has gathered while it subscribed.
  subscriber->await(1);
  ::poll(nullptr, 0, settlingMilliseconds);
  // What was changed before the time is taken arrives before the count is.
  const Clock::time_point begin = Clock::now();
  ::poll(nullptr, 0, arrivingMilliseconds);
  const unsigned long before = subscriber->count();
  ::poll(nullptr, 0, countedMilliseconds);
  const unsigned long after = subscriber->count();
  return thousands(after - before, Clock::now() - begin);
}

std::vector<Rate> Own::streams() {
  return {{"at most 1,000 thousand/s of 10,000 parts are made; a client that counts",
           [] { return streamRate(false); }},
          {"the same, a client that asks for the values", [] { return streamRate(true); }}};
}

}  // namespace

std::unique_ptr<Peer> serveOwn(const Directory& directory, const Shape& shape) {
  return std::make_unique<Own>(directory, shape);
}

}  // namespace bench::peers
