#include "servers/description_parser.h"

#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "servers/description_reader.h"

namespace modelsrvd {

namespace {

/// The characters of a text that comes in pieces. Keeps where the last two lines
/// begin, for the parser reports no place further back.
class Characters {
 public:
  explicit Characters(const NextPiece& next) : next_(next), piece_(next()) {}

  [[nodiscard]] bool atEnd() const { return piece_.empty(); }
  [[nodiscard]] const char& current() const { return piece_[at_]; }

  void advance() {
    if (piece_[at_] == '\n') {
      elderLineStart_ = lineStart_;
      lineStart_ = passed_ + at_ + 1;
      ++line_;
    }
    if (++at_ == piece_.size()) {
      passed_ += at_;
      at_ = 0;
      piece_ = next_();
    }
  }

  /// Where the character is that has `offset` others before it.
  [[nodiscard]] std::string place(std::size_t offset) const {
    const bool isElder = offset < lineStart_;
    const std::size_t line = isElder ? line_ - 1 : line_;
    const std::size_t start = isElder ? elderLineStart_ : lineStart_;
    return "line " + std::to_string(line) + ", column " + std::to_string(offset - start + 1);
  }

 private:
  const NextPiece& next_;
  std::string_view piece_;
  std::size_t at_ = 0;      ///< in the piece
  std::size_t passed_ = 0;  ///< characters before the piece
  std::size_t line_ = 1;
  std::size_t lineStart_ = 0;
  std::size_t elderLineStart_ = 0;
};

/// What the JSON parser reads with; without characters, their end.
class CharacterIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  explicit CharacterIterator(Characters* characters = nullptr) : characters_(characters) {}

  reference operator*() const { return characters_->current(); }
  CharacterIterator& operator++() {
    characters_->advance();
    return *this;
  }
  bool operator==(const CharacterIterator& other) const { return atEnd() == other.atEnd(); }

 private:
  [[nodiscard]] bool atEnd() const { return characters_ == nullptr || characters_->atEnd(); }

  Characters* characters_;
};

/// Hands what the JSON parser meets to a `DescriptionReader`, and stops the
/// parser at the first error.
class Listener final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit Listener(const Characters& characters) : characters_(characters) {}

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
    error_ =
        Error{characters_.place(position == 0 ? 0 : position - 1) + ": " + reason(fault.what())};
    return false;
  }

  [[nodiscard]] Result<TreeDescription> result() {
    if (error_) {
      return std::move(*error_);
    }
    return reader_.take();
  }

 private:
  bool keep(std::optional<Error> error) {
    error_ = std::move(error);
    return !error_;
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

  const Characters& characters_;
  DescriptionReader reader_;
  std::optional<Error> error_;
};

}  // namespace

Result<TreeDescription> parseTreeDescription(const NextPiece& next) {
  Characters characters(next);
  Listener listener(characters);
  static_cast<void>(
      nlohmann::json::sax_parse(CharacterIterator(&characters), CharacterIterator(), &listener));
  return listener.result();
}

Result<TreeDescription> parseTreeDescription(std::string_view text) {
  return parseTreeDescription([&text] { return std::exchange(text, {}); });
}

}  // namespace modelsrvd
