/// Requests and replies.
///
/// Input: one byte for the content type, then the message, which is decoded as both. What is
/// accepted comes back as it was from CBOR. JSON has no batches, and changes what is no UTF-8; what
/// has come from JSON comes back as it was.
///
/// Corpus: `get_json`, `set`, `sync`, `value_number_json`, `got_json`, `refused`, `synced`.

#include <string>

#include "gateway/wire/request.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace modelgate;
using fuzz::require;

constexpr const char* sameCbor = "it comes back from CBOR as it was";
constexpr const char* sameJson = "what has come from JSON comes back as it was";

void checkRequest(std::string_view message, std::string_view type) {
  std::string error;
  const auto request = decodeRequest(message, type, error);
  require(request.has_value() == error.empty(), "an error has a reason");
  if (!request) {
    return;
  }
  require(decodeRequest(encodeRequest(*request, Format::cbor), {}, error) == request, sameCbor);
  const std::string text = encodeRequest(*request, Format::json);
  const auto fromJson = decodeRequest(text, {}, error);
  require(fromJson && encodeRequest(*fromJson, Format::json) == text, sameJson);
}

void checkReply(std::string_view message, std::string_view type) {
  std::string error;
  const auto reply = decodeReply(message, type, error);
  require(reply.has_value() == error.empty(), "an error has a reason");
  if (!reply) {
    return;
  }
  require(decodeReply(encodeReply(*reply, Format::cbor), {}, error) == reply, sameCbor);
  const std::string text = encodeReply(*reply, Format::json);
  const auto fromJson = decodeReply(text, {}, error);
  require(fromJson && encodeReply(*fromJson, Format::json) == text, sameJson);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t kind = input.u8();
  const std::string_view type = kind == 1   ? contentType(Format::cbor)
                                : kind == 2 ? contentType(Format::json)
                                            : std::string_view();
  const std::string_view message = input.restAsText();
  checkRequest(message, type);
  checkReply(message, type);
  return 0;
}
