#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"
#include "modelsrv/part_description.h"
#include "modelsrv/result.h"
#include "modelsrv/tree_part.h"
#include "modelsrv/watch.h"
#include "tools/values.h"

namespace treectl {

class Connection;
struct Subtree;

/// The ids from a server's root down to a part; empty for the root.
using Chain = std::vector<ModelSrv::ModelPartId>;

/// The children of a node in the server's order.
struct Children {
  std::vector<ModelSrv::ModelPartId> ids;
  std::vector<std::string> names;  ///< as many; may be empty, may repeat
};

/// The value of an array of `count` elements whose texts are joined by line feeds in `text`. False,
/// and `value` is unchanged, if that cannot be told because a text has line feeds of its own.
[[nodiscard]] bool splitElements(std::string_view text, std::size_t count, Value& value);

/// How long a request may take if the command line does not say, in seconds; also the longest that
/// the library waits for a reply.
inline constexpr double defaultLimit = 2;

/// Hears of what a server sends by itself. Called by `Connection::dispatch`.
class ConnectionListener {
 public:
  ConnectionListener() = default;
  virtual ~ConnectionListener() = default;
  ConnectionListener(const ConnectionListener&) = delete;
  ConnectionListener& operator=(const ConnectionListener&) = delete;

  virtual void lost(Connection& connection) = 0;
  /// The connection is there again, with its watches.
  virtual void restored(Connection& connection) = 0;
};

/// The connection to one server. For one thread; a request waits for its reply.
///
/// After `ModelRes_Timeout` all requests fail at once until the server shows life.
class Connection {
 public:
  /// `limit` is how long each request may take, in seconds. With `reconnects` a lost connection is
  /// made again while `dispatch` is called.
  Connection(double limit, bool reconnects);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Connects to the server `name`, once.
  ModelSrv::ModelRes open(const std::string& name);

  /// The user that the server belongs to.
  [[nodiscard]] std::optional<uid_t> owner() const;

  // Requests about the part at `chain`. On success the output is replaced, otherwise unchanged.

  /// No children for a part.
  ModelSrv::ModelRes readChildren(const Chain& chain, Children& children);
  /// 0 for a single value and for a node.
  ModelSrv::ModelRes readElementCount(const Chain& chain, unsigned& count);
  /// None, or a name for each element.
  ModelSrv::ModelRes readElementNames(const Chain& chain, std::vector<std::string>& names);
  /// `ModelRes_NoValue` for a node.
  ModelSrv::ModelRes readText(const Chain& chain, ModelSrv::ModelPartIndex index,
                              std::string& text);
  /// The value of the part, or of the element `index`.
  ModelSrv::ModelRes readValue(const Chain& chain, ModelSrv::ModelPartIndex index, Value& value);
  ModelSrv::ModelRes readDescription(const Chain& chain, ModelSrv::PartDescription& description);

  /// The part and all below it, with their values. Of older servers part by part.
  ModelSrv::ModelRes readSubtree(const Chain& chain, Subtree& subtree);

  /// Whether `visitSubtree` can be used: not with a limit below the default one.
  [[nodiscard]] bool canVisitSubtree() const { return limit_ >= defaultLimit; }
  /// Reports the part and all below it in the order of their ids, as `ModelRoot::readTree` does. If
  /// it has to be read again, the report begins again.
  ModelSrv::ModelRes visitSubtree(const Chain& chain, const ModelSrv::TreeVisitor& visit);

  /// Stores `text`, the bytes of the value of a single value or an element. Without success
  /// `reason` says why.
  ModelSrv::ModelRes store(const Chain& chain, ModelSrv::ModelPartIndex index,
                           std::string_view text, bool passProtected, std::string& reason);
  /// Stores a whole array, as many texts as it has elements.
  ModelSrv::ModelRes storeElements(const Chain& chain, const std::vector<std::string>& texts,
                                   bool passProtected, std::string& reason);

  // Watches.

  /// `listener` outlives this object.
  void setListener(ConnectionListener* listener);
  /// Starts a watch, which must end before this object does.
  ModelSrv::ModelRes start(ModelSrv::Watch& watch, const Chain& chain,
                           const ModelSrv::WatchOptions& options,
                           ModelSrv::Watch::Callback callback);
  /// Readable if `dispatch` has something to do.
  [[nodiscard]] int descriptor() const;
  /// Calls the listener for some of what has arrived. Does not wait; false if there was nothing.
  bool dispatch();

 private:
  struct Link;

  /// Runs `request(output)` within the limit. Only reads are repeated.
  template <typename Result, typename Request>
  static ModelSrv::ModelRes locked(const Request& request, Link& link, Result& output);
  template <typename Result, typename Request>
  ModelSrv::ModelRes run(Result& output, bool isRead, Request request);
  ModelSrv::ModelRes storeText(const Chain& chain, ModelSrv::ModelPartIndex index, std::string text,
                               bool passProtected, std::string& reason);

  double limit_;
  std::shared_ptr<Link> link_;
  /// Whether a request was given up that the library still waits for.
  bool hasTimedOut_ = false;
  bool isDispatching_ = false;
};

}  // namespace treectl
