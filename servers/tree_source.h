#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "modelsrv/model_root.h"
#include "servers/error.h"
#include "servers/options.h"

namespace modelsrvd {

/// One of the trees that the server can show, with what keeps it going.
///
/// Lives on the thread that dispatches. Time comes in from outside.
class TreeSource {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~TreeSource() = default;

  /// The port's name where the command line gives none; may be empty.
  [[nodiscard]] virtual std::string name() const = 0;

  /// Hangs the tree below `root`, which outlives it. Once.
  [[nodiscard]] virtual std::optional<Error> publish(ModelSrv::ModelRoot& root) = 0;

  /// When something is next to be done; nothing: never.
  [[nodiscard]] virtual std::optional<Clock::time_point> nextDeadline(Clock::time_point now) const;

  /// Does what is due.
  virtual void tick(Clock::time_point now);

  /// Reads its source again, where it has one. The error leaves all as it was.
  [[nodiscard]] virtual std::optional<Error> reload();
};

/// The tree for `options`: the description is read here. The error is one of
/// usage.
[[nodiscard]] Result<std::unique_ptr<TreeSource>> makeTreeSource(const Options& options);

}  // namespace modelsrvd
