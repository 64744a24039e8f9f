#include "servers/entry_conversion.h"

#include <algorithm>
#include <utility>

#include "servers/source_conversion.h"

namespace modelsrvd {

namespace {

std::string below(Key key) {
  return '/' + std::string(nameOf(key));
}

/// The error of a text that is to be one line, if it has control characters. `shown` is the text
/// as a message shows it.
std::optional<EntryError> checkLine(const std::string& at, const std::string& text,
                                    const std::string& shown) {
  if (!ModelSrv::isLine(text)) {
    return EntryError{at, "control characters in " + shown};
  }
  return std::nullopt;
}

/// The texts of an entry that are for people, not values.
class LineTexts {
 public:
  explicit LineTexts(const RawEntry& raw) : raw_(raw) {}

  /// Sets `target` to the text of `key`, at most `maxBytes` long.
  std::optional<EntryError> read(Key key, std::size_t maxBytes, std::string& target) const {
    const auto found = raw_.scalars.find(key);
    if (found == raw_.scalars.end()) {
      return std::nullopt;
    }
    const auto* text = std::get_if<std::string>(&found->second);
    if (text == nullptr) {
      return EntryError{below(key), "expected a string, got " + toJson(found->second)};
    }
    if (text->size() > maxBytes) {
      return EntryError{below(key), "longer than " + std::to_string(maxBytes) + " bytes"};
    }
    target = *text;
    return checkLine(below(key), target, toJson(found->second));
  }

 private:
  const RawEntry& raw_;
};

/// A value as a message shows it: of a text, which is the file's, a part in one line.
std::string shown(const EntryValue& value, EntryType type) {
  const auto* text = std::get_if<std::string>(&value);
  return text != nullptr ? toJson(*text) : toText(value, type);
}

/// The limits and choices of an entry, as values.
struct Limits {
  std::optional<EntryValue> minimum;
  std::optional<EntryValue> maximum;
  std::vector<EntryValue> choices;

  /// Whether an entry of that type may have `value`; if not, the text of the error.
  [[nodiscard]] std::optional<std::string> check(const EntryValue& value, EntryType type,
                                                 const ModelSrv::PartAttributes& texts) const {
    if ((minimum && value < *minimum) || (maximum && *maximum < value)) {
      return shown(value, type) + " is not within " +
             (minimum ? texts.minimum : std::string("any number")) + " to " +
             (maximum ? texts.maximum : std::string("any number"));
    }
    if (!choices.empty() && std::find(choices.begin(), choices.end(), value) == choices.end()) {
      return shown(value, type) + " is not one of the choices";
    }
    return std::nullopt;
  }
};

std::optional<EntryError> readLimit(Key key, const RawEntry& raw, EntryType type,
                                    std::optional<EntryValue>& limit, std::string& text) {
  const auto found = raw.scalars.find(key);
  if (found == raw.scalars.end()) {
    return std::nullopt;
  }
  if (!isNumber(type)) {
    return EntryError{below(key), "not allowed for " + std::string(nameOf(type))};
  }
  auto value = toEntryValue(found->second, type);
  if (const auto* error = std::get_if<Error>(&value)) {
    return EntryError{below(key), error->text};
  }
  limit = std::get<EntryValue>(std::move(value));
  text = toText(*limit, type);
  return std::nullopt;
}

std::optional<EntryError> readChoices(const RawEntry& raw, EntryType type, Limits& limits,
                                      ModelSrv::PartAttributes& attributes) {
  if (!raw.choices.empty() && type == EntryType::boolean) {
    return EntryError{below(Key::choices), "not allowed for bool"};
  }
  for (const Scalar& scalar : raw.choices) {
    const std::string at = below(Key::choices) + '/' + std::to_string(attributes.choices.size());
    auto value = toEntryValue(scalar, type);
    if (const auto* error = std::get_if<Error>(&value)) {
      return EntryError{at, error->text};
    }
    limits.choices.push_back(std::get<EntryValue>(std::move(value)));
    attributes.choices.push_back(toText(limits.choices.back(), type));
    if (attributes.choices.back().size() > ModelSrv::ModelAttributeText_Max) {
      return EntryError{
          at, "longer than " + std::to_string(ModelSrv::ModelAttributeText_Max) + " bytes"};
    }
    if (auto error = checkLine(at, attributes.choices.back(), toJson(scalar))) {
      return error;
    }
  }
  return std::nullopt;
}

std::optional<EntryError> checkValues(const Limits& limits, const Entry& entry,
                                      const ModelSrv::PartAttributes& texts) {
  for (std::size_t i = 0; i < entry.values.size(); ++i) {
    if (auto error = limits.check(entry.values[i], entry.type, texts)) {
      const std::string element = "/elements/" + std::to_string(i);
      return EntryError{(entry.array ? element : "") + "/value", std::move(*error)};
    }
  }
  return std::nullopt;
}

std::optional<EntryError> convertAttributes(const RawEntry& raw, Entry& entry,
                                            ModelSrv::PartAttributes& attributes) {
  const LineTexts texts(raw);
  Limits limits;
  auto error = texts.read(Key::unit, ModelSrv::ModelUnit_Max, attributes.unit);
  if (!error) {
    error = texts.read(Key::text, ModelSrv::ModelAttributeText_Max, attributes.text);
  }
  if (!error) {
    error = readLimit(Key::minimum, raw, entry.type, limits.minimum, attributes.minimum);
  }
  if (!error) {
    error = readLimit(Key::maximum, raw, entry.type, limits.maximum, attributes.maximum);
  }
  if (!error && limits.minimum && limits.maximum && *limits.maximum < *limits.minimum) {
    error = EntryError{below(Key::maximum),
                       attributes.maximum + " is less than the minimum " + attributes.minimum};
  }
  if (!error) {
    error = readChoices(raw, entry.type, limits, attributes);
  }
  return error ? error : checkValues(limits, entry, attributes);
}

}  // namespace

bool isDetail(Key key) {
  switch (key) {
    case Key::unit:
    case Key::minimum:
    case Key::maximum:
    case Key::text:
    case Key::file:
    case Key::simulate:
    case Key::period:
    case Key::interval:
    case Key::scale:
    case Key::offset:
    case Key::seed:
      return true;
    default:
      return false;
  }
}

std::optional<EntryError> convertValue(const Scalar& scalar, Entry& entry) {
  auto value = toEntryValue(scalar, entry.type);
  if (const auto* error = std::get_if<Error>(&value)) {
    return EntryError{below(Key::value), error->text};
  }
  entry.values.push_back(std::move(std::get<EntryValue>(value)));
  return std::nullopt;
}

std::optional<EntryError> convertElements(const RawEntry& raw, Entry& entry) {
  entry.array = true;
  entry.values.reserve(raw.elements.size());
  std::size_t bytes = raw.elements.size() - 1;  // the line feeds between them
  for (const Scalar& scalar : raw.elements) {
    auto value = toEntryValue(scalar, entry.type);
    if (const auto* error = std::get_if<Error>(&value)) {
      return EntryError{"/elements/" + std::to_string(entry.values.size()) + "/value", error->text};
    }
    entry.values.push_back(std::move(std::get<EntryValue>(value)));
    if (const auto* text = std::get_if<std::string>(&entry.values.back())) {
      bytes += text->size();
    }
  }
  if (bytes > ModelSrv::ModelValueText_Max) {
    return EntryError{"/elements", "longer than " + std::to_string(ModelSrv::ModelValueText_Max) +
                                       " bytes in total"};
  }
  return std::nullopt;
}

std::optional<EntryError> convertDetails(const RawEntry& raw, Entry& entry) {
  if (raw.scalars.empty() && raw.choices.empty()) {
    return std::nullopt;
  }
  auto details = std::make_shared<EntryDetails>();
  auto error = convertAttributes(raw, entry, details->attributes);
  if (!error) {
    error = convertSource(raw, entry, *details);
  }
  entry.details = std::move(details);
  return error;
}

}  // namespace modelsrvd
