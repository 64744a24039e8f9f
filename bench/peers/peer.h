#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/peers/child_program.h"

/// The systems that are compared, each serving the same values under the same
/// names where it can.
namespace bench::peers {

/// How many values are served: `groups` times `valuesPerGroup`, all of them integers.
struct Shape {
  unsigned groups;

  [[nodiscard]] std::size_t total() const { return std::size_t{groups} * valuesPerGroup; }

  static constexpr unsigned valuesPerGroup = 1000;
};

/// The path of a value, "/group_002/item_0003"; numbers wrap round where there are
/// no more.
std::string pathOf(const Shape& shape, std::size_t number);

/// A program that is run to its end.
struct Task {
  std::string how;    ///< as the table names it
  Words words;        ///< what is run
  std::size_t lines;  ///< that it writes at the least
  /// Whether it was written for this comparison, rather than a tool of the peer's.
  bool written = false;
};

/// A tool that shows each update of `pathOf(shape, 0)` in its output.
struct Watcher {
  std::string how;
  std::unique_ptr<Running> tool;
  /// Stores another value there, without waiting for the tool.
  std::function<void(int value)> store;
  /// What the tool writes of that value.
  std::function<std::string(int value)> shown;
};

/// Updates at one subscriber, in thousands a second.
struct Rate {
  std::string how;
  std::function<double()> measure;
  /// What else the same run told; asked for after each, where there is something.
  std::string alsoHow = {};
  std::function<double()> also = nullptr;
};

struct Servers {
  std::string names;
  std::vector<pid_t> processes;
};

/// A system with its values served.
class Peer {
 public:
  virtual ~Peer() = default;

  [[nodiscard]] virtual std::string name() const = 0;

  /// Prints one value.
  [[nodiscard]] virtual Task read() const = 0;

  /// Stores `value` where `read` finds it.
  [[nodiscard]] virtual Task write(int value) const = 0;

  /// Print all values with their names.
  [[nodiscard]] virtual std::vector<Task> list() const = 0;

  /// The processes that hold the values; none where there are none.
  [[nodiscard]] virtual Servers servers() const = 0;

  /// Why it has none of the following; empty where it has them.
  [[nodiscard]] virtual std::string whyNoUpdates() const { return {}; }

  [[nodiscard]] virtual std::unique_ptr<Watcher> watch() { return nullptr; }

  /// Stores that are answered before the next one is made, while a subscriber takes
  /// the updates.
  [[nodiscard]] virtual std::vector<Rate> answeredStores() { return {}; }

  /// Updates sent as fast as they can be, without waiting.
  [[nodiscard]] virtual std::vector<Rate> streams() { return {}; }
};

std::unique_ptr<Peer> serveOwn(const Directory& directory, const Shape& shape);
std::unique_ptr<Peer> serveRedis(const Directory& directory, const Shape& shape);
std::unique_ptr<Peer> serveBus(const Directory& directory, const Shape& shape);
std::unique_ptr<Peer> serveMosquitto(const Directory& directory, const Shape& shape);
std::unique_ptr<Peer> serveSnmp(const Directory& directory, const Shape& shape);
std::unique_ptr<Peer> serveAugeas(const Directory& directory, const Shape& shape);

/// A server's processes: `pid` and its children.
std::vector<pid_t> withChildren(pid_t pid);

}  // namespace bench::peers
