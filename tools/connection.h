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
#include "tools/values.h"

namespace treectl {

/// The ids from a server's root down to a part; empty for the root.
using Chain = std::vector<ModelSrv::ModelPartId>;

/// The children of a node in the server's order.
struct Children {
  std::vector<ModelSrv::ModelPartId> ids;
  std::vector<std::string> names;  ///< as many; may be empty, may repeat
};

/// How long a request may take if the command line does not say, in seconds; also the longest that
/// the library waits for a reply.
inline constexpr double defaultLimit = 2;

/// The connection to one server. For one thread; a request waits for its reply.
///
/// After `ModelRes_Timeout` all requests fail at once until the server shows life.
class Connection {
 public:
  /// `limit` is how long each request may take, in seconds.
  explicit Connection(double limit);
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

  /// Stores `text`, the bytes of the value of a single value or an element. Without success
  /// `reason` says why.
  ModelSrv::ModelRes store(const Chain& chain, ModelSrv::ModelPartIndex index,
                           std::string_view text, bool passProtected, std::string& reason);
  /// Stores a whole array, as many texts as it has elements.
  ModelSrv::ModelRes storeElements(const Chain& chain, const std::vector<std::string>& texts,
                                   bool passProtected, std::string& reason);

 private:
  struct Link;

  /// Runs `request(output)` within the limit. Only reads are repeated.
  template <typename Result, typename Request>
  ModelSrv::ModelRes run(Result& output, bool isRead, Request request);
  ModelSrv::ModelRes storeText(const Chain& chain, ModelSrv::ModelPartIndex index, std::string text,
                               bool passProtected, std::string& reason);

  double limit_;
  std::shared_ptr<Link> link_;
  /// Whether a request was given up that the library still waits for.
  bool abandoned_ = false;
};

}  // namespace treectl
