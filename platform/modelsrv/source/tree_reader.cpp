#include "modelsrv/source/tree_reader.h"

#include <utility>

#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/part_access.h"

namespace ModelSrv::internal {

TreeReader::TreeReader(ModelRoot& root, std::vector<ModelPartId> chain, const TreeVisitor& visit)
    : root_(root), visit_(visit), topDepth_(chain.size()), chain_(std::move(chain)) {}

template <typename Request>
ModelRes TreeReader::withClient(Request request) {
  const KSTD::KThreadMutexLock lock(root_.manager()->clientMutex);
  ClientSide* const client = PartAccess::client(root_);
  if (client == nullptr) {
    return ModelRes_NotConnected;
  }
  return withMemoryResult([&] { return request(*client); });
}

ModelRes TreeReader::read(TreeReading& reading) {
  TreePageReader page;
  bool ends = false;
  std::uint64_t firstVersion = 0;
  reading.structureChanged = false;
  for (bool continues = false; !ends; continues = true) {
    ModelRes result = readPage(continues, page);
    if (result == ModelRes_NotSupported && !continues) {
      return readByParts(reading);
    }
    if (result == ModelRes_Success) {
      firstVersion = continues ? firstVersion : page.structureVersion();
      reading.structureChanged =
          reading.structureChanged || page.structureVersion() != firstVersion;
      result = visitPage(page, ends);
    }
    if (result != ModelRes_Success) {
      return result;
    }
    ends = ends || !page.hasMore();
  }
  return ModelRes_Success;
}

ModelRes TreeReader::readPage(bool continues, TreePageReader& page) {
  return withClient([&](ClientSide& client) {
    EvtSrv::internal::ByteOrder order = EvtSrv::internal::nativeOrder;
    const ModelRes result =
        client.readTreePage(ChainView(chain_).first(topDepth_), continues, ids_, bytes_, order);
    if (result != ModelRes_Success) {
      return result;
    }
    return page.begin(EvtSrv::internal::PayloadReader(bytes_, order)) ? ModelRes_Success
                                                                      : ModelRes_Protocol;
  });
}

ModelRes TreeReader::visitPage(TreePageReader& page, bool& ends) {
  TreePart part;
  TreePageReader::LeftOut leftOut;
  for (bool isFirst = true;; isFirst = false) {
    const TreePageReader::Next next = page.next(ids_, part, leftOut);
    if (next == TreePageReader::Next::end) {
      // A page without a part would be requested for ever.
      return isFirst && page.hasMore() ? ModelRes_Protocol : ModelRes_Success;
    }
    if (next == TreePageReader::Next::malformed || topDepth_ + ids_.size() > ModelDepth_Max) {
      return ModelRes_Protocol;
    }
    chain_.resize(topDepth_);
    chain_.insert(chain_.end(), ids_.begin(), ids_.end());
    part.chain = chain_;
    if (leftOut.value || leftOut.elementNames) {
      const ModelRes result = fetchLeftOut(leftOut, part);
      if (result == ModelRes_NoSuchPart) {
        continue;  // it has gone meanwhile
      }
      if (result != ModelRes_Success) {
        return result;
      }
    }
    if (!visit_(part)) {
      ends = true;
      return ModelRes_Success;
    }
  }
}

ModelRes TreeReader::fetchLeftOut(TreePageReader::LeftOut leftOut, TreePart& part) {
  return withClient([&](ClientSide& client) {
    if (leftOut.elementNames) {
      const ModelRes result = client.elementNames(part.chain, elementNames_);
      if (result != ModelRes_Success) {
        return result;
      }
      elementNameViews_.assign(elementNames_.begin(), elementNames_.end());
      part.elementNames = elementNameViews_;
      part.elements =
          elementNames_.empty() ? part.elements : static_cast<unsigned>(elementNames_.size());
    }
    if (leftOut.value) {
      text_.clear();
      const ModelRes result = client.save(part.chain, text_, ModelPartIndex_All);
      if (result >= ModelRes_NotConnected || result == ModelRes_NoSuchPart) {
        return result;
      }
      part.result = result;
      part.text = text_;
    }
    return ModelRes_Success;
  });
}

/// Reads from a server that does not know the request for pages.
ModelRes TreeReader::readByParts(TreeReading& reading) {
  struct Level {
    std::vector<ModelPartId> ids;
    std::vector<std::string> names;
    std::size_t next = 0;
  };
  std::vector<Level> levels(1);
  bool ends = false;
  // Only its parent has the name of the part that is read.
  ModelRes result = withClient(
      [&](ClientSide& client) { return client.nameOf(chain_, levels[0].names.emplace_back()); });
  if (result == ModelRes_Success) {
    const std::string name = std::move(levels[0].names[0]);
    result = visitOne(name, levels[0].ids, levels[0].names, ends);
  }
  reading.structureChanged = !levels[0].ids.empty();
  while (result == ModelRes_Success && !ends && !levels.empty()) {
    Level& level = levels.back();
    if (level.next == level.ids.size()) {
      levels.pop_back();
      continue;
    }
    chain_.resize(topDepth_ + levels.size() - 1);
    chain_.push_back(level.ids[level.next]);
    const std::string name = level.next < level.names.size() ? level.names[level.next] : "";
    ++level.next;
    Level below;
    result = visitOne(name, below.ids, below.names, ends);
    if (result == ModelRes_NoSuchPart) {
      result = ModelRes_Success;  // it has gone meanwhile
    } else if (!below.ids.empty() && chain_.size() < ModelDepth_Max) {
      levels.push_back(std::move(below));
    }
  }
  return result;
}

/// Reports the part at `chain_`, and sets what its children are.
ModelRes TreeReader::visitOne(const std::string& name, std::vector<ModelPartId>& children,
                              std::vector<std::string>& names, bool& ends) {
  TreePart part;
  const ModelRes result = withClient([&](ClientSide& client) {
    std::uint16_t elements = 0;
    ModelRes read = client.childIds(chain_, children);
    read = read == ModelRes_Success ? client.childNames(chain_, names) : read;
    read = read == ModelRes_Success ? client.elementSum(chain_, elements) : read;
    elementNames_.clear();
    if (read == ModelRes_Success && elements != 0) {
      read = client.elementNames(chain_, elementNames_);
    }
    if (read != ModelRes_Success) {
      return read;
    }
    part.elements = elements;
    text_.clear();
    part.result =
        children.empty() ? client.save(chain_, text_, ModelPartIndex_All) : ModelRes_NoValue;
    return part.result < ModelRes_NotConnected && part.result != ModelRes_NoSuchPart
               ? ModelRes_Success
               : part.result;
  });
  if (result != ModelRes_Success) {
    return result;
  }
  part.chain = chain_;
  part.name = name;
  part.isNode = part.result == ModelRes_NoValue;
  part.text = text_;
  elementNameViews_.assign(elementNames_.begin(), elementNames_.end());
  part.elementNames = elementNameViews_;
  ends = !visit_(part);
  return ModelRes_Success;
}

}  // namespace ModelSrv::internal
