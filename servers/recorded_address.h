#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "modelsrv/model_part.h"
#include "servers/error.h"

namespace modelsrvd {

/// One name of an address.
struct RecordedName {
  std::string name;                         ///< empty for a child that is known by its id alone
  std::optional<ModelSrv::ModelPartId> id;  ///< of "#ID"

  bool operator==(const RecordedName&) const = default;
  bool operator<(const RecordedName& other) const {
    return std::tie(id, name) < std::tie(other.id, other.name);
  }
};

/// Where a value belongs.
struct RecordedAddress {
  std::vector<RecordedName> names;     ///< from the first one on, which may be a server's
  std::optional<std::string> element;  ///< an index or a name
};

/// Parses an address as treectl(1) prints it: "/SERVER/NAME/NAME[ELEMENT]", with backslashes before
/// bytes that have a meaning, `\xHH` for any byte, and "#ID". No system calls; any thread.
[[nodiscard]] Result<RecordedAddress> parseRecordedAddress(std::string_view text);

}  // namespace modelsrvd
