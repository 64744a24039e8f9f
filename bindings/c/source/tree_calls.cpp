#include <limits>
#include <string>
#include <vector>

#include "bindings/c/source/call.h"
#include "bindings/c/source/client.h"
#include "bindings/c/source/number_text.h"
#include "bindings/c/source/value_types.h"

// The reading of whole subtrees of treescope.h, which documents it.

namespace treescope_c {

namespace {

using ModelSrv::ModelRes;
using ModelSrv::TreePart;

/// Passes parts to a C program. The memory for their texts is used again for the next part.
class ProgramVisitor {
 public:
  ProgramVisitor(const EventLoop& loop, treescope_visitor visitor, void* context)
      : loop_(loop), visitor_(visitor), context_(context) {}

  /// False also once the client is closed.
  bool visit(const TreePart& part) {
    if (loop_.isClosed()) {
      return false;
    }
    setIdPath(part.chain, path_);
    name_ = part.name;
    text_ = part.text;
    copyElementNames(part);
    double number = std::numeric_limits<double>::quiet_NaN();
    if (part.result == ModelSrv::ModelRes_Success) {
      static_cast<void>(parseNumber(text_, number));
    }
    const treescope_tree_part visited{path_.c_str(),
                                      part.chain.data(),
                                      part.chain.size(),
                                      {name_.c_str(), name_.size()},
                                      part.isNode ? TREESCOPE_NODE : typeOf(part.type),
                                      accessOf(part.access),
                                      part.subscribable,
                                      part.elements,
                                      elementNames_.empty() ? nullptr : elementNames_.data(),
                                      toValueResult(part.result),
                                      {text_.c_str(), text_.size()},
                                      number};
    return visitor_(context_, &visited);
  }

 private:
  void copyElementNames(const TreePart& part) {
    names_.clear();
    for (const std::string_view name : part.elementNames) {
      names_.append(name).push_back('\0');
    }
    elementNames_.clear();
    const char* next = names_.data();
    for (const std::string_view name : part.elementNames) {
      elementNames_.push_back({next, name.size()});
      next += name.size() + 1;
    }
  }

  const EventLoop& loop_;
  const treescope_visitor visitor_;
  void* const context_;
  std::string path_;
  std::string name_;
  std::string text_;
  std::string names_;  ///< of the elements, each with a zero byte after it
  std::vector<treescope_bytes> elementNames_;
};

}  // namespace

}  // namespace treescope_c

using namespace treescope_c;

treescope_result treescope_read_tree(treescope_client* client, const char* path,
                                     treescope_visitor visitor, void* context, bool* changed) {
  return guarded([&] {
    if (changed != nullptr) {
      *changed = false;
    }
    const auto found = find<Client>(client);
    if (found == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    if (path == nullptr || visitor == nullptr) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    const std::optional<Path> parsed = parsePath(path);
    if (!parsed) {
      return failOfPath(path);
    }
    if (parsed->index != ModelSrv::ModelPartIndex_All) {
      return fail(TREESCOPE_BAD_ARGUMENT, path, "an element has nothing below it");
    }
    ProgramVisitor visited(found->loop, visitor, context);
    ModelSrv::TreeReading reading;
    const ModelRes result = found->readTree(
        *parsed, [&](const TreePart& part) { return visited.visit(part); }, reading);
    if (changed != nullptr) {
      *changed = reading.structureChanged;
    }
    return found->loop.isClosed() ? fail(TREESCOPE_CLOSED) : finish(result, path);
  });
}
