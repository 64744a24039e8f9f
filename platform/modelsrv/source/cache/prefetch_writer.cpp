#include "modelsrv/source/cache/prefetch_writer.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "modelsrv/source/cache/cache_invalidator.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv::internal {

using EvtSrv::internal::PayloadWriter;

namespace {

/// A longer section is left out; a client requests its content separately.
constexpr std::size_t maxSectionSize = std::size_t{16} * 1024;
constexpr std::size_t maxEntries = 4096;

void writeHandle(const StatusPage& page, PayloadWriter& writer) {
  const StatusPageHandle& handle = page.handle();
  writer.u32(handle.process);
  writer.u32(handle.descriptor);
  writer.bytes({reinterpret_cast<const char*>(handle.id.data()), handle.id.size()});
  writer.u32(static_cast<std::uint32_t>(page.epoch() >> 32));
  writer.u32(static_cast<std::uint32_t>(page.epoch()));
}

bool isPublished(const ModelPart& child) {
  return child.id() != ModelPartId_Void;
}

/// Checks the size of a section while it is being written.
class SectionLimit {
 public:
  explicit SectionLimit(const std::vector<std::uint8_t>& reply)
      : reply_(reply), start_(reply.size()) {}
  [[nodiscard]] bool allows(std::size_t size) const {
    return reply_.size() - start_ + size <= maxSectionSize;
  }

 private:
  const std::vector<std::uint8_t>& reply_;
  std::size_t start_;
};

bool addName(CountedReply& names, std::string_view name, const SectionLimit& limit) {
  const bool fits = limit.allows(sizeof(std::uint16_t) + name.size());
  if (fits) {
    names.addName(name);
  }
  return fits;
}

bool writeChildren(ModelPart& part, const SectionLimit& limit, std::vector<std::uint8_t>& reply) {
  static const std::vector<ModelPart*> none;
  const ModelNode* node = PartAccess::asNode(part);
  const std::vector<ModelPart*>& children = node != nullptr ? node->children() : none;
  if (children.size() > maxEntries) {
    return false;
  }
  CountedReply ids(reply);
  for (const ModelPart* child : children) {
    if (isPublished(*child)) {
      ids.addId(child->id());
    }
  }
  CountedReply names(reply);
  return std::all_of(children.begin(), children.end(), [&](const ModelPart* child) {
    return !isPublished(*child) || addName(names, child->name(), limit);
  });
}

bool writeElements(const ModelPart& part, const SectionLimit& limit,
                   std::vector<std::uint8_t>& reply) {
  const unsigned count = PartAccess::elementCount(part);
  if (count > maxEntries) {
    return false;
  }
  PayloadWriter(reply).u16(static_cast<std::uint16_t>(count));
  CountedReply names(reply);
  const std::vector<std::string>& all = PartAccess::elementNames(part);
  return std::all_of(all.begin(), all.end(),
                     [&](const std::string& name) { return addName(names, name, limit); });
}

/// The offsets of the fields of a part without children and elements. Most parts are like this.
struct SimplePart {
  static constexpr std::size_t depth = 0;
  static constexpr std::size_t id = 2;
  static constexpr std::size_t sections = 4;
  // Four counts of 0: child ids, child names, elements, element names.
  static constexpr std::size_t valueSection = 13;  ///< begins with the result
  static constexpr std::size_t length = 15;
  static constexpr std::size_t text = 19;
};
static_assert(ModelRes_Success == 0, "writeSimplePart leaves the result of the value as 0");

bool isSimple(ModelPart& part) {
  return PartAccess::asNode(part) == nullptr && PartAccess::elementCount(part) == 0 &&
         PartAccess::elementNames(part).empty();
}

/// Writes `value` into `text` at that offset.
template <typename Number>
void put(std::string& text, std::size_t offset, Number value) {
  std::memcpy(text.data() + offset, &value, sizeof value);
}

/// `text` is a buffer; afterwards it has the text that was read last.
bool writeValue(const ModelPart& part, const SectionLimit& limit, std::string& text,
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
    if (!limit.allows(sizeof(std::uint32_t) + text.size())) {
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
  TreeLock::assertHeld(root);
  PayloadWriter writer(reply);
  writeHandle(page, writer);
  findPositions(root, part);
  const std::uint32_t stamp = CacheInvalidator::stampOf(page.epoch());
  usedSize_ = 0;
  for (ModelPart* at = &part; at != nullptr && parts > 0; at = nextInListing(*at), --parts) {
    const std::size_t before = reply.size();
    const bool isCacheable = writePart(*at, reply);
    if (at != &part && usedSize_ > prefetchSize) {
      reply.resize(before);
      break;
    }
    if (isCacheable) {
      PartAccess::setCacheStamp(*at, stamp);
    }
  }
}

void PrefetchWriter::findPositions(const ModelRoot& root, const ModelPart& part) {
  ancestors_.clear();
  for (const ModelPart* at = &part; at != &root; at = PartAccess::parent(*at)) {
    const ModelNode* node = PartAccess::parent(*at);
    const auto& siblings = node->children();
    // Usually they are in the order of their ids.
    auto next = std::lower_bound(
        siblings.begin(), siblings.end(), at->id(),
        [](const ModelPart* sibling, ModelPartId id) { return sibling->id() < id; });
    if (next == siblings.end() || *next != at) {
      next = std::find(siblings.begin(), siblings.end(), at);
    }
    ancestors_.push_back({node, static_cast<std::size_t>(next - siblings.begin()) + 1});
  }
  std::reverse(ancestors_.begin(), ancestors_.end());
}

ModelPart* PrefetchWriter::nextInListing(ModelPart& part) {
  // The descendants of a part that cannot be cached may change unnoticed: leave them out.
  if (PartAccess::isCacheable(part) && ancestors_.size() < ModelDepth_Max) {
    if (const ModelNode* node = PartAccess::asNode(part)) {
      ancestors_.push_back({node, 0});
    }
  }
  while (!ancestors_.empty()) {
    Position& at = ancestors_.back();
    while (at.next < at.node->children().size()) {
      ModelPart* const child = at.node->children()[at.next++];
      if (isPublished(*child)) {
        return child;
      }
    }
    ancestors_.pop_back();
  }
  return nullptr;
}

bool PrefetchWriter::writePart(ModelPart& part, std::vector<std::uint8_t>& reply) {
  const std::size_t start = reply.size();
  const bool isCacheable = PartAccess::isCacheable(part);
  if (!isCacheable || !isSimple(part) || !writeSimplePart(part, reply)) {
    writeAnyPart(part, reply);
  }
  // Reading a long text took time even if it was left out.
  usedSize_ += reply.size() - start + (text_.size() > maxSectionSize ? text_.size() : 0);
  if (text_.capacity() > maxSectionSize) {
    text_ = {};
  }
  return isCacheable;
}

bool PrefetchWriter::writeSimplePart(const ModelPart& part, std::vector<std::uint8_t>& reply) {
  text_.assign(SimplePart::text, '\0');
  // A class that assigns instead of appending has removed the space for the header.
  if (PartAccess::appendText(part, text_, ModelPartIndex_All) != ModelRes_Success ||
      text_.size() < SimplePart::text) {
    return false;
  }
  const std::size_t length = text_.size() - SimplePart::text;
  const bool fits = text_.size() - SimplePart::valueSection <= maxSectionSize;
  put(text_, SimplePart::depth, static_cast<std::uint16_t>(ancestors_.size()));
  put(text_, SimplePart::id, part.id());
  put(text_, SimplePart::sections,
      static_cast<std::uint8_t>(prefetchChildren | prefetchElements | (fits ? prefetchValue : 0)));
  put(text_, SimplePart::length, static_cast<std::uint32_t>(length));
  const std::string_view content = text_;
  PayloadWriter(reply).bytes(fits ? content : content.substr(0, SimplePart::valueSection));
  return true;
}

void PrefetchWriter::writeAnyPart(ModelPart& part, std::vector<std::uint8_t>& reply) {
  PayloadWriter writer(reply);
  writer.u16(static_cast<std::uint16_t>(ancestors_.size()));
  writer.u16(part.id());
  const std::size_t sections = reply.size();
  writer.u8(0);
  text_.clear();
  std::uint8_t has = 0;
  const auto add = [&](PrefetchSection section, auto write) {
    const std::size_t before = reply.size();
    if (write(SectionLimit(reply))) {
      has |= section;
    } else {
      // To write it took time, too.
      usedSize_ += reply.size() - before;
      reply.resize(before);
    }
  };
  if (PartAccess::isCacheable(part)) {
    add(prefetchChildren,
        [&](const SectionLimit& limit) { return writeChildren(part, limit, reply); });
    add(prefetchElements,
        [&](const SectionLimit& limit) { return writeElements(part, limit, reply); });
    if ((has & prefetchElements) != 0) {
      add(prefetchValue,
          [&](const SectionLimit& limit) { return writeValue(part, limit, text_, reply); });
    }
  }
  reply[sections] = has;
}

}  // namespace ModelSrv::internal
