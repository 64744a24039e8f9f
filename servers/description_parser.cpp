#include "servers/description_parser.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "servers/description_reader.h"

namespace modelsrvd {

namespace {

/// Hands what the JSON parser meets to a `DescriptionReader`, and stops the
/// parser at the first failure.
class Listener final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit Listener(std::string_view text) : text_(text) {}

  bool null() override { return keep(reader_.scalar(nullptr)); }
  bool boolean(bool value) override { return keep(reader_.scalar(value)); }
  bool number_integer(number_integer_t value) override { return keep(reader_.scalar(value)); }
  bool number_unsigned(number_unsigned_t value) override { return keep(reader_.scalar(value)); }
  bool number_float(number_float_t value, const string_t& text) override {
    return keep(reader_.scalar(RealNumber{value, text}));
  }
  bool string(string_t& value) override { return keep(reader_.scalar(std::move(value))); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return keep(reader_.startObject()); }
  bool key(string_t& name) override { return keep(reader_.key(name)); }
  bool end_object() override { return keep(reader_.endObject()); }
  bool start_array(std::size_t) override { return keep(reader_.startArray()); }
  bool end_array() override { return keep(reader_.endArray()); }

  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& fault) override {
    const std::string_view before = text_.substr(0, position == 0 ? 0 : position - 1);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') + 1;
    failure_ = Failure{"line " + std::to_string(line) + ", column " +
                       std::to_string(before.size() - lineStart + 1) + ": " + reason(fault.what())};
    return false;
  }

  [[nodiscard]] Outcome<TreeDescription> result() {
    if (failure_) {
      return std::move(*failure_);
    }
    return reader_.take();
  }

 private:
  bool keep(std::optional<Failure> failure) {
    failure_ = std::move(failure);
    return !failure_;
  }

  /// The parser's own words without its marks of origin and position.
  static std::string reason(std::string_view what) {
    for (const std::string_view last : {"] ", "column "}) {
      const std::size_t found = what.find(last);
      if (found != std::string_view::npos) {
        what.remove_prefix(found + last.size());
      }
    }
    const std::size_t behindColumn = what.find_first_not_of("0123456789");
    if (behindColumn != 0 && what.substr(behindColumn, 2) == ": ") {
      what.remove_prefix(behindColumn + 2);
    }
    return oneLine(what);
  }

  std::string_view text_;
  DescriptionReader reader_;
  std::optional<Failure> failure_;
};

}  // namespace

Outcome<TreeDescription> parseTreeDescription(std::string_view text) {
  Listener listener(text);
  static_cast<void>(nlohmann::json::sax_parse(text.begin(), text.end(), &listener));
  return listener.result();
}

}  // namespace modelsrvd
