#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"
#include "servers/error.h"

namespace modelsrvd {

/// The text of a state file, which modelsrvd(8) defines: what clients have stored. No system calls;
/// any thread may call the functions.

/// One part with what a client has stored in it.
struct StoredPart {
  /// A level of the tree; the first one is below the root.
  struct Level {
    ModelSrv::ModelPartId id = 0;
    std::string name;
  };
  struct Element {
    std::string name;
    std::string text;  ///< value text; of a text its bytes
  };

  std::vector<Level> levels;
  std::string type;               ///< as in a description, such as "int32"
  std::vector<Element> elements;  ///< of a single value one, without a name
  bool array = false;
};

/// The names of `levels` as a path for people, in one line.
[[nodiscard]] std::string pathOf(const StoredPart& part);

/// `part` as JSON in one line, without a line feed.
[[nodiscard]] std::string stateLine(const StoredPart& part);

/// What a state file has before the first line, between two lines, and after the last one.
inline constexpr std::string_view stateBegin = "{\"state\": 1, \"parts\": [\n";
inline constexpr std::string_view stateSeparator = ",\n";
inline constexpr std::string_view stateEnd = "\n]}\n";

/// The parts in the text of a state file. An error says where the text is wrong.
[[nodiscard]] Result<std::vector<StoredPart>> parseState(std::string_view text);

}  // namespace modelsrvd
