#include "bench/peers/fields.h"

#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace bench::peers {

namespace {

constexpr std::string_view placeholder = "{value}";

}  // namespace

Fields::Fields(const std::string& line) {
  std::size_t begin = 0;
  for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
    end = line.find('\t', begin);
    fields_.push_back(line.substr(begin, end == std::string::npos ? end : end - begin));
  }
}

std::string Fields::text() {
  if (next_ == fields_.size()) {
    throw std::runtime_error("a row has too few fields: " + fields_.front());
  }
  return fields_[next_++];
}

unsigned long Fields::number() {
  return std::stoul(text());
}

std::string Fields::bytes() {
  const std::string digits = text();
  std::string result;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    result += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
  }
  return result;
}

std::vector<std::string> Fields::rest() {
  std::vector<std::string> result(fields_.begin() + static_cast<std::ptrdiff_t>(next_),
                                  fields_.end());
  next_ = fields_.size();
  return result;
}

Template::Template(std::string text)
    : text_(std::move(text)), offset_(text_.find(placeholder)), length_(placeholder.size()) {}

const std::string& Template::with(unsigned long value) {
  if (offset_ != std::string::npos) {
    const std::string digits = std::to_string(value);
    text_.replace(offset_, length_, digits);
    length_ = digits.size();
  }
  return text_;
}

}  // namespace bench::peers
