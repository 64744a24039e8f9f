#include <utility>

#include "commands/save_subtree.h"
#include "commands/target_address.h"
#include "commands/values_file.h"
#include "model/tree_scope.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doTo(const char* file, const char* path) {
  if (!connected()) {
    return result::nothing;
  }
  ValuesFile values(file == nullptr ? "" : file);
  if (!values.opened()) {
    return result::openFileError;
  }
  const SplitPath split = splitAtLastSlash(expandPath(path));
  auto place = resolveParent(*this, split.parent);
  if (!place) {
    return result::nothing;
  }
  if (!split.last.empty()) {
    const auto child = place->children.findName(split.last);
    if (!child) {
      return result::success;
    }
    // The named child itself is left out of the paths that are written: files
    // and what reads them have relied on that from the beginning.
    place->chain.ids.push_back(place->children.id(*child));
  }
  saveSubtree(*this, std::move(place->chain), values);
  return result::success;
}

}  // namespace treescope
