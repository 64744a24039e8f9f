#include "gateway/viewer/mirror_tree.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "modelsrv/part_description.h"

namespace modelgate {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using ModelSrv::ModelRes;

namespace {

bool isNode(const ShapePart& shape) {
  return shape.type == "node";
}

void check(ModelRes result) {
  if (result != ModelSrv::ModelRes_Success) {
    throw std::runtime_error(ModelSrv::describe(result));
  }
}

/// About what a part takes besides the texts of its values.
std::size_t memoryOf(const ShapePart& shape) {
  constexpr std::size_t part = 104;
  constexpr std::size_t element = sizeof(MirrorValue);
  constexpr std::size_t attributes = 256;
  const auto sizeOf = [](const std::vector<std::string>& texts) {
    std::size_t bytes = texts.size() * sizeof(std::string);
    for (const std::string& text : texts) {
      bytes += text.size();
    }
    return bytes;
  };
  std::size_t bytes =
      part + shape.name.size() + shape.elements * element + sizeOf(shape.elementNames);
  if (const auto& stated = shape.attributes; stated != ModelSrv::PartAttributes()) {
    bytes += attributes + stated.unit.size() + stated.minimum.size() + stated.maximum.size() +
             stated.text.size() + sizeOf(stated.choices);
  }
  return bytes;
}

/// Sets what may differ in a part that stays.
void setDetails(ModelPart& part, const ShapePart& shape) {
  if (part.attributes() != shape.attributes) {
    // What the library does not take of them is not shown; the device checks the stores.
    static_cast<void>(part.setAttributes(shape.attributes));
  }
  if (part.subscribable() != shape.subscribable) {
    part.setSubscribable(shape.subscribable);
  }
}

SequenceMark reduced(SequenceMark mark, SequenceMark by) {
  return mark == 0 ? 0 : std::max<SequenceMark>(mark > by ? mark - by : 0, 1);
}

SequenceMark forgotten(SequenceMark /*mark*/, SequenceMark /*by*/) {
  return 0;
}

}  // namespace

MirrorTree::MirrorTree(MirrorRoot& root, bool readOnly) : root_(root), readOnly_(readOnly) {}

MirrorTree::~MirrorTree() {
  // If there is no memory for that, the parts remove themselves.
  static_cast<void>(root_.setChildren({}));
  destroy(built_);
}

/// Nodes before their children: a part that still has a parent searches its siblings to remove
/// itself.
void MirrorTree::destroy(Parts& parts) {
  for (auto& part : parts.parts) {
    part.reset();
  }
}

std::unique_ptr<ModelPart> MirrorTree::create(const ShapePart& shape) const {
  std::unique_ptr<ModelPart> part;
  if (isNode(shape)) {
    part = std::make_unique<ModelNode>(shape.id, shape.name);
  } else if (shape.elements != 0) {
    part = std::make_unique<MirrorArray>(shape, readOnly_);
  } else {
    part = std::make_unique<MirrorPart>(shape, readOnly_);
  }
  setDetails(*part, shape);
  return part;
}

/// The present child of `parent` that stays for `shape`, or null.
std::unique_ptr<ModelPart> MirrorTree::takeSame(const ModelNode& parent, const ShapePart& shape,
                                                const Positions& positions) {
  const auto at = positions.find(parent.findChild(shape.id));
  if (at == positions.end()) {
    return nullptr;
  }
  std::unique_ptr<ModelPart>& present = built_.parts[at->second];
  const bool isSame = built_.nodes[at->second]
                          ? isNode(shape) && present->name() == shape.name
                          : static_cast<const MirrorPart&>(*present).isLike(shape);
  if (!isSame) {
    return nullptr;
  }
  setDetails(*present, shape);
  return std::move(present);
}

void MirrorTree::build(const Shape& shape, ModelPart& last) {
  const std::lock_guard lock(root_.manager()->clientMutex);
  Positions positions;
  for (std::size_t i = 0; i < built_.parts.size(); ++i) {
    positions.emplace(built_.parts[i].get(), i);
  }
  Parts next;
  next.parts.reserve(shape.size());
  next.nodes.reserve(shape.size());
  std::vector<Children> children{{&root_, {}}};
  std::vector<std::size_t> open{0};  // the nodes down to where we are, in `children`
  for (const ShapePart& each : shape) {
    open.resize(std::min<std::size_t>(std::max(each.depth, 1U), open.size()));
    const std::size_t parent = open.back();
    std::unique_ptr<ModelPart> part = takeSame(*children[parent].node, each, positions);
    if (part == nullptr) {
      part = create(each);
    }
    children[parent].parts.push_back(part.get());
    if (isNode(each)) {
      open.push_back(children.size());
      children.push_back({static_cast<ModelNode*>(part.get()), {}});
    }
    next.nodes.push_back(isNode(each));
    next.parts.push_back(std::move(part));
  }
  children.front().parts.push_back(&last);
  // The other way round, so that a node enters the tree with all its children.
  std::swap(built_, next);
  for (auto at = children.rbegin(); at != children.rend(); ++at) {
    check(at->node->setChildren(at->parts));
  }
  destroy(next);
  partBytes_ = 0;
  for (const ShapePart& each : shape) {
    partBytes_ += memoryOf(each);
  }
  textBytes_ = 0;
  forEachValue([this](const MirrorPart& part) { textBytes_ += part.heapSize(); });
}

Shape MirrorTree::shape() const {
  Shape shape;
  shape.reserve(built_.parts.size());
  std::vector<const ModelNode*> open{&root_};
  for (std::size_t i = 0; i < built_.parts.size(); ++i) {
    ModelPart& part = *built_.parts[i];
    while (open.size() > 1 && part.parent() != open.back()) {
      open.pop_back();
    }
    if (built_.nodes[i]) {
      ShapePart node;
      node.id = part.id();
      node.name = part.name();
      node.type = "node";
      node.subscribable = part.subscribable();
      node.attributes = part.attributes();
      shape.push_back(std::move(node));
    } else {
      shape.push_back(static_cast<const MirrorPart&>(part).toShape());
    }
    shape.back().depth = static_cast<unsigned>(open.size());
    if (built_.nodes[i]) {
      open.push_back(static_cast<const ModelNode*>(&part));
    }
  }
  return shape;
}

MirrorPart* MirrorTree::partAt(std::size_t position) const {
  return position < built_.parts.size() && !built_.nodes[position]
             ? static_cast<MirrorPart*>(built_.parts[position].get())
             : nullptr;
}

template <typename Visit>
void MirrorTree::forEachValue(Visit visit) const {
  for (std::size_t i = 0; i < built_.parts.size(); ++i) {
    if (MirrorPart* const part = partAt(i)) {
      visit(*part);
    }
  }
}

void MirrorTree::takeValuesOf(MirrorTree& other) noexcept {
  const std::lock_guard lock(root_.manager()->clientMutex);
  for (std::size_t i = 0; i < built_.parts.size(); ++i) {
    MirrorPart* const from = other.partAt(i);
    if (MirrorPart* const to = partAt(i); to != nullptr && from != nullptr) {
      to->takeFrom(*from);
    }
  }
  base_ = other.base_;
  hasBase_ = other.hasBase_;
  textBytes_ = std::exchange(other.textBytes_, 0);
}

void MirrorTree::take(const PositionedValue& value, std::uint64_t sequence, Accept accept) {
  if (MirrorPart* const part = partAt(value.position)) {
    take(*part, value.index, value.value, sequence, accept);
  }
}

void MirrorTree::take(MirrorPart& part, ModelSrv::ModelPartIndex index, const Value& value,
                      std::uint64_t sequence, Accept accept) {
  const std::lock_guard lock(root_.manager()->clientMutex);
  const bool fits = textBytes_ + value.text.size() <= maxTextBytes;
  const std::ptrdiff_t growth =
      fits ? part.take(index, value, markOf(sequence), accept)
           : part.take(index, {ModelSrv::ModelRes_TooLarge, {}}, markOf(sequence), accept);
  textBytes_ += static_cast<std::size_t>(growth);
}

void MirrorTree::forgetSequences() {
  const std::lock_guard lock(root_.manager()->clientMutex);
  forEachValue([](MirrorPart& part) { part.changeMarks(&forgotten, 0); });
  hasBase_ = false;
}

/// The mark of a sequence: half of the marks remain for older ones when the base moves.
SequenceMark MirrorTree::markOf(std::uint64_t sequence) {
  constexpr std::uint64_t maxMark = 0xFFFFFFFF;
  if (!hasBase_) {
    base_ = sequence - std::min<std::uint64_t>(sequence, maxMark / 2);
    hasBase_ = true;
  }
  if (sequence < base_) {
    return 1;
  }
  if (sequence - base_ >= maxMark) {
    moveBase(sequence - maxMark / 2);
  }
  return static_cast<SequenceMark>(sequence - base_ + 1);
}

void MirrorTree::moveBase(std::uint64_t base) {
  const auto by =
      static_cast<SequenceMark>(std::min<std::uint64_t>(base - base_, SequenceMark{0xFFFFFFFF}));
  base_ = base;
  forEachValue([by](MirrorPart& part) { part.changeMarks(&reduced, by); });
}

}  // namespace modelgate
