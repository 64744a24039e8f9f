#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "modelsrv/model_root.h"
#include "servers/error.h"
#include "servers/options.h"

namespace modelsrvd {

class StoredValues;

/// A tree that the server can publish, and what keeps its values up to date: the
/// live tree, a described one, a recorded one or a synthetic one.
///
/// For the thread that dispatches events. The caller passes the time in.
class TreeSource {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~TreeSource() = default;

  /// The default name of the port; may be empty.
  [[nodiscard]] virtual std::string name() const = 0;

  /// Adds the tree to `root`, which outlives it. To be called once.
  [[nodiscard]] virtual std::optional<Error> publish(ModelSrv::ModelRoot& root) = 0;

  /// When `tick` is to be called next; nothing if it need not be called.
  [[nodiscard]] virtual std::optional<Clock::time_point> nextDeadline(Clock::time_point now) const;

  /// Updates the values if the deadline has passed.
  virtual void tick(Clock::time_point now);

  /// Why the values are not kept up to date any more, once; to be called after `tick`.
  [[nodiscard]] virtual std::optional<Error> takeError();

  /// To be called after SIGIO: files that the tree watches may have changed.
  virtual void filesChanged(Clock::time_point now);

  /// Reads the description file again; other trees ignore the call. What clients have stored
  /// stays if `stored` is not null. After an error in the file the tree is unchanged; see
  /// `PublishedTree::reload` for other errors.
  [[nodiscard]] virtual std::optional<Error> reload(StoredValues* stored);

  /// Whether the value of `part`, which is in the tree, comes from neither a file nor a simulation.
  [[nodiscard]] virtual bool holdsValue(const ModelSrv::ModelPart& part) const;
};

/// The tree that `options` select. Reads the description file or checks the recording if
/// there is one; an error is a usage error.
[[nodiscard]] Result<std::unique_ptr<TreeSource>> makeTreeSource(const Options& options);

}  // namespace modelsrvd
