#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/part_description.h"

/// Descriptions of parts, and their payloads (platform/PROTOCOL.md, section 10).
namespace ModelSrv::internal {

/// What a part of a server's tree is. Call it with the client mutex held.
[[nodiscard]] PartDescription descriptionOf(ModelPart& part);

/// Whether every text has the allowed size and is one line of UTF-8.
[[nodiscard]] bool hasValidTexts(const PartAttributes& attributes);

/// Whether `names` are none, or one for each of `elements`.
[[nodiscard]] bool areElementNames(const std::vector<std::string>& names, unsigned elements);

/// Appends the payload of a description. False if it does not fit into a frame; `payload` has
/// part of it then.
[[nodiscard]] bool encodeDescription(const PartDescription& description,
                                     std::vector<std::uint8_t>& payload);

/// Decodes a whole payload. False if bytes are missing or left over, or the number of element names
/// is neither 0 nor that of the elements; `description` is unchanged then. Skips attributes that it
/// does not know, cleans texts, and drops what is too long or too much for an attribute.
[[nodiscard]] bool decodeDescription(EvtSrv::internal::PayloadReader payload,
                                     PartDescription& description);

}  // namespace ModelSrv::internal
