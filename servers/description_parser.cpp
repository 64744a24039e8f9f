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

/// The characters of a text in pieces. Remembers where the last two lines begin, which
/// is as far back as the parser reports errors.
class CharacterSource {
 public:
  explicit CharacterSource(const NextPiece& next) : next_(next) { take(); }

  [[nodiscard]] bool atEnd() const { return piece_.empty(); }
  [[nodiscard]] const char& current() const { return piece_[offset_]; }

  void advance() {
    if (piece_[offset_] == '\n') {
      previousLineStart_ = lineStart_;
      lineStart_ = pieceStart_ + offset_ + 1;
      ++line_;
    }
    if (++offset_ == piece_.size()) {
      pieceStart_ += offset_;
      offset_ = 0;
      take();
    }
  }

  /// The position of the zero byte that the parser has taken for the end, if there is one.
  [[nodiscard]] std::optional<std::string> zeroAtEnd() const {
    return hasZero_ ? std::optional(position(pieceStart_ + offset_ - 1)) : std::nullopt;
  }

  /// The position of the character at `offset`, for error messages.
  [[nodiscard]] std::string position(std::size_t offset) const {
    const bool inPreviousLine = offset < lineStart_;
    const std::size_t line = inPreviousLine ? line_ - 1 : line_;
    const std::size_t start = inPreviousLine ? previousLineStart_ : lineStart_;
    return "line " + std::to_string(line) + ", column " + std::to_string(offset - start + 1);
  }

 private:
  void take() {
    piece_ = next_();
    hasZero_ = hasZero_ || piece_.find('\0') != std::string_view::npos;
  }

  const NextPiece& next_;
  std::string_view piece_;
  bool hasZero_ = false;        ///< in the text so far; valid JSON has none
  std::size_t offset_ = 0;      ///< in the piece
  std::size_t pieceStart_ = 0;  ///< offset in the text
  std::size_t line_ = 1;
  std::size_t lineStart_ = 0;
  std::size_t previousLineStart_ = 0;
};

/// The input iterator for the JSON parser; without a source it is the end.
class CharacterIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  explicit CharacterIterator(CharacterSource* characters = nullptr) : characters_(characters) {}

  reference operator*() const { return characters_->current(); }
  CharacterIterator& operator++() {
    characters_->advance();
    return *this;
  }
  bool operator==(const CharacterIterator& other) const { return atEnd() == other.atEnd(); }

 private:
  [[nodiscard]] bool atEnd() const { return characters_ == nullptr || characters_->atEnd(); }

  CharacterSource* characters_;
};

/// Passes the events of the JSON parser to a `DescriptionReader` and stops the parser
/// at the first error.
class EventForwarder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit EventForwarder(const CharacterSource& characters) : characters_(characters) {}

  bool null() override { return accept(reader_.scalar(nullptr)); }
  bool boolean(bool value) override { return accept(reader_.scalar(value)); }
  bool number_integer(number_integer_t value) override { return accept(reader_.scalar(value)); }
  bool number_unsigned(number_unsigned_t value) override { return accept(reader_.scalar(value)); }
  bool number_float(number_float_t value, const string_t& text) override {
    return accept(reader_.scalar(RealNumber{value, text}));
  }
  bool string(string_t& value) override { return accept(reader_.scalar(std::move(value))); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return accept(reader_.startObject()); }
  bool key(string_t& name) override { return accept(reader_.key(name)); }
  bool end_object() override { return accept(reader_.endObject()); }
  bool start_array(std::size_t) override { return accept(reader_.startArray()); }
  bool end_array() override { return accept(reader_.endArray()); }

  bool parse_error(std::size_t charactersRead, const std::string&,
                   const nlohmann::detail::exception& error) override {
    error_ = Error{characters_.position(charactersRead == 0 ? 0 : charactersRead - 1) + ": " +
                   reason(error.what())};
    return false;
  }

  [[nodiscard]] Result<TreeDescription> result() {
    if (error_) {
      return std::move(*error_);
    }
    return reader_.take();
  }

 private:
  bool accept(std::optional<Error> error) {
    error_ = std::move(error);
    return !error_;
  }

  /// The parser's message without its error code and position.
  static std::string reason(std::string_view what) {
    for (const std::string_view last : {"] ", "column "}) {
      const std::size_t found = what.find(last);
      if (found != std::string_view::npos) {
        what.remove_prefix(found + last.size());
      }
    }
    const std::size_t afterColumn = what.find_first_not_of("0123456789");
    if (afterColumn != 0 && what.substr(afterColumn, 2) == ": ") {
      what.remove_prefix(afterColumn + 2);
    }
    return oneLine(withShortToken(what));
  }

  /// The token in quotes, which may be as long as the file, is cut to its last bytes.
  static std::string withShortToken(std::string_view what) {
    constexpr std::size_t maxShownBytes = 40;
    const std::size_t open = what.find('\'');
    const std::size_t close = what.rfind('\'');
    if (open == std::string_view::npos || close - open <= maxShownBytes) {
      return std::string(what);
    }
    std::size_t start = close - maxShownBytes;
    while (start < close && (static_cast<unsigned char>(what[start]) & 0xC0U) == 0x80) {
      ++start;  // in the middle of a character
    }
    return std::string(what.substr(0, open + 1)) + "…" + std::string(what.substr(start));
  }

  const CharacterSource& characters_;
  DescriptionReader reader_;
  std::optional<Error> error_;
};

}  // namespace

Result<TreeDescription> parseTreeDescription(const NextPiece& next) {
  CharacterSource characters(next);
  EventForwarder forwarder(characters);
  const bool isParsed =
      nlohmann::json::sax_parse(CharacterIterator(&characters), CharacterIterator(), &forwarder);
  if (const auto position = characters.zeroAtEnd(); isParsed && position) {
    return Error{*position + ": expected the end, got a zero byte"};
  }
  return forwarder.result();
}

Result<TreeDescription> parseTreeDescription(std::string_view text) {
  return parseTreeDescription([&text] { return std::exchange(text, {}); });
}

}  // namespace modelsrvd
