#include "gateway/wire/fields.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "gateway/wire/cbor_reader.h"
#include "gateway/wire/cbor_writer.h"
#include "gateway/wire/json_reader.h"
#include "gateway/wire/limits.h"
#include "gateway/wire/utf8.h"

namespace modelgate {

namespace {

using namespace ModelSrv;

/// Finds known keys, and refuses one that comes again: its meaning would depend on the reader.
class KnownKeys {
 public:
  explicit KnownKeys(FieldKeys keys) : keys_(keys) {}

  [[nodiscard]] std::size_t find(std::string_view name) const {
    return static_cast<std::size_t>(std::find(keys_.begin(), keys_.end(), name) - keys_.begin());
  }

  [[nodiscard]] bool isKnown(std::size_t key) const { return key < keys_.size(); }

  /// Whether `key` was not taken before.
  bool take(std::size_t key) {
    const bool isFirst = (taken_ >> key & 1U) == 0;
    taken_ |= 1U << key;
    return isFirst;
  }

  [[nodiscard]] std::string name(std::size_t key) const { return std::string(keys_[key]); }

 private:
  FieldKeys keys_;
  unsigned taken_ = 0;
};

std::string wrongValue(const std::string& key) {
  return "\"" + key + "\" has a wrong value";
}

bool readChain(CborReader& reader, Field& field) {
  CborItems items;
  if (!reader.enterArray(items)) {
    return false;
  }
  while (reader.next(items)) {
    std::uint64_t id = 0;
    if (field.chain.size() == ModelDepth_Max || !reader.readUnsigned(id, ModelPartId_Max)) {
      return reader.fail();
    }
    field.chain.push_back(static_cast<ModelPartId>(id));
  }
  return !reader.hasFailed();
}

bool readField(CborReader& reader, Field& field) {
  std::string_view text;
  std::int64_t number = 0;
  switch (reader.kind()) {
    case CborReader::Kind::unsignedNumber:
      field.kind = Field::Kind::unsignedNumber;
      return reader.readUnsigned(field.number, UINT64_MAX);
    case CborReader::Kind::negativeNumber:
      field.kind = Field::Kind::negativeNumber;
      if (!reader.readSigned(number, static_cast<std::int64_t>(maxExact))) {
        return false;
      }
      field.number = static_cast<std::uint64_t>(-number);
      return true;
    case CborReader::Kind::boolean:
      field.kind = Field::Kind::boolean;
      return reader.readBoolean(field.isTrue);
    case CborReader::Kind::text:
    case CborReader::Kind::bytes:
      field.kind = reader.kind() == CborReader::Kind::text ? Field::Kind::text : Field::Kind::bytes;
      if (!reader.readString(text, maxPayload)) {
        return false;
      }
      field.text = text;
      return true;
    case CborReader::Kind::array:
      field.kind = Field::Kind::chain;
      return readChain(reader, field);
    default:
      return reader.skip();
  }
}

bool readCborFields(std::string_view payload, FieldKeys keys, const FieldVisitor& visitor,
                    std::string& error) {
  CborReader reader(payload);
  KnownKeys known(keys);
  CborItems pairs;
  reader.enterMap(pairs);
  while (reader.next(pairs)) {
    std::string_view name;
    if (!reader.readText(name, payload.size())) {
      break;
    }
    const std::size_t key = known.find(name);
    if (!known.isKnown(key)) {
      reader.skip();
      continue;
    }
    Field field;
    if (!known.take(key) || !readField(reader, field) || !visitor(key, field)) {
      error = wrongValue(known.name(key));
      return false;
    }
  }
  if (!reader.isAtEnd()) {
    error = "expected a CBOR map with text keys";
    return false;
  }
  return true;
}

/// Makes fields of what a JSON text has.
class JsonFields final : public JsonVisitor {
 public:
  JsonFields(FieldKeys keys, const FieldVisitor& visitor) : known_(keys), visitor_(visitor) {}

  bool visit(JsonPath path, const JsonItem& item) override {
    if (path.empty()) {
      return item.kind == JsonItem::Kind::object;
    }
    if (path.size() > 1) {
      return !isInChain_ || addId(path, item);
    }
    if (!flush()) {
      return false;
    }
    const std::size_t key = known_.find(path.front());
    if (!known_.isKnown(key)) {
      return true;
    }
    wrong_ = known_.name(key);
    if (!known_.take(key)) {
      return false;
    }
    if (item.kind == JsonItem::Kind::array) {
      // Complete when what follows it comes.
      isInChain_ = true;
      chainKey_ = key;
      chain_ = {};
      chain_.kind = Field::Kind::chain;
      return true;
    }
    Field field = toField(item);
    return pass(key, field);
  }

  /// Passes an array at the end of the object on.
  bool flush() {
    if (!isInChain_) {
      return true;
    }
    isInChain_ = false;
    wrong_ = known_.name(chainKey_);
    return pass(chainKey_, chain_);
  }

  /// The key whose value was wrong, or empty.
  [[nodiscard]] const std::string& wrong() const { return wrong_; }

 private:
  static Field toField(const JsonItem& item) {
    Field field;
    field.number = item.number;
    field.text = item.text;
    field.isTrue = item.text == "true";
    switch (item.kind) {
      case JsonItem::Kind::unsignedNumber:
        field.kind = Field::Kind::unsignedNumber;
        break;
      case JsonItem::Kind::negativeNumber:
        field.kind = Field::Kind::negativeNumber;
        break;
      case JsonItem::Kind::boolean:
        field.kind = Field::Kind::boolean;
        break;
      case JsonItem::Kind::text:
        field.kind = Field::Kind::text;
        break;
      default:
        // Of a number the text is kept; an object and null have none.
        field.text = item.kind == JsonItem::Kind::real ? field.text : std::string();
        break;
    }
    return field;
  }

  bool addId(JsonPath path, const JsonItem& item) {
    if (path.size() > 2 || item.kind != JsonItem::Kind::unsignedNumber ||
        item.number > ModelPartId_Max || chain_.chain.size() == ModelDepth_Max) {
      return false;
    }
    chain_.chain.push_back(static_cast<ModelPartId>(item.number));
    return true;
  }

  bool pass(std::size_t key, Field& field) {
    if (!visitor_(key, field)) {
      return false;
    }
    wrong_.clear();
    return true;
  }

  KnownKeys known_;
  const FieldVisitor& visitor_;
  std::string wrong_;
  bool isInChain_ = false;
  std::size_t chainKey_ = 0;
  Field chain_;
};

}  // namespace

bool readFields(std::string_view payload, Format format, FieldKeys keys,
                const FieldVisitor& visitor, std::string& error) {
  if (payload.size() > maxPayload) {
    error = "the message is too large";
    return false;
  }
  if (format == Format::cbor) {
    return readCborFields(payload, keys, visitor, error);
  }
  JsonFields fields(keys, visitor);
  if (readJson(payload, fields) && fields.flush()) {
    return true;
  }
  error = fields.wrong().empty() ? "expected a JSON object" : wrongValue(fields.wrong());
  return false;
}

FieldWriter::FieldWriter(Format format) : format_(format) {
  // The number of keys is written at the end.
  out_ = format == Format::cbor ? std::string(1, '\0') : "{";
}

void FieldWriter::begin(std::string_view key) {
  if (format_ == Format::cbor) {
    CborWriter(out_).text(key);
  } else {
    out_ += count_ == 0 ? "\"" : ",\"";
    out_.append(key).append("\":");
  }
  ++count_;
}

void FieldWriter::number(std::string_view key, std::uint64_t value) {
  begin(key);
  if (format_ == Format::cbor) {
    CborWriter(out_).number(value);
  } else {
    out_ += std::to_string(value);
  }
}

void FieldWriter::signedNumber(std::string_view key, std::int64_t value) {
  begin(key);
  if (format_ == Format::cbor) {
    CborWriter(out_).signedNumber(value);
  } else {
    out_ += std::to_string(value);
  }
}

void FieldWriter::boolean(std::string_view key, bool value) {
  begin(key);
  if (format_ == Format::cbor) {
    CborWriter(out_).boolean(value);
  } else {
    out_ += value ? "true" : "false";
  }
}

void FieldWriter::text(std::string_view key, std::string_view text) {
  begin(key);
  if (format_ == Format::cbor) {
    CborWriter(out_).string(text);
  } else {
    out_ += quoteJson(text);
  }
}

void FieldWriter::bytes(std::string_view key, std::string_view text) {
  begin(key);
  CborWriter(out_).bytes(text);
}

void FieldWriter::chain(std::string_view key, std::span<const ModelPartId> chain) {
  begin(key);
  if (format_ == Format::cbor) {
    CborWriter writer(out_);
    writer.array(chain.size());
    for (const ModelPartId id : chain) {
      writer.number(id);
    }
    return;
  }
  out_ += '[';
  for (const ModelPartId& id : chain) {
    out_ += (&id == chain.data() ? "" : ",") + std::to_string(id);
  }
  out_ += ']';
}

std::string FieldWriter::finish() {
  if (format_ == Format::cbor) {
    std::string head;
    CborWriter(head).map(count_);
    out_.replace(0, 1, head);
  } else {
    out_ += '}';
  }
  return std::move(out_);
}

std::string quoteJson(std::string_view text) {
  return nlohmann::json(toUtf8(text)).dump();
}

}  // namespace modelgate
