#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/programs.h"
#include "bench/ratio_table.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"

// The cost of serving a tree: the time of a change that the server's program makes, while clients
// have more and more of the tree cached or subscribed; and the start time and memory of trees of
// several sizes.

namespace {

using bench::quantile;
using Clock = std::chrono::steady_clock;

void printTitle(const char* unit) {
  std::printf("\n%-46s %9s %9s %9s %8s %7s %7s\n", unit, "median", "p10", "p90", "samples",
              "target", "ratio");
}

/// A `target` of 0 means that there is none.
void printRow(const std::string& name, const std::vector<double>& values, double target) {
  const double median = quantile(values, 0.5);
  std::printf("%-46s %9.1f %9.1f %9.1f %8zu", name.c_str(), median, quantile(values, 0.1),
              quantile(values, 0.9), values.size());
  if (target > 0) {
    std::printf(" %7.0f %7.2f", target, median / target);
  }
  std::printf("\n");
}

constexpr std::size_t partCount = 1000;

/// A server of parts 0 to `partCount` - 1 in this process, which changes their values while
/// another thread dispatches.
class ChangingServer {
 public:
  explicit ChangingServer(const std::string& name) {
    for (std::size_t i = 0; i < partCount; ++i) {
      auto& part = parts_.emplace_back(static_cast<ModelSrv::ModelPartId>(i), "item");
      require(root_.add(&part));
    }
    require(root_.startAsServer(name));
    dispatcher_ = std::thread([this] {
      while (!stopping_.load()) {
        static_cast<void>(manager_.receiveEvent(-1));
      }
    });
  }
  ~ChangingServer() {
    stopping_.store(true);
    manager_.wake();
    dispatcher_.join();
    root_.stop(true);
  }
  ChangingServer(const ChangingServer&) = delete;
  ChangingServer& operator=(const ChangingServer&) = delete;

  /// Changes the value of each part; returns the nanoseconds for one change.
  double changeAll() {
    ++value_;
    const auto begin = Clock::now();
    for (auto& part : parts_) {
      require(part.setValue(value_));
    }
    return since(begin) / static_cast<double>(partCount);
  }

  /// Changes the value of the first part; returns the nanoseconds, including the overhead of
  /// the clock.
  double changeFirst() {
    ++value_;
    const auto begin = Clock::now();
    require(parts_.front().setValue(value_));
    return since(begin);
  }

 private:
  static double since(Clock::time_point begin) {
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
  }
  static void require(ModelSrv::ModelRes result) {
    if (result != ModelSrv::ModelRes_Success) {
      throw std::runtime_error(ModelSrv::describe(result));
    }
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::deque<ModelSrv::ValuePart<std::int32_t>> parts_;
  std::int32_t value_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread dispatcher_;
};

/// A connected client in a process of its own, which performs an action on each request.
class ClientProcess {
 public:
  using Action = std::function<bool(ModelSrv::ModelRoot&, std::deque<ModelSrv::ModelPart>&)>;

  /// Created before the server, so that no thread is running when the process forks.
  ClientProcess(std::string name, Action action) {
    child_ =
        std::make_unique<bench::Child>([this, name = std::move(name), action = std::move(action)] {
          ::close(requests_.writing);
          serveRequests(name, action);
        });
  }
  ~ClientProcess() {
    for (const int descriptor :
         {requests_.reading, requests_.writing, replies_.reading, replies_.writing}) {
      ::close(descriptor);
    }
  }
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;

  /// Has the client connect, the first time, and perform its action; returns when that is done.
  void act() {
    char status = 'r';
    if (::write(requests_.writing, &status, 1) != 1 || ::read(replies_.reading, &status, 1) != 1 ||
        status != 'y') {
      throw std::runtime_error("the client failed");
    }
  }

 private:
  void serveRequests(const std::string& name, const Action& action) {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
    ModelSrv::ModelRoot root(&manager);
    std::deque<ModelSrv::ModelPart> parts;
    char status = '\0';
    bool isGood = ::read(requests_.reading, &status, 1) == 1;
    for (std::size_t i = 0; isGood && i < partCount; ++i) {
      auto& part = parts.emplace_back(static_cast<ModelSrv::ModelPartId>(i));
      isGood = root.add(&part) == ModelSrv::ModelRes_Success;
    }
    isGood = isGood && root.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop,
                                          EvtSrv::ConBehave_Default) == ModelSrv::ModelRes_Success;
    do {
      status = isGood && action(root, parts) ? 'y' : 'n';
      isGood =
          ::write(replies_.writing, &status, 1) == 1 && ::read(requests_.reading, &status, 1) == 1;
    } while (isGood);
  }

  bench::Pipe requests_;
  bench::Pipe replies_;
  std::unique_ptr<bench::Child> child_;
};

/// Requests every value; most of them come in a few prefetch replies.
bool readAll(ModelSrv::ModelRoot& /*root*/, std::deque<ModelSrv::ModelPart>& parts) {
  return std::all_of(parts.begin(), parts.end(), [](ModelSrv::ModelPart& part) {
    std::ostringstream text;
    return part.save(text, ModelSrv::ModelPartIndex_All) == ModelSrv::ModelRes_Success;
  });
}

bool readFirst(ModelSrv::ModelRoot& /*root*/, std::deque<ModelSrv::ModelPart>& parts) {
  std::ostringstream text;
  return parts.front().save(text, ModelSrv::ModelPartIndex_All) == ModelSrv::ModelRes_Success;
}

bool subscribeAll(ModelSrv::ModelRoot& root, std::deque<ModelSrv::ModelPart>& parts) {
  return std::all_of(parts.begin(), parts.end(), [&root](ModelSrv::ModelPart& part) {
    return part.subscribeToServer(&root, 0, nullptr, ModelSrv::ModelPartIndex_All) ==
           ModelSrv::ModelRes_Success;
  });
}

/// Subscribes to the first part, the first time, and dispatches every pending update.
ClientProcess::Action takeUpdatesOfFirst() {
  return [subscribed = false](ModelSrv::ModelRoot& root,
                              std::deque<ModelSrv::ModelPart>& parts) mutable {
    subscribed = subscribed ||
                 parts.front().subscribeToServer(&root, 0, nullptr, ModelSrv::ModelPartIndex_All) ==
                     ModelSrv::ModelRes_Success;
    while (root.manager()->receiveEvent(0) == EvtSrv::EvtRes_Success) {
    }
    return subscribed;
  };
}

std::vector<double> sample(std::size_t count, const std::function<double()>& measure) {
  std::vector<double> values;
  for (std::size_t i = 0; i < count; ++i) {
    values.push_back(measure());
  }
  return values;
}

void measureChanges() {
  constexpr double target = 1000;
  constexpr std::size_t many = 300;
  const std::string name = "Model_bench" + std::to_string(::getpid()) + "_changed";
  const auto nothing = [](ModelSrv::ModelRoot&, auto&) { return true; };
  ClientProcess idle(name, nothing);
  ClientProcess cachesAll(name, readAll);
  ClientProcess cachesFirst(name, readFirst);
  ClientProcess takesUpdates(name, takeUpdatesOfFirst());
  ClientProcess takesNothing(name, subscribeAll);
  ChangingServer server(name);
  printTitle("nanoseconds a change");
  const auto printChanges = [&](const char* situation) {
    printRow(situation, sample(many, [&server] { return server.changeAll(); }), target);
  };
  printChanges("no client connected");
  idle.act();
  printChanges("one client connected, nothing cached");
  printRow("one with all values cached, changes of all",
           sample(many,
                  [&] {
                    cachesAll.act();
                    return server.changeAll();
                  }),
           target);
  const auto changeAfter = [&](ClientProcess& client) {
    return sample(many, [&] {
      client.act();
      return server.changeFirst();
    });
  };
  printRow("one with the value cached, a single change", changeAfter(cachesFirst), target);
  // The subscriber is notified at once, with a write that wakes it up.
  printRow("one subscriber that reads, a single change", changeAfter(takesUpdates), 0);
  takesNothing.act();
  // Once the pipe is full, the updates are pending until it has space.
  printRow("one subscriber to all that does not read",
           sample(many, [&server] { return server.changeAll(); }), 0);
}

/// A tree description of `parts` values in nodes of at most 10,000, as an unnamed file.
class DescriptionFile {
 public:
  explicit DescriptionFile(std::size_t parts) : file_(::memfd_create("tree", MFD_CLOEXEC)) {
    std::string text = R"({"children": [)";
    for (std::size_t part = 0; part < parts; ++part) {
      constexpr std::size_t siblings = 10'000;
      if (part % siblings == 0) {
        text += part == 0 ? "" : "]},\n";
        text += R"({"name": "group", "children": [)";
      }
      text += part % siblings == 0 ? "\n" : ",\n";
      text += R"(    {"name": "item_)" + std::to_string(part) + R"(", "type": "int32", "value": )" +
              std::to_string(part) + "}";
    }
    text += "]}]}";
    if (file_ < 0 ||
        ::write(file_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("cannot write a tree description");
    }
  }
  ~DescriptionFile() { ::close(file_); }
  DescriptionFile(const DescriptionFile&) = delete;
  DescriptionFile& operator=(const DescriptionFile&) = delete;

  [[nodiscard]] std::string path() const {
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(file_);
  }

 private:
  int file_;
};

/// The start time and memory of modelsrvd with a tree.
struct TreeCost {
  std::vector<double> milliseconds;
  std::vector<double> peak;
  std::vector<double> residentAfterListing;
};

TreeCost measureTree(std::size_t parts, unsigned runs) {
  const DescriptionFile file(parts);
  TreeCost cost;
  for (unsigned run = 0; run < runs; ++run) {
    const auto begin = Clock::now();
    const bench::ServerProgram server({"--tree", file.path()});
    cost.milliseconds.push_back(
        std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    cost.peak.push_back(server.peakBytes());
    bench::runShell("cd " + server.name() + ";ls -lr", parts);
    cost.residentAfterListing.push_back(server.residentBytes());
  }
  return cost;
}

void measureTrees() {
  constexpr double bytesTarget = 300;
  const TreeCost start = measureTree(1, 9);
  printTitle("modelsrvd, above its start with a single part");
  printRow("milliseconds, 1 part", start.milliseconds, 0);
  for (const std::size_t parts : {1'000U, 10'000U, 100'000U}) {
    const TreeCost cost = measureTree(parts, parts > 10'000 ? 5 : 9);
    const auto perPart = [parts](std::vector<double> values, const std::vector<double>& single) {
      const double median = quantile(single, 0.5);
      for (double& value : values) {
        value = (value - median) / static_cast<double>(parts - 1);
      }
      return values;
    };
    const std::string size = ", " + std::to_string(parts) + " parts";
    auto microseconds = perPart(cost.milliseconds, start.milliseconds);
    std::transform(microseconds.begin(), microseconds.end(), microseconds.begin(),
                   [](double milliseconds) { return milliseconds * 1e3; });
    printRow("start time, microseconds a part" + size, microseconds, 0);
    // With fewer parts, whole memory pages distort the figure.
    const double target = parts < 10'000 ? 0 : bytesTarget;
    printRow("peak bytes a part" + size, perPart(cost.peak, start.peak), target);
    printRow("bytes a part, after ls -lr" + size,
             perPart(cost.residentAfterListing, start.residentAfterListing), target);
  }
}

void measureShell() {
  constexpr double kilobytesTarget = 6 * 1024;
  const bench::ServerProgram server({"--synthetic", "1x1"});
  const std::string commands = "cd " + server.name() + "; get group_000/item_0000";
  printTitle("kilobytes");
  printRow("treescope -c \"cd X; get y\", peak",
           sample(9, [&] { return bench::runShell(commands, 1).peakBytes / 1024; }),
           kilobytesTarget);
}

}  // namespace

int main() {
  try {
    // The shell first: the peak of a forked process begins at the size of its parent.
    measureShell();
    measureTrees();
    measureChanges();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "server_bench: %s\n", error.what());
    return 1;
  }
}
