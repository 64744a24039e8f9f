#include "gateway/viewer/mirror_part.h"

#include <algorithm>
#include <utility>

#include "gateway/viewer/type_names.h"

namespace modelgate {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelPartStatus;
using ModelSrv::ModelRes;

namespace {

ModelPartStatus shownStatus(const ShapePart& shape, bool readOnly) {
  return readOnly && shape.access != ModelSrv::ModelPartStatus_Void
             ? ModelSrv::ModelPartStatus_ReadOnly
             : shape.access;
}

/// What a part has before its value is known.
ModelRes firstResult(ModelPartStatus access) {
  return access == ModelSrv::ModelPartStatus_Void ? ModelSrv::ModelRes_NoValue
                                                  : ModelSrv::ModelRes_Unreachable;
}

std::ptrdiff_t growthOf(const MirrorValue& present, const MirrorValue& next) {
  return static_cast<std::ptrdiff_t>(next.heapSize()) -
         static_cast<std::ptrdiff_t>(present.heapSize());
}

}  // namespace

MirrorPart::MirrorPart(const ShapePart& shape, bool readOnly)
    : ModelPart(shape.id, shape.name, shownStatus(shape, readOnly)),
      type_(typeNumber(shape.type)),
      access_(static_cast<std::uint8_t>(shape.access)),
      value_(firstResult(shape.access)) {}

std::ptrdiff_t MirrorPart::take(ModelPartIndex index, const Value& value, SequenceMark mark,
                                Accept accept) {
  if (index != ModelPartIndex_All || !isAccepted(mark, mark_, accept)) {
    return 0;
  }
  MirrorValue next(value);
  mark_ = mark;
  if (next == value_) {
    return 0;
  }
  const std::ptrdiff_t growth = growthOf(value_, next);
  invalidateValue();
  value_ = std::move(next);
  notifySubscribers(ModelPartIndex_All);
  return growth;
}

void MirrorPart::takeFrom(MirrorPart& other) noexcept {
  value_ = std::move(other.value_);
  mark_ = other.mark_;
}

void MirrorPart::changeMarks(SequenceMark (*change)(SequenceMark mark, SequenceMark by),
                             SequenceMark by) {
  mark_ = change(mark_, by);
}

bool MirrorPart::isLike(const ShapePart& shape) const {
  return shape.type != "node" && name() == shape.name && type_ == typeNumber(shape.type) &&
         access_ == shape.access && elementCount() == shape.elements &&
         elementNames() == shape.elementNames;
}

ShapePart MirrorPart::toShape() const {
  ShapePart shape;
  shape.id = id();
  shape.name = name();
  shape.type = typeText(type_);
  shape.access = access_;
  shape.subscribable = subscribable();
  shape.elements = elementCount();
  shape.elementNames = elementNames();
  shape.attributes = attributes();
  return shape;
}

std::string_view MirrorPart::typeName() const {
  return typeText(type_);
}

ModelRes MirrorPart::append(const MirrorValue& value, std::string& out) {
  const ModelRes result = value.result();
  if (result == ModelSrv::ModelRes_Success) {
    out += value.text();
  }
  return result;
}

ModelRes MirrorPart::appendText(std::string& out, ModelPartIndex index) const {
  return index == ModelPartIndex_All ? append(value_, out) : ModelSrv::ModelRes_NoSuchIndex;
}

ModelRes MirrorPart::storeText(std::string_view /*text*/, bool /*flag*/, ModelPartIndex /*index*/,
                               bool /*fromClient*/) {
  return access_ == ModelSrv::ModelPartStatus_Void ? ModelSrv::ModelRes_NoValue
                                                   : ModelSrv::ModelRes_ReadOnly;
}

ModelRes MirrorPart::storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                                     std::string& reason) {
  // The parts of a mirror are in the tree of no other root.
  const auto* const root = static_cast<const MirrorRoot*>(findRoot());
  MirrorStores* const stores = root != nullptr ? root->stores() : nullptr;
  return stores != nullptr ? stores->store(*this, text, flag, index, reason)
                           : storeText(text, flag, index, true);
}

MirrorArray::MirrorArray(const ShapePart& shape, bool readOnly)
    : MirrorPart(shape, readOnly),
      count_(static_cast<std::uint16_t>(shape.elements)),
      names_(shape.elementNames),
      elements_(count_) {}

ModelRes MirrorArray::appendText(std::string& out, ModelPartIndex index) const {
  if (index != ModelPartIndex_All) {
    return index < count_ ? append(elements_[index], out) : ModelSrv::ModelRes_NoSuchIndex;
  }
  if (whole_ != nullptr) {
    return append(*whole_, out);
  }
  const std::size_t start = out.size();
  for (std::size_t i = 0; i < count_; ++i) {
    if (i != 0) {
      out += '\n';
    }
    ModelRes result = append(elements_[i], out);
    if (out.size() - start > ModelSrv::ModelValueText_Max) {
      result = ModelSrv::ModelRes_TooLarge;
    }
    if (result != ModelSrv::ModelRes_Success) {
      out.resize(start);
      return result;
    }
  }
  return ModelSrv::ModelRes_Success;
}

/// None if the text has not as many lines as there are elements.
std::vector<MirrorValue> MirrorArray::elementsOf(const Value& value) const {
  std::vector<MirrorValue> elements;
  if (value.result != ModelSrv::ModelRes_Success || count_ == 1) {
    elements.reserve(count_);
    for (std::size_t i = 0; i < count_; ++i) {
      elements.emplace_back(value);
    }
    return elements;
  }
  const auto lines = std::count(value.text.begin(), value.text.end(), '\n') + 1;
  if (lines != count_) {
    return elements;
  }
  elements.reserve(count_);
  std::string_view rest = value.text;
  for (std::size_t i = 0; i < count_; ++i) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    elements.emplace_back(line);
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  }
  return elements;
}

std::ptrdiff_t MirrorArray::take(ModelPartIndex index, const Value& value, SequenceMark mark,
                                 Accept accept) {
  if (index == ModelPartIndex_All) {
    return takeWhole(value, mark, accept);
  }
  return index < count_ ? takeElement(index, value, mark, accept) : 0;
}

std::ptrdiff_t MirrorArray::takeWhole(const Value& value, SequenceMark mark, Accept accept) {
  if (!isAccepted(mark, mark_, accept)) {
    return 0;
  }
  std::vector<MirrorValue> next = elementsOf(value);
  std::unique_ptr<MirrorValue> whole;
  if (next.empty()) {
    whole = std::make_unique<MirrorValue>(value);
    if (whole_ != nullptr && *whole == *whole_) {
      mark_ = mark;
      return 0;
    }
    next.resize(count_);
  }
  const std::size_t sizeBefore = heapSize();
  // A text that cannot be divided changes all elements.
  std::size_t changes = whole != nullptr || whole_ != nullptr ? 2 : 0;
  ModelPartIndex last = ModelPartIndex_All;
  for (std::size_t i = 0; i < count_; ++i) {
    const bool isOlder = !marks_.empty() && !isAccepted(mark, marks_[i], accept);
    if (!isOlder && !(next[i] == elements_[i])) {
      invalidateValue();
      elements_[i] = std::move(next[i]);
      last = static_cast<ModelPartIndex>(i);
      ++changes;
    }
  }
  invalidateValue();
  whole_ = std::move(whole);
  mark_ = mark;
  if (std::none_of(marks_.begin(), marks_.end(), [&](SequenceMark each) { return each > mark; })) {
    marks_ = {};
  }
  if (changes != 0) {
    notifySubscribers(changes == 1 ? last : ModelPartIndex_All);
  }
  return static_cast<std::ptrdiff_t>(heapSize()) - static_cast<std::ptrdiff_t>(sizeBefore);
}

std::ptrdiff_t MirrorArray::takeElement(ModelPartIndex index, const Value& value, SequenceMark mark,
                                        Accept accept) {
  if (!isAccepted(mark, marks_.empty() ? mark_ : marks_[index], accept)) {
    return 0;
  }
  MirrorValue next(value);
  if (mark != mark_ && marks_.empty()) {
    marks_.assign(count_, mark_);
  }
  if (!marks_.empty()) {
    marks_[index] = mark;
  }
  if (next == elements_[index]) {
    return 0;
  }
  const std::ptrdiff_t growth = growthOf(elements_[index], next);
  invalidateValue();
  elements_[index] = std::move(next);
  if (whole_ != nullptr && !isUnknown()) {
    whole_.reset();
  }
  notifySubscribers(index);
  return growth;
}

/// Whether an element is unknown.
bool MirrorArray::isUnknown() const {
  return std::any_of(elements_.begin(), elements_.end(), [](const MirrorValue& each) {
    return each.result() == ModelSrv::ModelRes_Unreachable;
  });
}

void MirrorArray::takeFrom(MirrorPart& other) noexcept {
  MirrorPart::takeFrom(other);
  auto& array = static_cast<MirrorArray&>(other);
  elements_.swap(array.elements_);
  marks_.swap(array.marks_);
  whole_.swap(array.whole_);
}

void MirrorArray::changeMarks(SequenceMark (*change)(SequenceMark mark, SequenceMark by),
                              SequenceMark by) {
  MirrorPart::changeMarks(change, by);
  for (SequenceMark& mark : marks_) {
    mark = change(mark, by);
  }
}

std::size_t MirrorArray::heapSize() const {
  std::size_t size = whole_ != nullptr ? whole_->heapSize() : 0;
  for (const MirrorValue& element : elements_) {
    size += element.heapSize();
  }
  return size;
}

}  // namespace modelgate
