#include "gateway/wire/cbor_reader.h"

#include <cbor.h>

#include <array>

#include "gateway/wire/utf8.h"

namespace modelgate {

namespace {

using Item = CborReader::Item;
using CborKind = CborReader::Kind;

Item& itemOf(void* context) {
  return *static_cast<Item*>(context);
}

template <typename Number, CborKind kind>
void setNumber(void* context, Number number) {
  itemOf(context).kind = kind;
  itemOf(context).number = number;
}

template <CborKind kind>
void setString(void* context, cbor_data bytes, std::size_t size) {
  itemOf(context).kind = kind;
  itemOf(context).text = {reinterpret_cast<const char*>(bytes), size};
}

template <CborKind kind>
void setCount(void* context, std::size_t count) {
  itemOf(context).kind = kind;
  itemOf(context).number = count;
}

template <CborKind kind>
void setIndefinite(void* context) {
  itemOf(context).kind = kind;
  itemOf(context).isIndefinite = true;
}

template <CborKind kind>
void setKind(void* context) {
  itemOf(context).kind = kind;
}

template <typename Number>
void setOther(void* context, Number /*unused*/) {
  itemOf(context).kind = CborKind::other;
}

cbor_callbacks makeCallbacks() {
  cbor_callbacks calls = cbor_empty_callbacks;
  calls.uint8 = setNumber<std::uint8_t, CborKind::unsignedNumber>;
  calls.uint16 = setNumber<std::uint16_t, CborKind::unsignedNumber>;
  calls.uint32 = setNumber<std::uint32_t, CborKind::unsignedNumber>;
  calls.uint64 = setNumber<std::uint64_t, CborKind::unsignedNumber>;
  calls.negint8 = setNumber<std::uint8_t, CborKind::negativeNumber>;
  calls.negint16 = setNumber<std::uint16_t, CborKind::negativeNumber>;
  calls.negint32 = setNumber<std::uint32_t, CborKind::negativeNumber>;
  calls.negint64 = setNumber<std::uint64_t, CborKind::negativeNumber>;
  // Strings of indefinite length.
  calls.byte_string_start = setKind<CborKind::none>;
  calls.string_start = setKind<CborKind::none>;
  calls.byte_string = setString<CborKind::bytes>;
  calls.string = setString<CborKind::text>;
  calls.array_start = setCount<CborKind::array>;
  calls.map_start = setCount<CborKind::map>;
  calls.indef_array_start = setIndefinite<CborKind::array>;
  calls.indef_map_start = setIndefinite<CborKind::map>;
  calls.tag = [](void* context, std::uint64_t) { itemOf(context).isTag = true; };
  calls.float2 = setOther<float>;
  calls.float4 = setOther<float>;
  calls.float8 = setOther<double>;
  calls.undefined = setKind<CborKind::other>;
  calls.null = setKind<CborKind::other>;
  calls.boolean = [](void* context, bool value) {
    itemOf(context).kind = CborKind::boolean;
    itemOf(context).isTrue = value;
  };
  calls.indef_break = setKind<CborKind::close>;
  return calls;
}

}  // namespace

bool CborReader::fail() {
  hasFailed_ = true;
  item_ = {};
  return false;
}

CborReader::Kind CborReader::kind() {
  static const cbor_callbacks calls = makeCallbacks();
  if (hasFailed_) {
    return Kind::none;
  }
  if (isLoaded_) {
    return item_.kind;
  }
  bool isTagged = false;
  while (remaining() > 0) {
    item_ = {};
    const cbor_decoder_result result =
        cbor_stream_decode(reinterpret_cast<const unsigned char*>(bytes_.data()) + position_,
                           remaining(), &calls, &item_);
    if (result.status != CBOR_DECODER_FINISHED || result.read == 0 || result.read > remaining()) {
      fail();
      return Kind::none;
    }
    position_ += result.read;
    if (item_.isTag) {
      isTagged = true;
      continue;
    }
    if (item_.kind == Kind::none || (isTagged && item_.kind == Kind::close)) {
      fail();
      return Kind::none;
    }
    isLoaded_ = true;
    return item_.kind;
  }
  if (isTagged) {
    fail();
  }
  return Kind::none;
}

bool CborReader::take(Kind expected) {
  if (kind() != expected || hasFailed_) {
    return fail();
  }
  isLoaded_ = false;
  return true;
}

bool CborReader::readUnsigned(std::uint64_t& number, std::uint64_t maximum) {
  if (!take(Kind::unsignedNumber) || item_.number > maximum) {
    return fail();
  }
  number = item_.number;
  return true;
}

bool CborReader::readSigned(std::int64_t& number, std::int64_t maximum) {
  const bool isNegative = kind() == Kind::negativeNumber;
  if (!take(isNegative ? Kind::negativeNumber : Kind::unsignedNumber) ||
      item_.number > static_cast<std::uint64_t>(maximum) - (isNegative ? 1U : 0U)) {
    return fail();
  }
  const auto value = static_cast<std::int64_t>(item_.number);
  number = isNegative ? -1 - value : value;
  return true;
}

bool CborReader::readBoolean(bool& value) {
  if (!take(Kind::boolean)) {
    return false;
  }
  value = item_.isTrue;
  return true;
}

bool CborReader::readText(std::string_view& text, std::size_t maximum) {
  if (!take(Kind::text) || item_.text.size() > maximum || !isUtf8(item_.text)) {
    return fail();
  }
  text = item_.text;
  return true;
}

bool CborReader::readBytes(std::string_view& text, std::size_t maximum) {
  if (!take(Kind::bytes) || item_.text.size() > maximum) {
    return fail();
  }
  text = item_.text;
  return true;
}

bool CborReader::readString(std::string_view& text, std::size_t maximum) {
  return kind() == Kind::bytes ? readBytes(text, maximum) : readText(text, maximum);
}

bool CborReader::enter(Kind expected, CborItems& items, unsigned itemsEach) {
  if (!take(expected) || (!item_.isIndefinite && item_.number > remaining() / itemsEach)) {
    return fail();
  }
  items = {item_.isIndefinite ? 0 : item_.number, item_.isIndefinite};
  return true;
}

bool CborReader::enterArray(CborItems& items) {
  return enter(Kind::array, items, 1);
}

bool CborReader::enterMap(CborItems& items) {
  return enter(Kind::map, items, 2);
}

bool CborReader::next(CborItems& items) {
  if (hasFailed_) {
    return false;
  }
  if (!items.isIndefinite) {
    return items.left > 0 && items.left-- > 0;
  }
  const Kind following = kind();
  if (following == Kind::close) {
    isLoaded_ = false;
    items = {};
    return false;
  }
  return following != Kind::none || fail();
}

bool CborReader::skip() {
  std::array<CborItems, maxNesting> open;
  std::size_t depth = 0;
  do {
    const Kind next = kind();
    if (next == Kind::array || next == Kind::map) {
      if (depth == open.size() ||
          !(next == Kind::array ? enterArray(open[depth]) : enterMap(open[depth]))) {
        return fail();
      }
      // The keys and values of a map are items like others here.
      open[depth].left *= next == Kind::map ? 2 : 1;
      ++depth;
    } else if (next == Kind::close || next == Kind::none) {
      return fail();
    } else {
      isLoaded_ = false;
    }
    while (depth > 0 && !this->next(open[depth - 1])) {
      --depth;
    }
  } while (depth > 0 && !hasFailed_);
  return !hasFailed_;
}

bool CborReader::skipRest(CborItems& items) {
  while (next(items)) {
    skip();
  }
  return !hasFailed_;
}

}  // namespace modelgate
