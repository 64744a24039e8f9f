#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/tree_image.h"

namespace treectl {

namespace {

using Json = nlohmann::json;

/// Builds an image of the events of a parser: `[{header}, {part}...]`. Unknown keys are ignored.
class ImageBuilder {
 public:
  explicit ImageBuilder(TreeImage& image) : image_(image) {}

  // What the parser calls, with its names; the result is whether it goes on.
  // NOLINTBEGIN(readability-identifier-naming)

  bool null() {
    const bool isValue = isValueKey() && (depth_ == 2 || (depth_ == 3 && part_.value.isArray));
    return !isValue || fail(part_.address + ": expected a value, got null");
  }
  bool boolean(bool value) { return add(value ? "true" : "false", false); }
  /// The parser makes an integer of "-0", as floating point has it.
  bool number_integer(Json::number_integer_t value) {
    return add(value == 0 ? "-0" : std::to_string(value), false);
  }
  bool number_unsigned(Json::number_unsigned_t value) { return add(std::to_string(value), false); }
  bool number_float(Json::number_float_t /*value*/, const std::string& text) {
    return add(text, false);
  }
  bool string(std::string& text) { return add(text, true); }
  bool binary(Json::binary_t& /*bytes*/) { return false; }

  bool start_object(std::size_t /*size*/) {
    ++depth_;
    if (depth_ == 2) {
      part_ = {};
      hasAddress_ = hasValue_ = hasEvent_ = false;
    }
    return depth_ > 1 || fail("expected an array");
  }
  bool end_object() { return depth_-- != 2 || endPart(); }
  bool start_array(std::size_t /*size*/) {
    if (++depth_ == 3 && isValueKey()) {
      part_.value = {{}, true};
      hasValue_ = true;
    }
    return true;
  }
  bool end_array() {
    --depth_;
    return true;
  }
  bool key(std::string& name) {
    if (depth_ == 2) {
      key_ = name;
    }
    return true;
  }
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const Json::exception& /*error*/) {
    return fail("no JSON at byte " + std::to_string(position));
  }
  // NOLINTEND(readability-identifier-naming)

  [[nodiscard]] const std::string& error() const { return error_; }
  [[nodiscard]] bool hasHeader() const { return hasHeader_; }

 private:
  [[nodiscard]] bool isValueKey() const { return key_ == "value" || key_ == "value_base64"; }

  bool fail(std::string error) {
    if (error_.empty()) {
      error_ = std::move(error);
    }
    return false;
  }

  bool add(std::string text, bool isString) {
    if (depth_ == 2) {
      return addField(std::move(text), isString);
    }
    return depth_ == 3 && isValueKey() && part_.value.isArray ? addValue(std::move(text)) : true;
  }

  bool addField(std::string text, bool isString) {
    if (isValueKey()) {
      hasValue_ = true;
      part_.value = {};
      return addValue(std::move(text));
    }
    if (key_ == "address" && isString) {
      part_.address = std::move(text);
      hasAddress_ = true;
    } else if (key_ == "type") {
      part_.type = std::move(text);
    } else if (key_ == "access") {
      part_.access = std::move(text);
    } else if (key_ == "format") {
      format_ = std::move(text);
    } else if (key_ == "base") {
      image_.base = std::move(text);
    } else if (key_ == "time") {
      (hasHeader_ ? part_.time : image_.time) = std::move(text);
    } else if (key_ == "event") {
      hasEvent_ = true;
    }
    return true;
  }

  bool addValue(std::string text) {
    if (key_ == "value_base64") {
      std::string bytes;
      if (!decodeBase64(text, bytes)) {
        return fail(part_.address + ": no Base64");
      }
      text = std::move(bytes);
    }
    part_.value.texts.push_back(std::move(text));
    return true;
  }

  bool endPart() {
    if (!hasHeader_) {
      hasHeader_ = format_ == "1";
      return hasHeader_ || fail("expected a header of format 1");
    }
    if (hasEvent_ && !hasValue_) {
      return true;
    }
    if (!hasAddress_ || !hasValue_) {
      return fail("expected \"address\" and \"value\" in each object after the first");
    }
    image_.parts.push_back(std::move(part_));
    return true;
  }

  TreeImage& image_;
  ImagePart part_;
  std::string key_;
  std::string format_;
  std::string error_;
  std::size_t depth_ = 0;
  bool hasHeader_ = false;
  bool hasAddress_ = false;
  bool hasValue_ = false;
  bool hasEvent_ = false;
};

}  // namespace

bool parseJsonImage(const std::string& text, TreeImage& image, std::string& error) {
  ImageBuilder builder(image);
  if (!Json::sax_parse(text, &builder)) {
    error = builder.error();
    return false;
  }
  if (!builder.hasHeader()) {
    error = "expected a header of format 1";
    return false;
  }
  return true;
}

bool parseRecording(std::string text, TreeImage& image, std::string& error) {
  if (text.starts_with('[')) {
    error = "expected lines of objects, got an array (a dump is for restore)";
    return false;
  }
  // With commas for the line feeds, the lines are the elements of an array.
  text.resize(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n'));
  std::replace(text.begin(), text.end(), '\n', ',');
  return parseJsonImage('[' + text + ']', image, error);
}

}  // namespace treectl
