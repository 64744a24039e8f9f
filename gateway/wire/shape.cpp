#include "gateway/wire/shape.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <numeric>

#include "gateway/wire/cbor_reader.h"
#include "gateway/wire/cbor_writer.h"
#include "gateway/wire/limits.h"
#include "gateway/wire/shape_check.h"

namespace modelgate {

namespace {

using namespace ModelSrv;

/// The types that have a number.
constexpr std::array<std::string_view, 14> types{"node",   "",      "bool",   "int8",   "int16",
                                                 "int32",  "int64", "uint8",  "uint16", "uint32",
                                                 "uint64", "float", "double", "text"};

constexpr std::uint64_t accessMask = 3;
constexpr std::uint64_t notSubscribable = 4;

/// The longest of the texts of a part, which `ShapeCheck` checks one by one.
constexpr std::size_t maxText = ModelName_Max;

std::uint64_t flagsOf(const ShapePart& part) {
  return part.access | (part.subscribable ? 0 : notSubscribable);
}

/// The fields of a part up to the last one that is not the default.
std::size_t countFields(const ShapePart& part) {
  return part.attributes != PartAttributes() ? 8
         : !part.elementNames.empty()        ? 7
         : part.elements != 0                ? 6
         : flagsOf(part) != 0                ? 5
         : part.type != types.front()        ? 4
                                             : 3;
}

void writeType(CborWriter& writer, const std::string& type) {
  const auto* const found = std::find(types.begin(), types.end(), type);
  if (found == types.end()) {
    writer.text(type);
  } else {
    writer.number(static_cast<std::uint64_t>(found - types.begin()));
  }
}

void writeAttributes(CborWriter& writer, const PartAttributes& attributes) {
  const std::array<std::pair<std::string_view, const std::string&>, 4> texts{
      {{"unit", attributes.unit},
       {"min", attributes.minimum},
       {"max", attributes.maximum},
       {"text", attributes.text}}};
  const auto stated = std::count_if(texts.begin(), texts.end(),
                                    [](const auto& text) { return !text.second.empty(); });
  writer.map(static_cast<std::size_t>(stated) + (attributes.choices.empty() ? 0 : 1));
  for (const auto& [key, text] : texts) {
    if (!text.empty()) {
      writer.text(key);
      writer.text(text);
    }
  }
  if (!attributes.choices.empty()) {
    writer.text("choices");
    writer.array(attributes.choices.size());
    for (const std::string& choice : attributes.choices) {
      writer.text(choice);
    }
  }
}

void writePart(CborWriter& writer, const ShapePart& part) {
  const std::size_t fields = countFields(part);
  writer.array(fields);
  writer.number(part.depth);
  writer.number(part.id);
  writer.string(part.name);
  if (fields > 3) {
    writeType(writer, part.type);
  }
  if (fields > 4) {
    writer.number(flagsOf(part));
  }
  if (fields > 5) {
    writer.number(part.elements);
  }
  if (fields > 6) {
    writer.array(part.elementNames.size());
    for (const std::string& name : part.elementNames) {
      writer.string(name);
    }
  }
  if (fields > 7) {
    writeAttributes(writer, part.attributes);
  }
}

bool readNumber(CborReader& reader, std::uint64_t maximum, unsigned& number) {
  std::uint64_t read = 0;
  if (!reader.readUnsigned(read, maximum)) {
    return false;
  }
  number = static_cast<unsigned>(read);
  return true;
}

bool readString(CborReader& reader, std::string& text) {
  std::string_view read;
  if (!reader.readString(read, maxText)) {
    return false;
  }
  text = read;
  return true;
}

/// As `readString`, a text string only.
bool readText(CborReader& reader, std::string& text) {
  return reader.kind() == CborReader::Kind::text ? readString(reader, text) : reader.fail();
}

bool readType(CborReader& reader, std::string& type) {
  if (reader.kind() != CborReader::Kind::unsignedNumber) {
    return readText(reader, type);
  }
  std::uint64_t number = 0;
  reader.readUnsigned(number, maxExact);
  // A type that only a later version knows is not known.
  type = number < types.size() ? types[number] : "";
  return !reader.hasFailed();
}

bool readTexts(CborReader& reader, std::size_t maximum, bool mayBeBytes,
               std::vector<std::string>& texts) {
  CborItems items;
  if (!reader.enterArray(items)) {
    return false;
  }
  while (reader.next(items)) {
    std::string& text = texts.emplace_back();
    if (texts.size() > maximum ||
        !(mayBeBytes ? readString(reader, text) : readText(reader, text))) {
      return reader.fail();
    }
  }
  return !reader.hasFailed();
}

bool readAttributes(CborReader& reader, PartAttributes& attributes) {
  CborItems pairs;
  if (!reader.enterMap(pairs)) {
    return false;
  }
  while (reader.next(pairs)) {
    std::string_view key;
    if (!reader.readText(key, maxText)) {
      return false;
    }
    std::string* const text = key == "unit"   ? &attributes.unit
                              : key == "min"  ? &attributes.minimum
                              : key == "max"  ? &attributes.maximum
                              : key == "text" ? &attributes.text
                                              : nullptr;
    if (text != nullptr) {
      // A key that is there twice would make the meaning depend on the reader.
      const bool isFirst = text->empty();
      if (!isFirst || !readText(reader, *text)) {
        return reader.fail();
      }
    } else if (key == "choices") {
      if (!attributes.choices.empty() ||
          !readTexts(reader, ModelChoices_Max, false, attributes.choices)) {
        return reader.fail();
      }
    } else {
      reader.skip();
    }
  }
  return !reader.hasFailed();
}

bool readFlags(CborReader& reader, ShapePart& part) {
  std::uint64_t flags = 0;
  if (!reader.readUnsigned(flags, maxExact)) {
    return false;
  }
  part.access = static_cast<ModelPartStatus>(flags & accessMask);
  part.subscribable = (flags & notSubscribable) == 0;
  return true;
}

bool readPart(CborReader& reader, ShapePart& part) {
  CborItems fields;
  unsigned id = 0;
  if (!reader.enterArray(fields) || !reader.next(fields) ||
      !readNumber(reader, ModelDepth_Max, part.depth) || !reader.next(fields) ||
      !readNumber(reader, ModelPartId_Max, id) || !reader.next(fields) ||
      !readString(reader, part.name)) {
    return reader.fail();
  }
  part.id = static_cast<ModelPartId>(id);
  part.type = types.front();
  return !((reader.next(fields) && !readType(reader, part.type)) ||
           (reader.next(fields) && !readFlags(reader, part)) ||
           (reader.next(fields) && !readNumber(reader, ModelPartElements_Max, part.elements)) ||
           (reader.next(fields) &&
            !readTexts(reader, ModelPartElements_Max, true, part.elementNames)) ||
           (reader.next(fields) && !readAttributes(reader, part.attributes))) &&
         reader.skipRest(fields);
}

bool haveAllowedSizes(std::span<const std::string> pages) {
  return !pages.empty() && pages.size() <= maxPages &&
         std::all_of(pages.begin(), pages.end(),
                     [](const std::string& page) { return page.size() <= maxPage; });
}

}  // namespace

std::vector<std::string> encodeShape(const Shape& shape) {
  std::string all;
  CborWriter writer(all);
  ShapeCheck check;
  std::string error;
  for (const ShapePart& part : shape) {
    if (!check.add(part, error) || all.size() > maxPages * maxPage) {
      return {};
    }
    writePart(writer, part);
  }
  if (!check.finish(error) || all.size() > maxPages * maxPage) {
    return {};
  }
  std::vector<std::string> pages;
  std::size_t begin = 0;
  do {
    pages.push_back(all.substr(begin, maxPage));
    begin += maxPage;
  } while (begin < all.size());
  return pages;
}

bool visitShape(std::span<const std::string> pages,
                const std::function<bool(ShapePart& part)>& visitor, std::string& error) {
  error.clear();
  if (!haveAllowedSizes(pages)) {
    error = "there are too many pages of the shape, or none, or one is too large";
    return false;
  }
  std::string joined;
  if (pages.size() > 1) {
    joined.reserve(std::accumulate(
        pages.begin(), pages.end(), std::size_t{0},
        [](std::size_t sum, const std::string& page) { return sum + page.size(); }));
    for (const std::string& page : pages) {
      joined += page;
    }
  }
  CborReader reader(pages.size() > 1 ? joined : pages.front());
  ShapeCheck check;
  for (std::size_t count = 0; !reader.isAtEnd(); ++count) {
    ShapePart part;
    if (!readPart(reader, part)) {
      error = "part " + std::to_string(count) + " of the shape is malformed";
      return false;
    }
    if (!check.add(part, error) || !visitor(part)) {
      return false;
    }
  }
  return check.finish(error);
}

std::optional<Shape> decodeShape(std::span<const std::string> pages, std::string& error) {
  Shape shape;
  const bool isRight = visitShape(
      pages,
      [&shape](ShapePart& part) {
        shape.push_back(std::move(part));
        return true;
      },
      error);
  return isRight ? std::optional(std::move(shape)) : std::nullopt;
}

std::string pageHash(std::string_view page) {
  constexpr std::size_t kept = 16;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (EVP_Digest(page.data(), page.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    return {};
  }
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < kept; ++i) {
    text += digits[digest[i] >> 4U];
    text += digits[digest[i] & 0xFU];
  }
  return text;
}

}  // namespace modelgate
