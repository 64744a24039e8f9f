#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"
#include "servers/error.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// The lines of a recording, as treectl(1) writes them with `record`: a header that describes the
/// parts, then one line for each value or event. No system calls; any thread may call the
/// functions. Errors are about one line and do not say which.

/// What a recording says of a part. A line of a value has address, type, access and
/// unit only, and ids and name if it has appeared. A node has address, ids and name.
struct RecordedPart {
  std::string address;  ///< as it was printed
  EntryType type = EntryType::text;
  ModelSrv::ModelPartStatus access = ModelSrv::ModelPartStatus_ReadWrite;
  std::string unit;
  std::string minimum, maximum;  ///< value texts
  std::string text;
  std::vector<ModelSrv::ModelPartId> ids;  ///< from the root's child on; none if not known
  std::string name;  ///< as addresses have names, if the address has the id instead
  std::vector<std::string> choices;
  std::vector<std::string> elementNames;
  std::uint64_t elements = 0;  ///< 0 if it is not an array
  bool subscribable = true;
};

struct RecordingHeader {
  std::string server;      ///< that all addresses are of; empty if they begin with a server's name
  std::int64_t start = 0;  ///< in microseconds since 1970
  std::vector<RecordedPart> nodes;  ///< each before those below it; of older recordings none
  std::vector<RecordedPart> parts;
};

/// A value; that a server was lost or came back; that a node appeared, or a node or part left.
struct RecordedChange {
  enum class Event { value, lost, restored, added, removed };

  Event event = Event::value;
  RecordedPart part;
  std::int64_t time = 0;           ///< in microseconds since 1970
  std::vector<std::string> texts;  ///< value texts: one, or one for each element
  bool isArray = false;
  bool isChange = false;  ///< false: the value was read, because the watch began
};

[[nodiscard]] Result<RecordingHeader> parseRecordingHeader(std::string_view line);
[[nodiscard]] Result<RecordedChange> parseRecordedChange(std::string_view line);

}  // namespace modelsrvd
