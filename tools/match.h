#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/context.h"

namespace treectl {

/// A node, part or element that an address stands for.
struct Match {
  Connection* connection = nullptr;
  std::string server;
  Chain chain;
  std::string address;  ///< printed, with the index of an element; empty for a root of `--server`
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  std::string elementName;  ///< empty if the element has none

  /// The address as output has it.
  [[nodiscard]] std::string_view shown() const {
    return address.empty() ? std::string_view("/") : std::string_view(address);
  }

  /// The printed address without the index of an element.
  [[nodiscard]] std::string_view partAddress() const;
};

/// What came of a match.
enum class Visit {
  skipped,  ///< it is none for this command, such as a node for one that wants parts
  taken,
  stopped,  ///< no further match can be used, because the connection is lost
};

/// Parses each word as an address. False if one is not: the first such is reported and the status
/// is `Status::usage`.
[[nodiscard]] bool parseAddresses(Context& context, const std::vector<std::string>& words,
                                  std::vector<Address>& addresses);

using Visitor = std::function<Visit(const Match&)>;

/// Calls `visit` for each node, part and element that `address` stands for, in the server's order.
/// It is an error of the address if there is none, or if `visit` skipped all that match a
/// wildcard.
void forEachMatch(Context& context, const Address& address, const Visitor& visit);

/// What a failed request means for the matches that follow.
[[nodiscard]] Visit visitAfter(ModelSrv::ModelRes result);

/// Whether the part at `chain` is a node. `result` is that of the requests.
[[nodiscard]] bool isNode(Connection& connection, const Chain& chain, ModelSrv::ModelRes& result);

}  // namespace treectl
