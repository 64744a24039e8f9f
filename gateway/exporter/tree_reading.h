#pragma once

#include <functional>
#include <string>
#include <vector>

#include "gateway/exporter/local_server.h"
#include "gateway/wire/shape.h"
#include "gateway/wire/values.h"

namespace modelgate {

/// A server's tree at one time.
struct TreeReadout {
  Shape shape;
  std::vector<Value> values;  ///< one for each part of the shape
  /// Whether parts have come or gone meanwhile: it is to be read again.
  bool isOutdated = false;
  /// Whether this is a mirror of a device's server.
  bool isMirror = false;
};

/// Reads the tree of `server`, children in the server's order. `between` is called between
/// requests; it may make requests, and ends the reading by returning false.
/// `ModelRes_TooLarge` for a tree with more than `maxParts`, `ModelRes_LimitReached` as soon as its
/// names and attributes are more than a shape may have, `ModelRes_DoNothing` if `between` has ended
/// the reading. Of a mirror nothing is read but that it is one.
ModelSrv::ModelRes readTree(LocalServer& server, const std::function<bool()>& between,
                            TreeReadout& readout);

/// The name of a mirror's part with the state of its connection.
inline constexpr std::string_view linkPartName = "_link";

}  // namespace modelgate
