#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/programs.h"
#include "bench/ratio_table.h"
#include "tests/attack/changing_server.h"
#include "tests/attack/flooded_exchanges.h"

// The longest exchange of a client while another one floods the server, for each kind of flood:
// the elapsed time, and without the time for which the client or the server waited for a
// processor, which is what the server can do something about.
// The server has a processor of its own, if there is one. Floods run at the lowest priority, so
// that they do not take the processor from the client.

namespace {

constexpr double targetMs = 10;
constexpr std::chrono::milliseconds floodTime(5000);

/// The description of the tree in a file, which is removed at the end.
class TreeFile {
 public:
  TreeFile() {
    const int file = ::mkstemp(path_.data());
    const std::string text = attack::floodedTree();
    if (file < 0 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("cannot write the tree");
    }
    ::close(file);
  }
  ~TreeFile() { ::unlink(path_.c_str()); }
  TreeFile(const TreeFile&) = delete;
  TreeFile& operator=(const TreeFile&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_ = "/tmp/flood_bench_XXXXXX";
};

void measure(const attack::Target& server, const attack::Flood* flood) {
  const auto durations = attack::exchangesUnder(flood, server, floodTime);
  const std::string name = flood != nullptr ? flood->name : "no flood";
  if (durations.elapsed.empty()) {
    std::printf("%-44s an exchange has failed\n", name.c_str());
    return;
  }
  std::printf("%-44s", name.c_str());
  for (const auto& values : {durations.elapsed, durations.served}) {
    std::printf(" %8.2f %8.2f %8.2f", bench::quantile(values, 0.5), bench::quantile(values, 0.99),
                *std::max_element(values.begin(), values.end()));
  }
  const double worst = *std::max_element(durations.served.begin(), durations.served.end());
  std::printf(" %7zu %6.0f %6.2f\n", durations.elapsed.size(), targetMs, worst / targetMs);
}

}  // namespace

/// With an argument, that is the server's program; a second one is the only flood.
int main(int argc, char** argv) {
  try {
    // The floods and the client inherit them; the floods give theirs up.
    static_cast<void>(::setpriority(PRIO_PROCESS, 0, -10));
    const std::string program = argc > 1 ? argv[1] : bench::builtServer;
    const TreeFile tree;
    std::printf("\n%-44s %26s %26s\n%-44s %8s %8s %8s %8s %8s %8s %7s %6s %6s\n", "", "elapsed",
                "without waits", "milliseconds an exchange", "median", "p99", "worst", "median",
                "p99", "worst", "samples", "target", "ratio");
    const auto measureServer = [&](const attack::Flood* flood) {
      const bench::ServerProgram server({"--tree", tree.path()}, 1, program);
      measure({"/tmp/" + server.name() + ".fifo", server.process()}, flood);
    };
    if (argc < 3) {
      measureServer(nullptr);
    }
    for (const attack::Flood& flood : attack::floods()) {
      if (argc < 3 || flood.name == argv[2]) {
        measureServer(&flood);
      }
    }
    for (const attack::Flood& flood : attack::structureFloods()) {
      if (argc >= 3 && flood.name != argv[2]) {
        continue;
      }
      const std::string port = "Model_changing" + std::to_string(::getpid());
      const attack::ChangingServer server(port);
      measure({"/tmp/" + port + ".fifo", server.process()}, &flood);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "flood_bench: %s\n", error.what());
    return 1;
  }
}
