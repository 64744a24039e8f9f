#include <algorithm>

#include "tools/json_object.h"
#include "tools/tree_image.h"

namespace treectl {

void ImageWriter::addHeader(const TreeImage& image) {
  out_ += "[\n";
  JsonObject header(out_);
  header.addRaw("format", "1");
  header.addText("base", image.base);
  header.addText("time", image.time);
  header.end();
}

void ImageWriter::setKind(const ImagePart& part) {
  type_ = part.type;
  access_ = part.access;
  isText_ = type_.empty() || type_ == "text";
  kind_.clear();
  JsonObject kind(kind_);
  kind.addTextIfAny("type", type_);
  kind.addTextIfAny("access", access_);
  // It goes on after the address.
  kind_.front() = ',';
  if (kind_.size() == 1) {
    kind_.clear();
  }
}

void ImageWriter::addPart(const ImagePart& part) {
  if (part.type != type_ || part.access != access_) {
    setKind(part);
  }
  if (addPlainPart(part)) {
    return;
  }
  out_ += ",\n";
  JsonObject object(out_);
  object.addText("address", part.address);
  out_ += kind_;
  object.addValue(part.value, part.type);
  object.end();
}

bool ImageWriter::addPlainPart(const ImagePart& part) {
  constexpr std::string_view beforeAddress = ",\n{\"address\":\"";
  constexpr std::string_view beforeValue = ",\"value\":";
  if (part.value.isArray) {
    return false;
  }
  const std::string_view text = part.value.texts.front();
  if ((!isText_ && !isJsonNumber(text)) || !isPlainJson(text) || !isPlainJson(part.address)) {
    return false;
  }
  const std::size_t begin = out_.size();
  constexpr std::size_t quotesAndBrace = 4;
  out_.resize(begin + beforeAddress.size() + part.address.size() + kind_.size() +
              beforeValue.size() + text.size() + quotesAndBrace);
  char* at = out_.data() + begin;
  const auto put = [&at](std::string_view bytes) {
    at = std::copy(bytes.begin(), bytes.end(), at);
  };
  put(beforeAddress);
  put(part.address);
  *at++ = '"';
  put(kind_);
  put(beforeValue);
  if (isText_) {
    *at++ = '"';
  }
  put(text);
  if (isText_) {
    *at++ = '"';
  }
  *at++ = '}';
  out_.resize(static_cast<std::size_t>(at - out_.data()));
  return true;
}

void ImageWriter::end() {
  out_ += "\n]\n";
}

}  // namespace treectl
