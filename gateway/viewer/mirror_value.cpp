#include "gateway/viewer/mirror_value.h"

#include <cstring>

namespace modelgate {

namespace {

/// A text that is too long for the value itself.
struct LongText {
  char* bytes;
  std::uint32_t size;
};

}  // namespace

MirrorValue::MirrorValue(const Value& value) {
  if (value.result == ModelSrv::ModelRes_Success) {
    setText(value.text);
  } else {
    setResult(value.result);
  }
}

MirrorValue::MirrorValue(std::string_view text) {
  setText(text);
}

MirrorValue::MirrorValue(MirrorValue&& other) noexcept : bytes_(other.bytes_) {
  other.setResult(ModelSrv::ModelRes_Unreachable);
}

MirrorValue& MirrorValue::operator=(MirrorValue&& other) noexcept {
  if (this != &other) {
    release();
    bytes_ = other.bytes_;
    other.setResult(ModelSrv::ModelRes_Unreachable);
  }
  return *this;
}

ModelSrv::ModelRes MirrorValue::result() const noexcept {
  return isLong() || tag() <= maxShort
             ? ModelSrv::ModelRes_Success
             : static_cast<ModelSrv::ModelRes>(static_cast<unsigned>(tag() - noText));
}

std::string_view MirrorValue::text() const noexcept {
  if (isLong()) {
    LongText text{};
    std::memcpy(&text, bytes_.data(), sizeof text.bytes + sizeof text.size);
    return {text.bytes, text.size};
  }
  const std::size_t size = tag() <= maxShort ? tag() : 0;
  return {reinterpret_cast<const char*>(bytes_.data()), size};
}

void MirrorValue::setText(std::string_view text) {
  if (text.size() > ModelSrv::ModelValueText_Max) {
    return setResult(ModelSrv::ModelRes_TooLarge);
  }
  if (text.size() <= maxShort) {
    std::memcpy(bytes_.data(), text.data(), text.size());
    bytes_[maxShort] = static_cast<std::uint8_t>(text.size());
    return;
  }
  const LongText copy{new char[text.size()], static_cast<std::uint32_t>(text.size())};
  std::memcpy(copy.bytes, text.data(), text.size());
  std::memcpy(bytes_.data(), &copy, sizeof copy.bytes + sizeof copy.size);
  bytes_[maxShort] = longText;
}

void MirrorValue::setResult(ModelSrv::ModelRes result) noexcept {
  const bool isOfServers =
      result != ModelSrv::ModelRes_Success && result < ModelSrv::ModelRes_NotConnected;
  const unsigned number = isOfServers ? result : ModelSrv::ModelRes_Unreachable;
  bytes_[maxShort] = static_cast<std::uint8_t>(noText + number);
}

void MirrorValue::release() noexcept {
  if (isLong()) {
    delete[] text().data();
  }
}

}  // namespace modelgate
