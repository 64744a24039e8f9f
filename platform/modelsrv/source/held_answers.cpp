#include "modelsrv/source/held_answers.h"

#include <algorithm>
#include <limits>

#include "modelsrv/source/excerpt_writer.h"
#include "modelsrv/source/replies.h"

namespace ModelSrv::internal {

using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::LivePagePlace;
using EvtSrv::internal::PayloadReader;

namespace {

constexpr std::uint32_t noPart = std::numeric_limits<std::uint32_t>::max();
/// How many parts are asked for at the most; a reply that tells of more is malformed.
constexpr std::size_t mostParts = 4096;
/// A server writes less; what is longer is not worth reading.
constexpr std::size_t longestExcerpt = std::size_t{256} * 1024;
constexpr std::uint64_t rootHash = 0x9E3779B97F4A7C15;

std::uint64_t hashBelow(std::uint64_t parent, ModelPartId id) {
  std::uint64_t hash = (parent ^ (id + 1U)) * 0xFF51AFD7ED558CCD;
  hash ^= hash >> 32;
  return hash;
}

std::uint64_t hashOf(ChainView chain) {
  std::uint64_t hash = rootHash;
  for (const ModelPartId id : chain)
    hash = hashBelow(hash, id);
  return hash;
}

/// What `read` reads over.
template <typename Read>
HeldAnswers::Slice sliceOf(PayloadReader& in, Read read) {
  const std::size_t start = in.position();
  read();
  return {static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(in.position() - start)};
}

HeldAnswers::Slice skipIds(PayloadReader& in) {
  return sliceOf(in, [&in] {
    const std::size_t count = in.u16();
    (void)in.bytes(count * sizeof(ModelPartId));
  });
}

HeldAnswers::Slice skipNames(PayloadReader& in) {
  return sliceOf(in, [&in] {
    const std::size_t count = in.u16();
    for (std::size_t i = 0; i < count && in.ok(); ++i) {
      const std::size_t length = in.u16();
      (void)in.bytes(length);
    }
  });
}

HeldAnswers::Slice skipTexts(PayloadReader& in, unsigned count) {
  return sliceOf(in, [&in, count] {
    for (unsigned i = 0; i < count && in.ok(); ++i) {
      const std::size_t length = in.u32();
      (void)in.bytes(length);
    }
  });
}

/// Reads what an excerpt tells of one part; false where that is malformed.
bool readPart(PayloadReader& in, HeldAnswers::Part& part) {
  part.depth = in.u16();
  part.id = in.u16();
  const std::uint8_t has = in.u8();
  if ((has & excerptChildren) != 0) {
    part.childIds = skipIds(in);
    part.childNames = skipNames(in);
  }
  if ((has & excerptElements) != 0) {
    part.elements = in.u16();
    part.elementNames = skipNames(in);
  }
  if ((has & excerptValue) != 0) {
    part.result = in.u16();
    const unsigned texts = std::max<unsigned>(part.elements, 1);
    part.value = skipTexts(in, part.result == ModelRes_Success ? texts : 0);
    if ((has & excerptElements) == 0 || decodeResult(part.result) == ModelRes_Protocol)
      return false;
  }
  return in.ok();
}

}  // namespace

const HeldAnswers::Part* HeldAnswers::find(ChainView chain, Wanted wanted) {
  if (epoch_ == 0 || !(wanted == Wanted::value ? page_.shows(epoch_) : page_.showsEraOf(epoch_)))
    return nullptr;
  // A listing asks about a part several times, then about the next one.
  if (!isAt(last_, chain)) {
    const std::uint32_t found =
        last_ + 1 < parts_.size() && isAt(last_ + 1, chain) ? last_ + 1 : lookUp(chain);
    if (found == noPart)
      return nullptr;
    last_ = found;
  }
  Part& part = parts_[last_];
  if (!part.asked) {
    part.asked = true;
    ++asked_;
  }
  return &part;
}

std::uint16_t HeldAnswers::partsToAskFor() const {
  return static_cast<std::uint16_t>(std::clamp<std::size_t>(asked_ * 4, 1, mostParts));
}

const HeldAnswers::Part* HeldAnswers::take(ChainView chain, std::span<const std::uint8_t> reply,
                                           ByteOrder order) {
  clear();
  if (reply.size() > longestExcerpt)
    return nullptr;
  bytes_.assign(reply.begin(), reply.end());
  order_ = order;
  PayloadReader in(bytes_, order);
  LivePagePlace place;
  std::uint64_t epoch = 0;
  if (!readPlace(in, place, epoch))
    return nullptr;
  addAbove(chain);
  const auto wanted = static_cast<std::uint32_t>(parts_.size());
  do {
    Part part;
    if (parts_.size() - wanted == mostParts || !readPart(in, part) || !add(part)) {
      clear();
      return nullptr;
    }
  } while (in.left() != 0);
  if (!isAt(wanted, chain)) {
    clear();
    return nullptr;
  }
  told_ = parts_.size() - wanted;
  last_ = wanted;
  makeIndex();
  parts_[wanted].asked = true;
  asked_ = 1;
  if ((page_.isOpen() && page_.place() == place) || page_.open(place))
    epoch_ = epoch;
  return &parts_[wanted];
}

void HeldAnswers::clear() {
  epoch_ = 0;
  parts_.clear();
  index_.clear();
  told_ = 0;
  asked_ = 0;
}

bool HeldAnswers::readPlace(PayloadReader& in, LivePagePlace& place, std::uint64_t& epoch) {
  place.process = in.u32();
  place.descriptor = in.u32();
  const std::string_view id = in.bytes(place.id.size());
  std::copy(id.begin(), id.end(), place.id.begin());
  epoch = std::uint64_t{in.u32()} << 32;
  epoch |= in.u32();
  return in.ok();
}

/// What lies above the first part of the excerpt has no answer but is part of the
/// others' chains.
void HeldAnswers::addAbove(ChainView chain) {
  for (std::size_t depth = 0; depth < chain.size(); ++depth) {
    Part part;
    part.depth = static_cast<std::uint16_t>(depth);
    part.id = depth == 0 ? ModelPartId_Void : chain[depth - 1];
    (void)add(part);
  }
}

/// Appends a part whose depth and id are set, below the last one of lower depth;
/// false where that is more than one level above.
bool HeldAnswers::add(Part& part) {
  if (parts_.empty() != (part.depth == 0))
    return false;
  if (part.depth == 0) {
    part.hash = rootHash;
  } else {
    part.parent = static_cast<std::uint32_t>(parts_.size() - 1);
    while (parts_[part.parent].depth >= part.depth)
      part.parent = parts_[part.parent].parent;
    const Part& parent = parts_[part.parent];
    if (parent.depth + 1 != part.depth)
      return false;
    part.hash = hashBelow(parent.hash, part.id);
  }
  parts_.push_back(part);
  return true;
}

void HeldAnswers::makeIndex() {
  std::size_t slots = 4;
  while (slots < parts_.size() * 2)
    slots *= 2;
  index_.assign(slots, noPart);
  for (std::uint32_t i = 0; i < parts_.size(); ++i) {
    std::size_t slot = parts_[i].hash & (slots - 1);
    while (index_[slot] != noPart)
      slot = (slot + 1) & (slots - 1);
    index_[slot] = i;
  }
}

std::uint32_t HeldAnswers::lookUp(ChainView chain) const {
  const std::uint64_t hash = hashOf(chain);
  const std::size_t mask = index_.size() - 1;
  for (std::size_t slot = hash & mask; index_[slot] != noPart; slot = (slot + 1) & mask) {
    const std::uint32_t at = index_[slot];
    if (parts_[at].hash == hash && isAt(at, chain))
      return at >= parts_.size() - told_ ? at : noPart;
  }
  return noPart;
}

bool HeldAnswers::isAt(std::uint32_t part, ChainView chain) const {
  if (parts_[part].depth != chain.size())
    return false;
  std::uint32_t at = part;
  for (std::size_t depth = chain.size(); depth > 0; --depth) {
    if (parts_[at].id != chain[depth - 1])
      return false;
    at = parts_[at].parent;
  }
  return true;
}

PayloadReader HeldAnswers::reader(Slice slice) const {
  return PayloadReader(std::span(bytes_).subspan(slice.at, slice.size), order_);
}

bool HeldAnswers::childIds(const Part& part, std::vector<ModelPartId>& ids) const {
  return part.childIds.at != 0 && decodeIds(reader(part.childIds), ids);
}

bool HeldAnswers::childNames(const Part& part, std::vector<std::string>& names) const {
  return part.childNames.at != 0 && decodeNames(reader(part.childNames), names);
}

bool HeldAnswers::elementSum(const Part& part, std::uint16_t& sum) const {
  if (part.elementNames.at == 0)
    return false;
  sum = part.elements;
  return true;
}

bool HeldAnswers::elementNames(const Part& part, std::vector<std::string>& names) const {
  return part.elementNames.at != 0 && decodeNames(reader(part.elementNames), names);
}

bool HeldAnswers::save(const Part& part, ModelPartIndex index, std::ostringstream& text,
                       ModelRes& result) const {
  const bool whole = index == ModelPartIndex_All;
  if (part.value.at == 0 || (!whole && index >= part.elements))
    return false;
  result = static_cast<ModelRes>(part.result);
  if (result != ModelRes_Success)
    return true;
  PayloadReader in = reader(part.value);
  for (unsigned i = 0; in.left() != 0; ++i) {
    const std::size_t length = in.u32();
    const std::string_view value = in.bytes(length);
    if (!whole && i != index)
      continue;
    if (whole && i != 0)
      text << '\n';
    text.write(value.data(), static_cast<std::streamsize>(value.size()));
    if (!whole)
      break;
  }
  return true;
}

}  // namespace ModelSrv::internal
