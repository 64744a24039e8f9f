#include "modelsrv/source/cache/prefetch_writer.h"

#include <algorithm>
#include <cstring>

#include "modelsrv/source/cache/cache_invalidator.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/replies.h"

namespace ModelSrv::internal {

using EvtSrv::internal::PayloadWriter;

namespace {

/// What is longer is left out; whoever wants it asks for it.
constexpr std::size_t longestSection = std::size_t{16} * 1024;
constexpr std::size_t mostEntries = 4096;

void writeHandle(const StatusPage& page, PayloadWriter& writer) {
  const StatusPageHandle& handle = page.handle();
  writer.u32(handle.process);
  writer.u32(handle.descriptor);
  writer.bytes({reinterpret_cast<const char*>(handle.id.data()), handle.id.size()});
  writer.u32(static_cast<std::uint32_t>(page.epoch() >> 32));
  writer.u32(static_cast<std::uint32_t>(page.epoch()));
}

bool isShown(const ModelPart& child) {
  return child.id() != ModelPartId_Void;
}

/// Says while a section is written whether it may go on.
class Room {
 public:
  explicit Room(const std::vector<std::uint8_t>& reply) : reply_(reply), start_(reply.size()) {}
  [[nodiscard]] bool isLeftFor(std::size_t size) const {
    return reply_.size() - start_ + size <= longestSection;
  }

 private:
  const std::vector<std::uint8_t>& reply_;
  std::size_t start_;
};

bool addName(CountedReply& names, const std::string& name, const Room& room) {
  const bool fits = room.isLeftFor(sizeof(std::uint16_t) + name.size());
  if (fits) {
    names.addName(name);
  }
  return fits;
}

bool writeChildren(ModelPart& part, const Room& room, std::vector<std::uint8_t>& reply) {
  static const std::vector<ModelPart*> none;
  const ModelNode* node = PartAccess::asNode(part);
  const std::vector<ModelPart*>& children = node != nullptr ? node->children() : none;
  if (children.size() > mostEntries) {
    return false;
  }
  CountedReply ids(reply);
  for (const ModelPart* child : children) {
    if (isShown(*child)) {
      ids.addId(child->id());
    }
  }
  CountedReply names(reply);
  return std::all_of(children.begin(), children.end(), [&](const ModelPart* child) {
    return !isShown(*child) || addName(names, child->name(), room);
  });
}

bool writeElements(const ModelPart& part, const Room& room, std::vector<std::uint8_t>& reply) {
  const unsigned count = PartAccess::elementCount(part);
  if (count > mostEntries) {
    return false;
  }
  PayloadWriter(reply).u16(static_cast<std::uint16_t>(count));
  CountedReply names(reply);
  const std::vector<std::string>& all = PartAccess::elementNames(part);
  return std::all_of(all.begin(), all.end(),
                     [&](const std::string& name) { return addName(names, name, room); });
}

/// How what is told of a part begins where it has neither children nor elements, as
/// most parts: the counts of both are 0.
struct PlainPart {
  static constexpr std::size_t id = 2;  ///< behind the depth
  static constexpr std::size_t sections = 4;
  static constexpr std::size_t valueSection = 13;  ///< behind four counts: the result
  static constexpr std::size_t length = 15;
  static constexpr std::size_t text = 19;
};
static_assert(ModelRes_Success == 0, "the result of a plain part's value is left as 0");

bool isPlain(ModelPart& part) {
  return PartAccess::asNode(part) == nullptr && PartAccess::elementCount(part) == 0 &&
         PartAccess::elementNames(part).empty();
}

/// Puts `value` into `text` at that offset.
template <typename Number>
void put(std::string& text, std::size_t offset, Number value) {
  std::memcpy(text.data() + offset, &value, sizeof value);
}

/// `text` is room for a text, and its size then what it took to read the value.
bool writeValue(const ModelPart& part, const Room& room, std::string& text,
                std::vector<std::uint8_t>& reply) {
  PayloadWriter writer(reply);
  const std::size_t start = reply.size();
  const unsigned elements = PartAccess::elementCount(part);
  writer.u16(ModelRes_Success);
  for (unsigned i = 0; i < std::max(elements, 1U); ++i) {
    const auto index = elements == 0 ? ModelPartIndex_All : static_cast<ModelPartIndex>(i);
    text.clear();
    if (const ModelRes result = PartAccess::appendText(part, text, index);
        result != ModelRes_Success) {
      reply.resize(start);
      writer.u16(static_cast<std::uint16_t>(result));
      return true;
    }
    if (!room.isLeftFor(sizeof(std::uint32_t) + text.size())) {
      return false;
    }
    writer.u32(static_cast<std::uint32_t>(text.size()));
    writer.bytes(text);
  }
  return true;
}

}  // namespace

void PrefetchWriter::write(ModelRoot& root, ModelPart& part, unsigned parts, const StatusPage& page,
                           std::vector<std::uint8_t>& reply) {
  PayloadWriter writer(reply);
  writeHandle(page, writer);
  findPositions(root, part);
  const std::uint32_t stamp = CacheInvalidator::stampOf(page.epoch());
  spent_ = 0;
  for (ModelPart* at = &part; at != nullptr && parts > 0; at = following(*at), --parts) {
    const std::size_t before = reply.size();
    writePart(*at, reply);
    if (at != &part && spent_ > prefetchSize) {
      reply.resize(before);
      break;
    }
    PartAccess::setCacheStamp(*at, stamp);
  }
}

void PrefetchWriter::findPositions(const ModelRoot& root, const ModelPart& part) {
  above_.clear();
  for (const ModelPart* at = &part; at != &root; at = PartAccess::parent(*at)) {
    const ModelNode* node = PartAccess::parent(*at);
    const auto& siblings = node->children();
    // More often than not they are in the order of their ids.
    auto next = std::lower_bound(
        siblings.begin(), siblings.end(), at->id(),
        [](const ModelPart* sibling, ModelPartId id) { return sibling->id() < id; });
    if (next == siblings.end() || *next != at) {
      next = std::find(siblings.begin(), siblings.end(), at);
    }
    above_.push_back({node, static_cast<std::size_t>(next - siblings.begin()) + 1});
  }
  std::reverse(above_.begin(), above_.end());
}

ModelPart* PrefetchWriter::following(ModelPart& part) {
  // Below what answers in a way of its own nobody knows what to expect.
  if (PartAccess::isCacheable(part) && above_.size() < ModelDepth_Max) {
    if (const ModelNode* node = PartAccess::asNode(part)) {
      above_.push_back({node, 0});
    }
  }
  while (!above_.empty()) {
    Position& at = above_.back();
    while (at.next < at.node->children().size()) {
      ModelPart* const child = at.node->children()[at.next++];
      if (isShown(*child)) {
        return child;
      }
    }
    above_.pop_back();
  }
  return nullptr;
}

void PrefetchWriter::writePart(ModelPart& part, std::vector<std::uint8_t>& reply) {
  const std::size_t start = reply.size();
  if (!PartAccess::isCacheable(part) || !isPlain(part) || !writePlainPart(part, reply)) {
    writeAnyPart(part, reply);
  }
  // A long text that was read in vain took its time as well.
  spent_ += reply.size() - start + (text_.size() > longestSection ? text_.size() : 0);
  if (text_.capacity() > longestSection) {
    text_ = {};
  }
}

bool PrefetchWriter::writePlainPart(const ModelPart& part, std::vector<std::uint8_t>& reply) {
  text_.assign(PlainPart::text, '\0');
  // A class that does not append but assigns has taken the room away.
  if (PartAccess::appendText(part, text_, ModelPartIndex_All) != ModelRes_Success ||
      text_.size() < PlainPart::text) {
    return false;
  }
  const std::size_t length = text_.size() - PlainPart::text;
  const bool fits = text_.size() - PlainPart::valueSection <= longestSection;
  put(text_, 0, static_cast<std::uint16_t>(above_.size()));
  put(text_, PlainPart::id, part.id());
  put(text_, PlainPart::sections,
      static_cast<std::uint8_t>(prefetchChildren | prefetchElements | (fits ? prefetchValue : 0)));
  put(text_, PlainPart::length, static_cast<std::uint32_t>(length));
  const std::string_view told = text_;
  PayloadWriter(reply).bytes(fits ? told : told.substr(0, PlainPart::valueSection));
  return true;
}

void PrefetchWriter::writeAnyPart(ModelPart& part, std::vector<std::uint8_t>& reply) {
  PayloadWriter writer(reply);
  writer.u16(static_cast<std::uint16_t>(above_.size()));
  writer.u16(part.id());
  const std::size_t sections = reply.size();
  writer.u8(0);
  text_.clear();
  std::uint8_t has = 0;
  const auto add = [&](PrefetchSection section, auto write) {
    const std::size_t before = reply.size();
    if (write(Room(reply))) {
      has |= section;
    } else {
      reply.resize(before);
    }
  };
  if (PartAccess::isCacheable(part)) {
    add(prefetchChildren, [&](const Room& room) { return writeChildren(part, room, reply); });
    add(prefetchElements, [&](const Room& room) { return writeElements(part, room, reply); });
    if ((has & prefetchElements) != 0) {
      add(prefetchValue, [&](const Room& room) { return writeValue(part, room, text_, reply); });
    }
  }
  reply[sections] = has;
}

}  // namespace ModelSrv::internal
