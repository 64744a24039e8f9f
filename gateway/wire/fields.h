#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/wire/format.h"
#include "modelsrv/model_part.h"

namespace modelgate {

/// The value of a key of a request or reply, in CBOR or JSON alike.
struct Field {
  enum class Kind {
    unsignedNumber,
    negativeNumber,
    boolean,
    text,   ///< a text string, or in CBOR a byte string of another value
    bytes,  ///< a byte string
    chain,  ///< an array of ids
    other,
  };
  Kind kind = Kind::other;
  std::uint64_t number = 0;  ///< of a negative number the absolute value
  bool isTrue = false;
  std::string text;  ///< also, in JSON, a number or a boolean as it was written
  std::vector<ModelSrv::ModelPartId> chain;
};

/// The keys that a reader knows.
using FieldKeys = std::span<const std::string_view>;

/// Receives the value of the key at a position of the keys. Returns whether the value is allowed.
using FieldVisitor = std::function<bool(std::size_t key, Field& field)>;

/// Reads a map or object, and passes the value of each known key to the visitor; the others are
/// ignored. False, with a line about the reason in `error`, if it is malformed, has a known key
/// twice, or the visitor did not allow a value.
[[nodiscard]] bool readFields(std::string_view payload, Format format, FieldKeys keys,
                              const FieldVisitor& visitor, std::string& error);

/// Writes a map or object of at most 23 keys.
class FieldWriter {
 public:
  explicit FieldWriter(Format format);

  void number(std::string_view key, std::uint64_t value);
  void signedNumber(std::string_view key, std::int64_t value);
  void boolean(std::string_view key, bool value);
  /// Of any bytes. In JSON U+FFFD stands for each that is not part of valid UTF-8.
  void text(std::string_view key, std::string_view text);
  /// As a byte string; CBOR only.
  void bytes(std::string_view key, std::string_view text);
  void chain(std::string_view key, std::span<const ModelSrv::ModelPartId> chain);

  [[nodiscard]] std::string finish();

 private:
  void begin(std::string_view key);

  const Format format_;
  std::string out_;
  std::size_t count_ = 0;
};

/// `text` as a JSON string, with its quotes. U+FFFD stands for each byte that is no UTF-8.
[[nodiscard]] std::string quoteJson(std::string_view text);

}  // namespace modelgate
