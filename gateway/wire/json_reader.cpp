#include "gateway/wire/json_reader.h"

#include <nlohmann/json.hpp>
#include <vector>

namespace modelgate {

namespace {

using nlohmann::json;

/// Follows the path for a visitor.
class Handler final : public nlohmann::json_sax<json> {
 public:
  explicit Handler(JsonVisitor& visitor) : visitor_(visitor) { path_.reserve(maxJsonNesting); }

  bool null() override { return visit({JsonItem::Kind::null, 0, "null"}); }

  bool boolean(bool value) override {
    return visit({JsonItem::Kind::boolean, 0, value ? "true" : "false"});
  }

  bool number_integer(number_integer_t value) override {
    const auto magnitude = static_cast<std::uint64_t>(value);
    const std::string text = std::to_string(value);
    return value < 0 ? visit({JsonItem::Kind::negativeNumber, 0 - magnitude, text})
                     : visit({JsonItem::Kind::unsignedNumber, magnitude, text});
  }

  bool number_unsigned(number_unsigned_t value) override {
    const std::string text = std::to_string(value);
    return visit({JsonItem::Kind::unsignedNumber, value, text});
  }

  bool number_float(number_float_t /*value*/, const string_t& text) override {
    return visit({JsonItem::Kind::real, 0, text});
  }

  bool string(string_t& value) override { return visit({JsonItem::Kind::text, 0, value}); }

  bool binary(binary_t& /*value*/) override { return false; }

  bool start_object(std::size_t /*count*/) override { return open(JsonItem::Kind::object); }

  bool key(string_t& name) override {
    path_.back() = std::move(name);
    return true;
  }

  bool end_object() override {
    path_.pop_back();
    return true;
  }

  bool start_array(std::size_t /*count*/) override { return open(JsonItem::Kind::array); }
  bool end_array() override { return end_object(); }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  bool visit(const JsonItem& item) { return visitor_.visit(path_, item); }

  bool open(JsonItem::Kind kind) {
    if (path_.size() == maxJsonNesting || !visit({kind, 0, {}})) {
      return false;
    }
    path_.emplace_back();
    return true;
  }

  JsonVisitor& visitor_;
  std::vector<std::string> path_;
};

}  // namespace

bool readJson(std::string_view text, JsonVisitor& visitor) {
  Handler handler(visitor);
  return json::sax_parse(text.begin(), text.end(), &handler);
}

}  // namespace modelgate
