#include "modelsrv/source/description.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "modelsrv/source/line_text.h"
#include "modelsrv/source/part_access.h"
#include "modelsrv/source/replies.h"

namespace ModelSrv::internal {

namespace {

using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;

/// The numbers of the attributes in a payload.
enum class AttributeKey : std::uint16_t {
  unit = 1,
  minimum = 2,
  maximum = 3,
  text = 4,
  choice = 5,  ///< once for each
};

/// Calls `visit(key, text)` for each attribute that is stated.
template <typename Visit>
void forEachAttribute(const PartAttributes& attributes, Visit visit) {
  for (const auto& [key, text] : std::initializer_list<std::pair<AttributeKey, std::string_view>>{
           {AttributeKey::unit, attributes.unit},
           {AttributeKey::minimum, attributes.minimum},
           {AttributeKey::maximum, attributes.maximum},
           {AttributeKey::text, attributes.text}}) {
    if (!text.empty()) {
      visit(key, text);
    }
  }
  for (const std::string& choice : attributes.choices) {
    visit(AttributeKey::choice, choice);
  }
}

std::size_t maxSizeOf(AttributeKey key) {
  return key == AttributeKey::unit ? ModelUnit_Max : ModelAttributeText_Max;
}

void assign(AttributeKey key, std::string_view given, PartAttributes& attributes) {
  const auto set = [&](std::string& text) { text = toLine(given, maxSizeOf(key)); };
  switch (key) {
    case AttributeKey::unit:
      return set(attributes.unit);
    case AttributeKey::minimum:
      return set(attributes.minimum);
    case AttributeKey::maximum:
      return set(attributes.maximum);
    case AttributeKey::text:
      return set(attributes.text);
    case AttributeKey::choice:
      if (attributes.choices.size() < ModelChoices_Max) {
        set(attributes.choices.emplace_back());
      }
      return;
  }
}

}  // namespace

PartDescription descriptionOf(ModelPart& part) {
  PartDescription description;
  description.type = PartAccess::asNode(part) != nullptr ? "node" : PartAccess::typeName(part);
  description.access = part.status();
  description.subscribable = PartAccess::subscribable(part);
  description.elements = PartAccess::elementCount(part);
  description.elementNames = PartAccess::elementNames(part);
  if (const PartAttributes* attributes = PartAccess::attributes(part)) {
    description.attributes = *attributes;
  }
  return description;
}

bool hasValidTexts(const PartAttributes& attributes) {
  bool valid = attributes.choices.size() <= ModelChoices_Max;
  forEachAttribute(attributes, [&valid](AttributeKey key, std::string_view text) {
    valid = valid && text.size() <= maxSizeOf(key) && isLine(text);
  });
  return valid;
}

bool areElementNames(const std::vector<std::string>& names, unsigned elements) {
  return names.empty() || names.size() == elements;
}

bool encodeDescription(const PartDescription& description, std::vector<std::uint8_t>& payload) {
  const std::size_t start = payload.size();
  PayloadWriter writer(payload);
  writer.u16(static_cast<std::uint16_t>(description.type.size()));
  writer.bytes(description.type);
  writer.u16(description.access);
  writer.u8(description.subscribable ? 1 : 0);
  writer.u16(static_cast<std::uint16_t>(description.elements));
  CountedReply names(payload);
  for (const std::string& name : description.elementNames) {
    names.addName(name);
  }
  std::uint16_t count = 0;
  forEachAttribute(description.attributes, [&count](AttributeKey, std::string_view) { ++count; });
  writer.u16(count);
  forEachAttribute(description.attributes, [&writer](AttributeKey key, std::string_view text) {
    writer.u16(static_cast<std::uint16_t>(key));
    writer.u16(static_cast<std::uint16_t>(text.size()));
    writer.bytes(text);
  });
  return names.fits() && payload.size() - start <= EvtSrv::internal::maxPayload;
}

bool decodeDescription(PayloadReader payload, PartDescription& description) {
  PartDescription decoded;
  constexpr std::size_t maxTypeBytes = 64;
  decoded.type = toLine(payload.bytes(payload.u16()), maxTypeBytes);
  decoded.access = payload.u16();
  decoded.subscribable = payload.u8() != 0;
  decoded.elements = payload.u16();
  if (!readNames(payload, decoded.elementNames) ||
      !areElementNames(decoded.elementNames, decoded.elements)) {
    return false;
  }
  const std::size_t count = payload.u16();
  for (std::size_t i = 0; i < count && payload.ok(); ++i) {
    const auto key = static_cast<AttributeKey>(payload.u16());
    const std::size_t length = payload.u16();
    assign(key, payload.bytes(length), decoded.attributes);
  }
  if (!payload.ok() || payload.left() != 0) {
    return false;
  }
  description = std::move(decoded);
  return true;
}

}  // namespace ModelSrv::internal
