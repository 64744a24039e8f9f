#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
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
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"

// What serving a tree costs the server: a change that its own program makes, beside
// clients that hold and want more and more of the tree; and the time and the memory
// that trees of several sizes take.

namespace {

using Clock = std::chrono::steady_clock;

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(values.size() - 1)))];
}

void printTitle(const char* unit) {
  std::printf("\n%-46s %9s %9s %9s %8s %7s %7s\n", unit, "median", "p10", "p90", "samples",
              "target", "ratio");
}

/// `target` 0: none.
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

/// A program that serves parts 0 to `partCount` - 1 and changes their values while
/// another thread of it dispatches.
class ChangingServer {
 public:
  explicit ChangingServer(const std::string& name) {
    for (std::size_t i = 0; i < partCount; ++i) {
      auto& part = parts_.emplace_back(static_cast<ModelSrv::ModelPartId>(i), "item");
      require(root_.add(&part));
    }
    require(root_.startAsServer(name));
    pump_ = std::thread([this] {
      while (!ending_.load()) {
        static_cast<void>(manager_.receiveEvent(-1));
      }
    });
  }
  ~ChangingServer() {
    ending_.store(true);
    manager_.wake();
    pump_.join();
    root_.stop(true);
  }
  ChangingServer(const ChangingServer&) = delete;
  ChangingServer& operator=(const ChangingServer&) = delete;

  /// Gives each part another value; the nanoseconds that one change took.
  double changeAll() {
    ++value_;
    const auto begin = Clock::now();
    for (auto& part : parts_) {
      require(part.setValue(value_));
    }
    return since(begin) / static_cast<double>(partCount);
  }

  /// Gives the first part another value; the nanoseconds that it took, the clock's
  /// own included.
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
  std::atomic<bool> ending_{false};
  std::thread pump_;
};

/// A connected client in a process of its own, which does one thing whenever it is
/// told to.
class ClientProcess {
 public:
  using Deed = std::function<bool(ModelSrv::ModelRoot&, std::deque<ModelSrv::ModelPart>&)>;

  /// Made before the server, so that the child has no thread but its own.
  ClientProcess(std::string name, Deed deed) {
    if (::pipe2(orders_.data(), O_CLOEXEC) != 0 || ::pipe2(answers_.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe2");
    }
    child_ = std::make_unique<bench::Child>([this, name = std::move(name), deed = std::move(deed)] {
      ::close(orders_[1]);
      obey(name, deed);
    });
  }
  ~ClientProcess() {
    for (const int descriptor : {orders_[0], orders_[1], answers_[0], answers_[1]}) {
      ::close(descriptor);
    }
  }
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;

  /// Returns when the client has connected, the first time, and has done its deed.
  void act() {
    char word = 'd';
    if (::write(orders_[1], &word, 1) != 1 || ::read(answers_[0], &word, 1) != 1 || word != 'y') {
      throw std::runtime_error("the client failed");
    }
  }

 private:
  void obey(const std::string& name, const Deed& deed) {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
    ModelSrv::ModelRoot root(&manager);
    std::deque<ModelSrv::ModelPart> parts;
    char word = '\0';
    bool isGood = ::read(orders_[0], &word, 1) == 1;
    for (std::size_t i = 0; isGood && i < partCount; ++i) {
      auto& part = parts.emplace_back(static_cast<ModelSrv::ModelPartId>(i));
      isGood = root.add(&part) == ModelSrv::ModelRes_Success;
    }
    isGood = isGood && root.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop,
                                          EvtSrv::ConBehave_Default) == ModelSrv::ModelRes_Success;
    do {
      word = isGood && deed(root, parts) ? 'y' : 'n';
      isGood = ::write(answers_[1], &word, 1) == 1 && ::read(orders_[0], &word, 1) == 1;
    } while (isGood);
  }

  std::array<int, 2> orders_{-1, -1};
  std::array<int, 2> answers_{-1, -1};
  std::unique_ptr<bench::Child> child_;
};

/// Asks for every value, most of which come in a few prefetch.
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

/// Subscribes the first part, the first time, and takes every update that is there.
ClientProcess::Deed takeUpdatesOfFirst() {
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
  ClientProcess holder(name, readAll);
  ClientProcess asking(name, readFirst);
  ClientProcess attentive(name, takeUpdatesOfFirst());
  ClientProcess subscriber(name, subscribeAll);
  ChangingServer server(name);
  printTitle("nanoseconds a change");
  const auto printChanges = [&](const char* situation) {
    printRow(situation, sample(many, [&server] { return server.changeAll(); }), target);
  };
  printChanges("nobody connected");
  idle.act();
  printChanges("a client connected that holds nothing");
  printRow("one that held all answers, changes of all",
           sample(many,
                  [&] {
                    holder.act();
                    return server.changeAll();
                  }),
           target);
  const auto changeBehind = [&](ClientProcess& client) {
    return sample(many, [&] {
      client.act();
      return server.changeFirst();
    });
  };
  printRow("one that holds the answer, a single change", changeBehind(asking), target);
  // Told at once, with a write that wakes the subscriber.
  printRow("one subscriber that has taken all, a single", changeBehind(attentive), 0);
  subscriber.act();
  // Once the pipe is full, the updates wait for room in it.
  printRow("one subscriber of all that takes nothing",
           sample(many, [&server] { return server.changeAll(); }), 0);
}

/// A description of `parts` values in nodes of at most 10,000, without a name in the
/// file system.
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
      throw std::runtime_error("cannot write a description");
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

/// What modelsrvd took for a tree.
struct TreeCost {
  std::vector<double> milliseconds;
  std::vector<double> peak;
  std::vector<double> cachedAfterListing;
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
    cost.cachedAfterListing.push_back(server.cachedBytes());
  }
  return cost;
}

void measureTrees() {
  constexpr double bytesTarget = 300;
  const TreeCost least = measureTree(1, 9);
  printTitle("modelsrvd beside its start with a single part");
  printRow("milliseconds, 1 part", least.milliseconds, 0);
  for (const std::size_t parts : {1'000U, 10'000U, 100'000U}) {
    const TreeCost cost = measureTree(parts, parts > 10'000 ? 5 : 9);
    const auto perPart = [parts](std::vector<double> values, const std::vector<double>& beside) {
      const double start = quantile(beside, 0.5);
      for (double& value : values) {
        value = (value - start) / static_cast<double>(parts - 1);
      }
      return values;
    };
    const std::string size = ", " + std::to_string(parts) + " parts";
    auto microseconds = perPart(cost.milliseconds, least.milliseconds);
    std::transform(microseconds.begin(), microseconds.end(), microseconds.begin(),
                   [](double milliseconds) { return milliseconds * 1e3; });
    printRow("microseconds of start a part" + size, microseconds, 0);
    // In fewer parts the pages of the memory count for more than they.
    const double target = parts < 10'000 ? 0 : bytesTarget;
    printRow("bytes a part, at most" + size, perPart(cost.peak, least.peak), target);
    printRow("bytes a part, after ls -lr" + size,
             perPart(cost.cachedAfterListing, least.cachedAfterListing), target);
  }
}

void measureShell() {
  constexpr double kilobytesTarget = 6 * 1024;
  const bench::ServerProgram server({"--synthetic", "1x1"});
  const std::string commands = "cd " + server.name() + "; get group_000/item_0000";
  printTitle("kilobytes");
  printRow("treescope -c \"cd X; get y\", at most",
           sample(9, [&] { return bench::runShell(commands, 1).peakBytes / 1024; }),
           kilobytesTarget);
}

}  // namespace

int main() {
  try {
    // The shell first: a process begins with its parent's memory as its peak.
    measureShell();
    measureTrees();
    measureChanges();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "server_bench: %s\n", error.what());
    return 1;
  }
}
