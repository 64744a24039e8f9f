#include "modelsrv/source/cache/reply_cache.h"

#include <algorithm>
#include <limits>

#include "modelsrv/source/cache/prefetch_writer.h"
#include "modelsrv/source/replies.h"

namespace ModelSrv::internal {

using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::PayloadReader;

namespace {

constexpr std::uint32_t noPart = std::numeric_limits<std::uint32_t>::max();
/// The maximum number of parts that a client requests. A reply with more is malformed.
constexpr std::size_t maxParts = 4096;
/// A longer reply is malformed; servers write much less.
constexpr std::size_t maxReplySize = std::size_t{256} * 1024;
constexpr std::uint32_t rootHash = 0x9E3779B9;

std::uint32_t hashOfChild(std::uint32_t parent, ModelPartId id) {
  const std::uint64_t product = (parent ^ (id + 1U)) * 0xFF51AFD7ED558CCD;
  return static_cast<std::uint32_t>(product >> 32);
}

std::uint32_t hashOf(ChainView chain) {
  std::uint32_t hash = rootHash;
  for (const ModelPartId id : chain) {
    hash = hashOfChild(hash, id);
  }
  return hash;
}

std::uint32_t offsetOf(const PayloadReader& in) {
  return static_cast<std::uint32_t>(in.position());
}

void skipIds(PayloadReader& in) {
  const std::size_t count = in.u16();
  static_cast<void>(in.bytes(count * sizeof(ModelPartId)));
}

void skipNames(PayloadReader& in) {
  const std::size_t count = in.u16();
  for (std::size_t i = 0; i < count && in.ok(); ++i) {
    static_cast<void>(in.text16());
  }
}

void skipTexts(PayloadReader& in, unsigned count) {
  for (unsigned i = 0; i < count && in.ok(); ++i) {
    const std::size_t length = in.u32();
    static_cast<void>(in.bytes(length));
  }
}

/// Reads the sections of one part, which follow its id; false if they are malformed.
bool readSections(PayloadReader& in, ReplyCache::Part& part) {
  const std::uint8_t has = in.u8();
  part.childIds = offsetOf(in);
  if ((has & prefetchChildren) != 0) {
    skipIds(in);
  }
  part.childNames = offsetOf(in);
  if ((has & prefetchChildren) != 0) {
    skipNames(in);
  }
  part.elements = offsetOf(in);
  if ((has & prefetchElements) != 0) {
    part.elementCount = in.u16();
    skipNames(in);
  }
  part.value = offsetOf(in);
  if ((has & prefetchValue) != 0) {
    const std::uint16_t result = in.u16();
    const unsigned texts = std::max<unsigned>(part.elementCount, 1);
    skipTexts(in, result == ModelRes_Success ? texts : 0);
    if ((has & prefetchElements) == 0 || decodeResult(result) == ModelRes_Protocol) {
      return false;
    }
  }
  part.end = offsetOf(in);
  return in.ok();
}

}  // namespace

const ReplyCache::Part* ReplyCache::find(ChainView chain, Data data) {
  if (epoch_ == 0 ||
      !(data == Data::value ? page_.isCurrent(epoch_) : page_.isStructureCurrent(epoch_))) {
    return nullptr;
  }
  // A listing makes several requests about a part, then goes on to the next one.
  if (!hasChain(lastFound_, chain)) {
    const std::uint32_t found = lastFound_ + 1 < parts_.size() && hasChain(lastFound_ + 1, chain)
                                    ? lastFound_ + 1
                                    : findInIndex(chain);
    if (found == noPart) {
      return nullptr;
    }
    lastFound_ = found;
  }
  Part& part = parts_[lastFound_];
  if (!part.isUsed) {
    part.isUsed = true;
    ++usedCount_;
  }
  return &part;
}

std::uint16_t ReplyCache::partsToPrefetch() const {
  return static_cast<std::uint16_t>(std::clamp<std::size_t>(usedCount_ * 4, 1, maxParts));
}

const ReplyCache::Part* ReplyCache::replace(ChainView chain, std::span<const std::uint8_t> reply,
                                            ByteOrder order) {
  const std::size_t expected = partsToPrefetch();
  clear();
  if (reply.size() > maxReplySize) {
    return nullptr;
  }
  parts_.reserve(chain.size() + expected);
  bytes_.assign(reply.begin(), reply.end());
  order_ = order;
  PayloadReader in(bytes_, order);
  StatusPageHandle handle;
  std::uint64_t epoch = 0;
  if (!readHandle(in, handle, epoch)) {
    return nullptr;
  }
  addAncestors(chain);
  const auto first = static_cast<std::uint32_t>(parts_.size());
  do {
    const std::uint16_t depth = in.u16();
    const ModelPartId id = in.u16();
    Part* const part = parts_.size() - first < maxParts ? add(depth, id) : nullptr;
    if (part == nullptr || !readSections(in, *part)) {
      clear();
      return nullptr;
    }
  } while (in.left() != 0);
  if (!hasChain(first, chain)) {
    clear();
    return nullptr;
  }
  replyCount_ = parts_.size() - first;
  lastFound_ = first;
  buildIndex();
  parts_[first].isUsed = true;
  usedCount_ = 1;
  if ((page_.isOpen() && page_.handle() == handle) || page_.open(handle)) {
    epoch_ = epoch;
  }
  return &parts_[first];
}

void ReplyCache::clear() {
  epoch_ = 0;
  parts_.clear();
  index_.clear();
  replyCount_ = 0;
  usedCount_ = 0;
}

bool ReplyCache::readHandle(PayloadReader& in, StatusPageHandle& handle, std::uint64_t& epoch) {
  handle.process = in.u32();
  handle.descriptor = in.u32();
  const std::string_view id = in.bytes(handle.id.size());
  std::copy(id.begin(), id.end(), handle.id.begin());
  epoch = std::uint64_t{in.u32()} << 32;
  epoch |= in.u32();
  return in.ok();
}

/// The ancestors of the first part have no data, but they are part of the other chains.
void ReplyCache::addAncestors(ChainView chain) {
  for (std::size_t depth = 0; depth < chain.size(); ++depth) {
    static_cast<void>(
        add(static_cast<std::uint16_t>(depth), depth == 0 ? ModelPartId_Void : chain[depth - 1]));
  }
}

/// Appends a part as a child of the last part with a lower depth. Null if that is not exactly
/// one level above.
ReplyCache::Part* ReplyCache::add(std::uint16_t depth, ModelPartId id) {
  if (parts_.empty() != (depth == 0)) {
    return nullptr;
  }
  std::uint32_t parent = 0;
  std::uint32_t hash = rootHash;
  if (depth != 0) {
    parent = static_cast<std::uint32_t>(parts_.size() - 1);
    while (parts_[parent].depth >= depth) {
      parent = parts_[parent].parent;
    }
    if (parts_[parent].depth + 1 != depth) {
      return nullptr;
    }
    hash = hashOfChild(parts_[parent].hash, id);
  }
  Part& part = parts_.emplace_back();
  part.hash = hash;
  part.parent = parent;
  part.depth = depth;
  part.id = id;
  return &part;
}

void ReplyCache::buildIndex() {
  std::size_t slots = 4;
  while (slots < parts_.size() * 2) {
    slots *= 2;
  }
  index_.assign(slots, noPart);
  for (std::uint32_t i = 0; i < parts_.size(); ++i) {
    std::size_t slot = parts_[i].hash & (slots - 1);
    while (index_[slot] != noPart) {
      slot = (slot + 1) & (slots - 1);
    }
    index_[slot] = i;
  }
}

std::uint32_t ReplyCache::findInIndex(ChainView chain) const {
  const std::uint32_t hash = hashOf(chain);
  const std::size_t mask = index_.size() - 1;
  for (std::size_t slot = hash & mask; index_[slot] != noPart; slot = (slot + 1) & mask) {
    const std::uint32_t at = index_[slot];
    if (parts_[at].hash == hash && hasChain(at, chain)) {
      return at >= parts_.size() - replyCount_ ? at : noPart;
    }
  }
  return noPart;
}

bool ReplyCache::hasChain(std::uint32_t part, ChainView chain) const {
  if (parts_[part].depth != chain.size()) {
    return false;
  }
  std::uint32_t at = part;
  for (std::size_t depth = chain.size(); depth > 0; --depth) {
    if (parts_[at].id != chain[depth - 1]) {
      return false;
    }
    at = parts_[at].parent;
  }
  return true;
}

PayloadReader ReplyCache::reader(std::uint32_t begin, std::uint32_t end) const {
  return PayloadReader(std::span(bytes_).subspan(begin, end - begin), order_);
}

bool ReplyCache::childIds(const Part& part, std::vector<ModelPartId>& ids) const {
  return part.childIds != part.childNames && decodeIds(reader(part.childIds, part.childNames), ids);
}

bool ReplyCache::childNames(const Part& part, std::vector<std::string>& names) const {
  return part.childNames != part.elements &&
         decodeNames(reader(part.childNames, part.elements), names);
}

bool ReplyCache::elementSum(const Part& part, std::uint16_t& sum) const {
  if (part.elements == part.value) {
    return false;
  }
  sum = part.elementCount;
  return true;
}

bool ReplyCache::elementNames(const Part& part, std::vector<std::string>& names) const {
  if (part.elements == part.value) {
    return false;
  }
  PayloadReader in = reader(part.elements, part.value);
  static_cast<void>(in.u16());
  return decodeNames(in, names);
}

template <typename Append>
bool ReplyCache::passText(const Part& part, ModelPartIndex index, ModelRes& result,
                          Append append) const {
  const bool whole = index == ModelPartIndex_All;
  if (part.value == part.end || (!whole && index >= part.elementCount)) {
    return false;
  }
  PayloadReader in = reader(part.value, part.end);
  result = static_cast<ModelRes>(in.u16());
  if (result != ModelRes_Success) {
    return true;
  }
  for (unsigned i = 0; in.left() != 0; ++i) {
    const std::size_t length = in.u32();
    const std::string_view value = in.bytes(length);
    if (!whole && i != index) {
      continue;
    }
    if (whole && i != 0) {
      append("\n");
    }
    append(value);
    if (!whole) {
      break;
    }
  }
  return true;
}

bool ReplyCache::save(const Part& part, ModelPartIndex index, std::ostringstream& text,
                      ModelRes& result) const {
  return passText(part, index, result, [&](std::string_view piece) {
    text.write(piece.data(), static_cast<std::streamsize>(piece.size()));
  });
}

bool ReplyCache::save(const Part& part, ModelPartIndex index, std::string& text,
                      ModelRes& result) const {
  std::string read;
  if (!passText(part, index, result, [&](std::string_view piece) { read += piece; })) {
    return false;
  }
  if (result == ModelRes_Success) {
    text = std::move(read);
  }
  return true;
}

}  // namespace ModelSrv::internal
