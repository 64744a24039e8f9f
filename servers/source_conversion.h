#pragma once

#include <optional>

#include "servers/entry_conversion.h"

namespace modelsrvd {

/// Sets where the value of `entry` comes from, if the file does not have the value itself. Such
/// an entry gets a default value; a simulated one becomes read-only.
[[nodiscard]] std::optional<EntryError> convertSource(const RawEntry& raw, Entry& entry,
                                                      EntryDetails& details);

}  // namespace modelsrvd
