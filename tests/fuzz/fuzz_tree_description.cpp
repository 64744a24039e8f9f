/// modelsrvd's description of a tree.
///
/// Input: the text of the file. A description that parses satisfies every condition
/// that publishing a tree relies on; an error is one line without control bytes.
///
/// Corpus: `small`, `sample` (a complete file), `all_types`, `array`, `protected`,
/// `duplicate_id`, `unknown_key`, `out_of_range`, `invalid_json`, `deep`, `control_bytes`.

#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "servers/description_parser.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace modelsrvd;
using fuzz::require;

/// The index in `EntryValue` of the values of `type`.
std::size_t alternativeOf(EntryType type) {
  return visitValueType(type, []<typename T>() -> std::size_t {
    if constexpr (std::is_same_v<T, bool>) {
      return 0;
    } else if constexpr (std::is_integral_v<T>) {
      return std::is_signed_v<T> ? 1 : 2;
    } else if constexpr (std::is_floating_point_v<T>) {
      return 3;
    } else {
      return 4;
    }
  });
}

void checkValues(const Entry& entry) {
  if (entry.type == EntryType::node) {
    require(entry.values.empty() && entry.elementNames.empty() && !entry.array,
            "a node has no value");
    return;
  }
  require(!entry.values.empty() && entry.values.size() <= ModelSrv::ModelPartElements_Max,
          "the number of values is within the limit");
  require(entry.array || entry.values.size() == 1, "a part that is not an array has one value");
  require(entry.elementNames.empty() || entry.elementNames.size() == entry.values.size(),
          "either no element has a name or each has one");
  for (const EntryValue& value : entry.values) {
    require(value.index() == alternativeOf(entry.type), "a value has the type of its part");
    const auto* text = std::get_if<std::string>(&value);
    require(text == nullptr || text->size() <= ModelSrv::ModelValueText_Max,
            "the length of a text is within the limit");
  }
  for (const std::string& name : entry.elementNames) {
    require(name.size() <= ModelSrv::ModelName_Max,
            "the length of an element name is within the limit");
  }
}

void checkTree(const TreeDescription& tree) {
  std::set<std::pair<std::size_t, unsigned>> ids;  // with their parents
  for (std::size_t index = 0; index < tree.entries.size(); ++index) {
    const Entry& entry = tree.entries[index];
    require(entry.parent == rootEntry || entry.parent < index, "a node precedes its children");
    require(entry.parent == rootEntry || tree.entries[entry.parent].type == EntryType::node,
            "only nodes have children");
    require(entry.id <= ModelSrv::ModelPartId_Max, "an id is within the limit");
    require(ids.emplace(entry.parent, entry.id).second, "the ids of siblings are unique");
    require(entry.name.size() <= ModelSrv::ModelName_Max,
            "the length of a name is within the limit");
    require(entry.access >= ModelSrv::ModelPartStatus_ReadWrite &&
                entry.access <= ModelSrv::ModelPartStatus_Protected,
            "the access is one of the platform's");
    checkValues(entry);
  }
}

void checkError(const Error& error) {
  require(!error.text.empty(), "an error has a text");
  for (const char c : error.text) {
    require(static_cast<unsigned char>(c) >= ' ' && c != '\x7F',
            "an error contains no control bytes");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto result = parseTreeDescription(fuzz::Input(data, size).restAsText());
  if (const auto* error = std::get_if<Error>(&result)) {
    checkError(*error);
  } else {
    checkTree(std::get<TreeDescription>(result));
  }
  return 0;
}
