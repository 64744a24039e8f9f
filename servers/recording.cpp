#include "servers/recording.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "servers/entry_values.h"

namespace modelsrvd {

namespace {

using Json = nlohmann::json;

constexpr std::int64_t microsecondsPerSecond = 1000000;

/// The time of "2026-11-21T09:30:01.000123Z".
std::optional<std::int64_t> timeOf(const std::string& text) {
  tm parts{};
  const char* const rest = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S.", &parts);
  constexpr std::size_t digits = 6;
  std::int64_t microseconds = 0;
  if (rest == nullptr || std::string_view(rest).size() != digits + 1 || rest[digits] != 'Z' ||
      std::from_chars(rest, rest + digits, microseconds).ptr != rest + digits || microseconds < 0) {
    return std::nullopt;
  }
  return std::int64_t{::timegm(&parts)} * microsecondsPerSecond + microseconds;
}

/// The bytes that `text` stands for in Base64.
std::optional<std::string> bytesOfBase64(std::string_view text) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t end = std::min(text.find('='), text.size());
  if (text.size() % 4 != 0 || text.size() - end > 2 ||
      text.find_first_not_of('=', end) != std::string_view::npos) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  unsigned count = 0;
  for (const char character : text.substr(0, end)) {
    const std::size_t digit = digits.find(character);
    if (digit == std::string_view::npos) {
      return std::nullopt;
    }
    bits = bits << 6U | static_cast<std::uint32_t>(digit);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count & 0xFFU);
    }
  }
  return bytes;
}

/// A decimal number of at most `most`.
std::optional<std::uint64_t> numberOf(const std::string& text, std::uint64_t most) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  const bool isNumber = read.ec == std::errc{} && read.ptr == end && number <= most;
  return isNumber ? std::optional(number) : std::nullopt;
}

/// Takes the events of a JSON parser for one line, and stops it at the first error. Keys that it
/// does not know, and what they have, are ignored.
class LineReader final : public nlohmann::json_sax<Json> {
 public:
  bool null() override;
  bool boolean(bool value) override { return scalar(value ? "true" : "false", false); }
  /// The parser makes an integer of "-0", as floating point has it.
  bool number_integer(std::int64_t value) override {
    return scalar(value == 0 ? "-0" : std::to_string(value), false);
  }
  bool number_unsigned(std::uint64_t value) override {
    return scalar(std::to_string(value), false);
  }
  bool number_float(double /*value*/, const std::string& text) override {
    return scalar(text, false);
  }
  bool string(std::string& text) override { return scalar(std::move(text), true); }
  bool binary(Json::binary_t& /*bytes*/) override { return fail("no JSON"); }
  bool start_object(std::size_t /*size*/) override;
  bool key(std::string& name) override;
  bool end_object() override;
  bool start_array(std::size_t /*size*/) override;
  bool end_array() override;
  bool parse_error(std::size_t charactersRead, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return fail("no JSON at byte " + std::to_string(charactersRead));
  }

  [[nodiscard]] Result<RecordingHeader> takeHeader();
  [[nodiscard]] Result<RecordedChange> takeChange();

 private:
  /// Where in the line: in its object, the array of values or of described parts, the object of
  /// one of these, or an array of texts in it.
  enum class Level { start, line, values, parts, part, texts };

  bool fail(std::string what);
  bool expected(const std::string& what) {
    return fail("expected " + what + " for \"" + key_ + '"');
  }
  bool scalar(std::string text, bool isString);
  bool lineField(std::string text, bool isString);
  bool partField(std::string text, bool isString);
  bool addValue(std::string text, bool isString);
  bool addIds();

  RecordedPart& part() { return level_ == Level::line ? change_.part : parts_->back(); }

  Level level_ = Level::start;
  std::size_t ignored_ = 0;  ///< how many objects and arrays the parser is in that are ignored
  std::string key_;
  std::string format_;
  std::optional<std::int64_t> time_;
  RecordingHeader header_;
  RecordedChange change_;
  std::vector<RecordedPart>* parts_ = &header_.parts;  ///< where those of an array go
  std::vector<std::string>* texts_ = nullptr;          ///< likewise
  Level afterTexts_ = Level::part;                     ///< where their array is
  std::optional<RecordedChange::Event> structure_;
  std::vector<std::string> ids_;
  bool isBase64_ = false;
  bool hasParts_ = false;
  bool hasValue_ = false;
  std::optional<Error> error_;
};

bool LineReader::fail(std::string what) {
  error_ = Error{std::move(what)};
  return false;
}

bool LineReader::null() {
  const bool isValue =
      level_ == Level::values || (level_ == Level::line && key_.starts_with("value"));
  return ignored_ != 0 || !isValue || expected("a value");
}

bool LineReader::start_object(std::size_t /*size*/) {
  if (ignored_ != 0) {
    ++ignored_;
  } else if (level_ == Level::start) {
    level_ = Level::line;
  } else if (level_ == Level::parts) {
    level_ = Level::part;
    parts_->emplace_back();
    if (parts_ == &header_.nodes) {
      parts_->back().type = EntryType::node;
    }
  } else if (level_ == Level::values || level_ == Level::texts) {
    return expected("values");
  } else {
    ignored_ = 1;
  }
  return true;
}

bool LineReader::key(std::string& name) {
  if (ignored_ == 0) {
    key_ = std::move(name);
  }
  return true;
}

bool LineReader::end_object() {
  if (ignored_ != 0) {
    --ignored_;
  } else if (level_ == Level::part) {
    level_ = Level::parts;
    return !part().address.empty() || fail("expected \"address\" in each of the parts");
  }
  return true;
}

bool LineReader::start_array(std::size_t /*size*/) {
  if (ignored_ != 0) {
    ++ignored_;
  } else if (level_ == Level::line && (key_ == "value" || key_ == "value_base64")) {
    level_ = Level::values;
    isBase64_ = key_ == "value_base64";
    hasValue_ = true;
    change_.isArray = true;
    change_.texts.clear();
  } else if (level_ == Level::line && (key_ == "parts" || key_ == "nodes")) {
    level_ = Level::parts;
    parts_ = key_ == "parts" ? &header_.parts : &header_.nodes;
    hasParts_ = hasParts_ || key_ == "parts";
  } else if ((level_ == Level::part && (key_ == "choices" || key_ == "element_names")) ||
             ((level_ == Level::part || level_ == Level::line) && key_ == "ids")) {
    afterTexts_ = level_;
    texts_ = key_ == "choices" ? &part().choices : key_ == "ids" ? &ids_ : &part().elementNames;
    texts_->clear();
    level_ = Level::texts;
  } else if (level_ == Level::line || level_ == Level::part) {
    ignored_ = 1;
  } else {
    return level_ == Level::start ? fail("expected an object") : expected("values");
  }
  return true;
}

bool LineReader::end_array() {
  if (ignored_ != 0) {
    --ignored_;
    return true;
  }
  const bool isEndOfIds = level_ == Level::texts && texts_ == &ids_;
  level_ = level_ == Level::texts ? afterTexts_ : Level::line;
  return !isEndOfIds || addIds();
}

bool LineReader::addIds() {
  for (const std::string& text : ids_) {
    const auto id = numberOf(text, ModelSrv::ModelPartId_Max);
    if (!id) {
      return expected("ids");
    }
    part().ids.push_back(static_cast<ModelSrv::ModelPartId>(*id));
  }
  return true;
}

bool LineReader::scalar(std::string text, bool isString) {
  if (ignored_ != 0) {
    return true;
  }
  switch (level_) {
    case Level::line:
      return lineField(std::move(text), isString);
    case Level::part:
      return partField(std::move(text), isString);
    case Level::values:
      return addValue(std::move(text), isString);
    case Level::texts:
      texts_->push_back(std::move(text));
      return true;
    default:
      return fail("expected an object");
  }
}

bool LineReader::addValue(std::string text, bool isString) {
  if (isBase64_) {
    auto bytes = isString ? bytesOfBase64(text) : std::nullopt;
    if (!bytes) {
      return expected("Base64");
    }
    text = std::move(*bytes);
  }
  change_.texts.push_back(std::move(text));
  return true;
}

bool LineReader::lineField(std::string text, bool isString) {
  if (key_ == "value" || key_ == "value_base64") {
    isBase64_ = key_ == "value_base64";
    hasValue_ = true;
    change_.isArray = false;
    change_.texts.clear();
    return addValue(std::move(text), isString);
  }
  if (key_ == "time" || key_ == "start") {
    time_ = isString ? timeOf(text) : std::nullopt;
    return time_ || expected("a time");
  }
  if (key_ == "event") {
    change_.event = text == "lost" ? RecordedChange::Event::lost : RecordedChange::Event::restored;
    return text == "lost" || text == "restored" || expected("\"lost\" or \"restored\"");
  }
  if (key_ == "structure") {
    structure_ = text == "added"     ? std::optional(RecordedChange::Event::added)
                 : text == "removed" ? std::optional(RecordedChange::Event::removed)
                                     : std::nullopt;
    return structure_ || expected("\"added\" or \"removed\"");
  }
  if (key_ == "changes") {
    change_.isChange = true;
  } else if (key_ == "format") {
    format_ = std::move(text);
  } else if (key_ == "server") {
    header_.server = std::move(text);
  } else {
    return partField(std::move(text), isString);
  }
  return true;
}

bool LineReader::partField(std::string text, bool isString) {
  if (key_ == "address") {
    part().address = std::move(text);
    return isString || expected("a string");
  }
  if (key_ == "type") {
    const auto type = findEntryType(text);
    part().type = type.value_or(EntryType::text);
    return type || fail("unknown type \"" + oneLine(text) + '"');
  }
  if (key_ == "access") {
    part().access = text == "ro"          ? ModelSrv::ModelPartStatus_ReadOnly
                    : text == "protected" ? ModelSrv::ModelPartStatus_Protected
                                          : ModelSrv::ModelPartStatus_ReadWrite;
    return part().access != ModelSrv::ModelPartStatus_ReadWrite || text == "rw" ||
           expected("\"rw\", \"ro\" or \"protected\"");
  }
  if (key_ == "elements") {
    const auto number = numberOf(text, ModelSrv::ModelPartElements_Max);
    part().elements = number.value_or(0);
    return number || expected("a number of elements");
  }
  if (key_ == "subscribable") {
    part().subscribable = text != "false";
    return true;
  }
  for (const auto& [name, target] :
       {std::pair<std::string_view, std::string*>{"unit", &part().unit},
        {"name", &part().name},
        {"minimum", &part().minimum},
        {"maximum", &part().maximum},
        {"text", &part().text}}) {
    if (key_ == name) {
      *target = std::move(text);
      break;
    }
  }
  return true;
}

Result<RecordingHeader> LineReader::takeHeader() {
  if (!error_ && (format_ != "1" || !hasParts_ || !time_)) {
    error_ =
        Error{"expected the header of a recording, with \"format\" 1, \"start\" and \"parts\""};
  }
  if (error_) {
    return std::move(*error_);
  }
  header_.start = *time_;
  return std::move(header_);
}

Result<RecordedChange> LineReader::takeChange() {
  if (!error_ && (!time_ || change_.part.address.empty())) {
    error_ = Error{"expected \"time\" and \"address\""};
  }
  if (!error_ && change_.event == RecordedChange::Event::value &&
      (!hasValue_ || (change_.isArray && change_.texts.empty()))) {
    error_ = Error{"expected a value or an event"};
  }
  if (error_) {
    return std::move(*error_);
  }
  change_.time = *time_;
  if (structure_ && change_.event == RecordedChange::Event::restored) {
    change_.event = *structure_;
    change_.part.type = EntryType::node;
  }
  return std::move(change_);
}

}  // namespace

Result<RecordingHeader> parseRecordingHeader(std::string_view line) {
  LineReader reader;
  static_cast<void>(Json::sax_parse(line.begin(), line.end(), &reader));
  return reader.takeHeader();
}

Result<RecordedChange> parseRecordedChange(std::string_view line) {
  LineReader reader;
  static_cast<void>(Json::sax_parse(line.begin(), line.end(), &reader));
  return reader.takeChange();
}

}  // namespace modelsrvd
