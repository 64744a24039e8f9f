#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "bench/peers/clients.h"
#include "bench/peers/model_client.h"
#include "bench/peers/rows.h"
#include "bench/programs.h"

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long firstUpdateValue = 2'000'000;

double thousandsPerSecond(unsigned long number, Clock::duration time) {
  return static_cast<double>(number) / std::chrono::duration<double>(time).count() / 1e3;
}

std::shared_ptr<Subscriber> subscribeToModel(const std::string& server, unsigned long groups,
                                             ModelClient::Values values) {
  return std::make_shared<Subscriber>(
      [&](Subscriber::Count& count, const std::function<void()>& ready) {
        ModelClient(server, groups).countUpdates(values, count, ready);
      });
}

/// A server with 10,000 parts that changes them as fast as it can, up to a million times a second.
std::unique_ptr<ServerProgram> startChangingServer(const std::string& program) {
  return std::make_unique<ServerProgram>(
      CommandLine{"--synthetic", "10x1000", "--churn", "1000000"}, std::nullopt, program);
}

/// By how much a count grows in some time.
struct Growth {
  unsigned long before;
  unsigned long after;
  Clock::duration time;
};

/// Observes `count` for half a second, once what was pending has arrived.
Growth observe(const std::function<unsigned long()>& count) {
  constexpr int settlingMilliseconds = 100;
  constexpr int arrivingMilliseconds = 5;
  constexpr int countedMilliseconds = 500;
  ::poll(nullptr, 0, settlingMilliseconds);
  // The time begins before the count, so that the updates of earlier changes are not counted
  // as updates of this time.
  const Clock::time_point begin = Clock::now();
  ::poll(nullptr, 0, arrivingMilliseconds);
  const unsigned long before = count();
  ::poll(nullptr, 0, countedMilliseconds);
  const unsigned long after = count();
  return {before, after, Clock::now() - begin};
}

}  // namespace

Sampler updateLatency(Fields& fields) {
  const auto descriptor = static_cast<int>(fields.number());
  Template text(fields.bytes());
  return [descriptor, text, store = makeStore(fields),
          value = firstUpdateValue]() mutable -> std::vector<double> {
    const std::string& expected = text.with(++value);
    discardInput(descriptor);
    std::string written;
    const Clock::time_point begin = Clock::now();
    store(value);
    if (!readUntil(descriptor, written, expected)) {
      throw std::runtime_error("a program ended instead of writing " + expected);
    }
    return {std::chrono::duration<double, std::micro>(Clock::now() - begin).count()};
  };
}

Sampler storeRate(Fields& fields) {
  const unsigned long number = fields.number();
  const auto subscriber = makeSubscriber(fields);
  return [number, subscriber, store = makeStore(fields),
          value = firstUpdateValue]() mutable -> std::vector<double> {
    const unsigned long before = subscriber->count();
    const Clock::time_point begin = Clock::now();
    for (unsigned long i = 0; i < number; ++i) {
      store(++value);
    }
    const Clock::duration time = Clock::now() - begin;
    subscriber->await(before + number);
    return {thousandsPerSecond(number, time)};
  };
}

Sampler burstRate(Fields& fields) {
  const unsigned long number = fields.number();
  const unsigned long sends = fields.number();
  const auto subscriber = makeSubscriber(fields);
  return [number, sends, subscriber, store = makeStore(fields)]() -> std::vector<double> {
    const unsigned long before = subscriber->count();
    const Clock::time_point begin = Clock::now();
    for (unsigned long i = 0; i < sends; ++i) {
      store(i);
    }
    subscriber->await(before + number);
    return {thousandsPerSecond(number, Clock::now() - begin)};
  };
}

Sampler modelStoreRate(Fields& fields) {
  const std::string server = fields.text();
  const auto values = static_cast<ModelClient::Values>(fields.number());
  const auto subscriber = subscribeToModel(server, 1, values);
  return [subscriber, client = std::make_shared<ModelClient>(server, 1),
          round = 0UL]() mutable -> std::vector<double> {
    constexpr unsigned long stores = 20'000;
    static_cast<void>(subscriber->awaitQuiet());
    const unsigned long before = subscriber->count();
    const Clock::time_point begin = Clock::now();
    for (unsigned long i = 0; i < stores; ++i) {
      // In each round the parts get another value.
      round += i % ModelClient::partsPerGroup == 0 ? 1 : 0;
      client->store(i, round);
    }
    const Clock::duration time = Clock::now() - begin;
    const Clock::time_point last = subscriber->awaitQuiet();
    return {thousandsPerSecond(stores, time),
            thousandsPerSecond(subscriber->count() - before, last - begin)};
  };
}

Sampler modelChangeRate(Fields& fields) {
  const auto values = static_cast<ModelClient::Values>(fields.number());
  return [values, program = fields.text()]() -> std::vector<double> {
    const auto server = startChangingServer(program);
    const auto subscriber = subscribeToModel(server->name(), 10, values);
    // Updates that became pending during the subscription arrive first.
    subscriber->await(1);
    const Growth growth = observe([&] { return subscriber->count(); });
    return {thousandsPerSecond(growth.after - growth.before, growth.time)};
  };
}

Sampler printedChangeRate(Fields& fields) {
  std::string program = fields.text();
  return [program = std::move(program), words = fields.rest()]() -> std::vector<double> {
    const auto server = startChangingServer(program);
    std::vector<std::string> command = words;
    command.insert(command.end(), {server->name(), "/"});
    const PrintingProgram tool(command);
    tool.awaitOutput();
    const Growth growth = observe([&] { return tool.output().size(); });
    return {thousandsPerSecond(tool.output().lines(growth.before, growth.after), growth.time)};
  };
}

}  // namespace bench::peers
