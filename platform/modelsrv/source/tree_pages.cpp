#include "modelsrv/source/tree_pages.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "modelsrv/source/part_access.h"
#include "modelsrv/source/replies.h"

namespace ModelSrv::internal {

using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;

namespace {

/// What an entry has.
enum Has : std::uint8_t {
  hasChildren = 1,
  hasElements = 2,
  hasValue = 4,
  refusesSubscriptions = 8,
  leavesOutNames = 16,
  leavesOutValue = 32,
  hasSortedChildren = 64,
};

// A type is the number of its name here, from 1; 0 is none, and a name follows 255.
constexpr std::array<std::string_view, 12> knownTypes{"bool",   "int8",  "int16",  "int32",
                                                      "int64",  "uint8", "uint16", "uint32",
                                                      "uint64", "float", "double", "text"};
constexpr std::uint8_t typeName = 255;

// What reading values for one page may cost: an array's text may take long to make, and is left
// out. The number of parts bounds the cost of parts without a value.
constexpr std::size_t maxRead = std::size_t{1024} * 1024;
constexpr std::size_t maxPartsOfPage = 16 * 1024;

std::uint8_t numberOfType(std::string_view type) {
  if (type.empty()) {
    return 0;
  }
  const auto at = std::find(knownTypes.begin(), knownTypes.end(), type);
  return at != knownTypes.end() ? static_cast<std::uint8_t>(at - knownTypes.begin() + 1) : typeName;
}

/// What an entry begins with: one insertion, since a page has very many.
struct EntryHead {
  static constexpr std::size_t hasAt = 4;
  static constexpr std::size_t size = 8;

  EntryHead(std::size_t depth, const ModelPart& part, std::uint8_t type) {
    put(0, static_cast<std::uint16_t>(depth));
    put(2, part.id());
    put(hasAt + 1, part.status());
    bytes[size - 1] = type;
  }
  void put(std::size_t at, std::uint16_t number) {
    std::memcpy(bytes.data() + at, &number, sizeof number);
  }

  std::array<std::uint8_t, size> bytes{};
};

std::string_view readType(PayloadReader& page) {
  const std::uint8_t type = page.u8();
  if (type == typeName) {
    return page.bytes(page.u16());
  }
  return type >= 1 && type <= knownTypes.size() ? knownTypes[type - 1] : std::string_view();
}

}  // namespace

void TreePageWriter::write(ModelPart& top, bool continues, ChainView position,
                           std::uint64_t structureVersion, EvtSrv::internal::TurnQueue& turns,
                           std::vector<std::uint8_t>& page) {
  const std::size_t start = page.size();
  PayloadWriter writer(page);
  writer.u32(static_cast<std::uint32_t>(structureVersion >> 32U));
  writer.u32(static_cast<std::uint32_t>(structureVersion));
  const std::size_t more = page.size();
  writer.u8(0);
  read_ = 0;
  programCalled_ = false;
  cursor_.begin(top);
  if (continues) {
    cursor_.resume(position);
  }
  std::size_t parts = 0;
  while (ModelPart* const part = cursor_.next(structureVersion)) {
    const std::size_t before = page.size();
    const bool isFull = parts == maxPartsOfPage || read_ > maxRead ||
                        (parts != 0 && programCalled_ && turns.turnExpired());
    if (!isFull) {
      writePart(*part, cursor_.depth(), page);
    }
    if (isFull || (parts != 0 && page.size() - start > maxPage)) {
      page.resize(before);
      page[more] = 1;
      break;
    }
    ++parts;
  }
  cursor_.end();
  // A large text that was left out is not kept.
  if (text_.capacity() > maxInPage) {
    text_ = {};
  }
}

void TreePageWriter::writePart(ModelPart& part, std::size_t depth,
                               std::vector<std::uint8_t>& page) {
  PayloadWriter writer(page);
  const std::size_t hasAt = page.size() + EntryHead::hasAt;
  unsigned has = 0;
  const std::string_view type = PartAccess::typeName(part);
  const EntryHead head(depth, part, numberOfType(type));
  page.insert(page.end(), head.bytes.begin(), head.bytes.end());
  if (head.bytes.back() == typeName) {
    writer.u16(static_cast<std::uint16_t>(type.size()));
    writer.bytes(type);
  }
  const std::string_view name = part.name();
  writer.u16(static_cast<std::uint16_t>(name.size()));
  writer.bytes(name);
  if (!PartAccess::subscribable(part)) {
    has |= refusesSubscriptions;
  }
  if (PartAccess::isNode(part)) {
    has |= hasChildren;
    if (PartAccess::areChildrenSorted(part)) {
      has |= hasSortedChildren;
    }
  } else {
    writeElements(part, page, has);
    const ModelRes result = readValue(part);
    if (result == ModelRes_Success && text_.size() > maxInPage) {
      has |= leavesOutValue;
    } else if (result != ModelRes_NoValue) {
      has |= hasValue;
      writer.u16(static_cast<std::uint16_t>(result));
      const std::string_view text = result == ModelRes_Success ? text_ : std::string_view();
      writer.u32(static_cast<std::uint32_t>(text.size()));
      writer.bytes(text);
    }
  }
  page[hasAt] = static_cast<std::uint8_t>(has);
}

void TreePageWriter::writeElements(const ModelPart& part, std::vector<std::uint8_t>& page,
                                   unsigned& has) {
  const unsigned elements = PartAccess::elementCount(part);
  if (elements == 0) {
    return;
  }
  has |= hasElements;
  PayloadWriter(page).u16(static_cast<std::uint16_t>(elements));
  const std::size_t start = page.size();
  CountedReply names(page);
  for (const std::string& name : PartAccess::elementNames(part)) {
    names.addName(name);
    if (page.size() - start > maxInPage) {
      has |= leavesOutNames;
      page.resize(start);
      return;
    }
  }
}

ModelRes TreePageWriter::readValue(ModelPart& part) {
  text_.clear();
  programCalled_ = programCalled_ || !PartAccess::isCacheable(part);
  const ModelRes result = PartAccess::appendText(part, text_, ModelPartIndex_All);
  read_ += text_.size();
  return result < ModelRes_NotConnected ? result : ModelRes_Unreachable;
}

bool TreePageReader::begin(PayloadReader page) {
  page_ = page;
  const std::uint64_t high = page_.u32();
  structureVersion_ = high << 32U | page_.u32();
  hasMore_ = page_.u8() != 0;
  return page_.ok();
}

TreePageReader::Next TreePageReader::next(std::vector<ModelPartId>& ids, TreePart& part,
                                          LeftOut& leftOut) {
  if (page_.left() == 0) {
    return Next::end;
  }
  const std::size_t depth = page_.u16();
  const ModelPartId id = page_.u16();
  if (depth > ids.size() + 1 || depth > ModelDepth_Max) {
    return Next::malformed;
  }
  if (depth != 0) {
    ids.resize(depth);
    ids.back() = id;
  } else {
    ids.clear();
  }
  const std::uint8_t has = page_.u8();
  part = {};
  part.isNode = (has & hasChildren) != 0;
  part.childrenSorted = (has & hasSortedChildren) != 0;
  part.subscribable = (has & refusesSubscriptions) == 0;
  part.access = page_.u16();
  part.type = readType(page_);
  part.name = page_.bytes(page_.u16());
  if ((has & hasElements) != 0 && !readElements(has, part)) {
    return Next::malformed;
  }
  if ((has & hasValue) != 0) {
    part.result = decodeResult(page_.u16());
    part.text = page_.bytes(page_.u32());
  }
  leftOut = {(has & leavesOutValue) != 0, (has & leavesOutNames) != 0};
  return page_.ok() ? Next::part : Next::malformed;
}

bool TreePageReader::readElements(std::uint8_t has, TreePart& part) {
  part.elements = page_.u16();
  if ((has & leavesOutNames) != 0) {
    return true;
  }
  const std::size_t count = page_.u16();
  if ((count != 0 && count != part.elements) || count * sizeof(std::uint16_t) > page_.left()) {
    return false;
  }
  elementNames_.clear();
  for (std::size_t i = 0; i < count; ++i) {
    elementNames_.push_back(page_.bytes(page_.u16()));
  }
  part.elementNames = elementNames_;
  return page_.ok();
}

}  // namespace ModelSrv::internal
