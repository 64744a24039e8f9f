#include "gateway/wire/request.h"

#include <algorithm>
#include <array>

#include "gateway/wire/fields.h"
#include "gateway/wire/limits.h"
#include "gateway/wire/results.h"
#include "gateway/wire/topics.h"
#include "modelsrv/part_description.h"

namespace modelgate {

namespace {

using namespace ModelSrv;

constexpr std::array<std::string_view, 5> verbs{"get", "set", "load", "sync", "watch"};

constexpr std::array<std::string_view, 8> requestKeys{"server", "id",    "path",  "index",
                                                      "value",  "epoch", "since", "until"};

constexpr std::array<std::string_view, 10> replyKeys{"result", "reason", "value", "epoch", "seq",
                                                     "mono",   "time",   "lease", "batch", "more"};

bool isText(const Field& field) {
  return field.kind == Field::Kind::text || field.kind == Field::Kind::bytes;
}

bool setNumber(const Field& field, std::uint64_t& number) {
  number = field.number;
  return field.kind == Field::Kind::unsignedNumber && field.number <= maxExact;
}

bool setNumber(const Field& field, std::optional<std::uint64_t>& number) {
  return setNumber(field, number.emplace());
}

bool setValue(Field& field, Format format, std::optional<std::string>& value) {
  // In JSON a number or a boolean has its text, too; null, an object and an array have none.
  const bool isWritten =
      format == Format::json && field.kind != Field::Kind::chain && !field.text.empty();
  value = std::move(field.text);
  return isText(field) || isWritten;
}

bool setRequestField(Request& request, std::size_t key, Field& field, Format format) {
  switch (key) {
    case 0:
      request.server = std::move(field.text);
      return field.kind == Field::Kind::text && isTopicLevel(request.server);
    case 1:
      request.chain = std::move(field.chain);
      return field.kind == Field::Kind::chain;
    case 2:
      request.path = std::move(field.text);
      return isText(field) && request.path->starts_with('/');
    case 3:
      request.index = static_cast<ModelPartIndex>(field.number);
      return field.kind == Field::Kind::unsignedNumber && field.number < ModelPartIndex_All;
    case 4:
      return setValue(field, format, request.value);
    case 5:
      return setNumber(field, request.epoch);
    case 6:
      return setNumber(field, request.since);
    default:
      return setNumber(field, request.until);
  }
}

bool isReason(std::string_view text) {
  return text.size() <= ModelReason_Max && isLine(text);
}

bool setTime(const Field& field, std::int64_t& time) {
  const bool isNegative = field.kind == Field::Kind::negativeNumber;
  if (field.number > maxExact || (!isNegative && field.kind != Field::Kind::unsignedNumber)) {
    return false;
  }
  time = static_cast<std::int64_t>(field.number) * (isNegative ? -1 : 1);
  return true;
}

bool setReplyField(Reply& reply, std::size_t key, Field& field) {
  switch (key) {
    case 0:
      reply.result = field.number == 0 ? ModelRes_Success : resultOf(field.number);
      return field.kind == Field::Kind::unsignedNumber;
    case 1:
      reply.reason = std::move(field.text);
      return field.kind == Field::Kind::text && isReason(reply.reason);
    case 2:
      reply.value = std::move(field.text);
      return isText(field);
    case 3:
      return setNumber(field, reply.epoch);
    case 4:
      return setNumber(field, reply.sequence);
    case 5:
      return setNumber(field, reply.monotonic);
    case 6:
      return setTime(field, reply.time);
    case 7:
      return setNumber(field, reply.lease);
    case 8:
      reply.batch = std::move(field.text);
      return field.kind == Field::Kind::bytes;
    default:
      reply.more = field.isTrue;
      return field.kind == Field::Kind::boolean;
  }
}

}  // namespace

std::string_view verbName(Verb verb) {
  return verbs[static_cast<std::size_t>(verb)];
}

std::optional<Verb> findVerb(std::string_view name) {
  const auto* const found = std::find(verbs.begin(), verbs.end(), name);
  if (found == verbs.end()) {
    return std::nullopt;
  }
  return static_cast<Verb>(found - verbs.begin());
}

std::optional<Request> decodeRequest(std::string_view payload, std::string_view type,
                                     std::string& error) {
  Request request;
  const Format format = formatOf(payload, type);
  const auto setField = [&request, format](std::size_t key, Field& field) {
    return setRequestField(request, key, field, format);
  };
  if (!readFields(payload, format, requestKeys, setField, error)) {
    return std::nullopt;
  }
  if (request.server.empty()) {
    error = "missing \"server\"";
    return std::nullopt;
  }
  if (request.chain && request.path) {
    error = "expected \"id\" or \"path\", got both";
    return std::nullopt;
  }
  return request;
}

std::string encodeRequest(const Request& request, Format format) {
  FieldWriter writer(format);
  writer.text("server", request.server);
  if (request.chain) {
    writer.chain("id", *request.chain);
  }
  if (request.path) {
    writer.text("path", *request.path);
  }
  if (request.index != ModelPartIndex_All) {
    writer.number("index", request.index);
  }
  if (request.value) {
    writer.text("value", *request.value);
  }
  if (request.epoch) {
    writer.number("epoch", *request.epoch);
  }
  if (request.since != 0) {
    writer.number("since", request.since);
  }
  if (request.until) {
    writer.number("until", *request.until);
  }
  return writer.finish();
}

std::optional<Reply> decodeReply(std::string_view payload, std::string_view type,
                                 std::string& error) {
  Reply reply;
  bool hasResult = false;
  const auto setField = [&reply, &hasResult](std::size_t key, Field& field) {
    hasResult = hasResult || key == 0;
    return setReplyField(reply, key, field);
  };
  if (!readFields(payload, formatOf(payload, type), replyKeys, setField, error)) {
    return std::nullopt;
  }
  if (!hasResult) {
    error = "missing \"result\"";
    return std::nullopt;
  }
  return reply;
}

std::string encodeReply(const Reply& reply, Format format) {
  FieldWriter writer(format);
  writer.number("result", reply.result);
  if (format == Format::json) {
    writer.text("text", describe(reply.result));
  }
  if (!reply.reason.empty() && isReason(reply.reason)) {
    writer.text("reason", reply.reason);
  }
  if (reply.value) {
    writer.text("value", *reply.value);
  }
  writer.number("epoch", reply.epoch);
  writer.number("seq", reply.sequence);
  writer.number("mono", reply.monotonic);
  writer.signedNumber("time", reply.time);
  if (reply.lease != 0) {
    writer.number("lease", reply.lease);
  }
  if (reply.batch && format == Format::cbor) {
    writer.bytes("batch", *reply.batch);
  }
  if (reply.more) {
    writer.boolean("more", true);
  }
  return writer.finish();
}

}  // namespace modelgate
