/// modelsrvd's description of a tree.
///
/// Input: the file's text. What is taken keeps every rule that publishing a tree
/// relies on; what is refused is refused in one line that a terminal shows as it
/// stands.
///
/// Corpus: `small`, `sample` (a whole file), `all_types`, `array`, `protected`, `doubled_id`,
/// `unknown_key`, `out_of_range`, `no_json`, `deep`.

#include <set>
#include <string>
#include <utility>

#include "servers/description_parser.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace modelsrvd;
using fuzz::require;

std::size_t alternativeOf(EntryType type) {
  switch (type) {
    case EntryType::boolean:
      return 0;
    case EntryType::int8:
    case EntryType::int16:
    case EntryType::int32:
    case EntryType::int64:
      return 1;
    case EntryType::uint8:
    case EntryType::uint16:
    case EntryType::uint32:
    case EntryType::uint64:
      return 2;
    case EntryType::float32:
    case EntryType::float64:
      return 3;
    case EntryType::text:
      return 4;
    case EntryType::node:
      break;
  }
  return std::variant_npos;
}

void checkValues(const Entry& entry) {
  if (entry.type == EntryType::node) {
    require(entry.values.empty() && entry.elementNames.empty() && !entry.array,
            "a node has no value");
    return;
  }
  require(!entry.values.empty() && entry.values.size() <= ModelSrv::ModelPartElements_Max,
          "a part has a value, an array not too many");
  require(entry.array || entry.values.size() == 1, "a single value is one");
  require(entry.elementNames.empty() || entry.elementNames.size() == entry.values.size(),
          "elements have no names or each has one");
  for (const EntryValue& value : entry.values) {
    require(value.index() == alternativeOf(entry.type), "a value is of its part's type");
    const auto* text = std::get_if<std::string>(&value);
    require(text == nullptr || text->size() <= ModelSrv::ModelValueText_Max,
            "no text is above the limit");
  }
  for (const std::string& name : entry.elementNames) {
    require(name.size() <= ModelSrv::ModelName_Max, "no element's name is above the limit");
  }
}

void checkTree(const TreeDescription& tree) {
  std::set<std::pair<std::size_t, unsigned>> places;
  for (std::size_t at = 0; at < tree.entries.size(); ++at) {
    const Entry& entry = tree.entries[at];
    require(entry.parent == rootEntry || entry.parent < at, "a node stands before its children");
    require(entry.parent == rootEntry || tree.entries[entry.parent].type == EntryType::node,
            "only nodes have children");
    require(entry.id <= ModelSrv::ModelPartId_Max, "an id is one");
    require(places.emplace(entry.parent, entry.id).second, "siblings have different ids");
    require(entry.name.size() <= ModelSrv::ModelName_Max, "no name is above the limit");
    require(entry.access >= ModelSrv::ModelPartStatus_ReadWrite &&
                entry.access <= ModelSrv::ModelPartStatus_Protected,
            "a part's access is one that the platform knows");
    checkValues(entry);
  }
}

void checkFailure(const Error& error) {
  require(!error.text.empty(), "a error says what is wrong");
  for (const char c : error.text) {
    require(static_cast<unsigned char>(c) >= ' ' && c != '\x7F', "a error holds no control bytes");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto result = parseTreeDescription(fuzz::Input(data, size).restAsText());
  if (const auto* error = std::get_if<Error>(&result)) {
    checkFailure(*error);
  } else {
    checkTree(std::get<TreeDescription>(result));
  }
  return 0;
}
