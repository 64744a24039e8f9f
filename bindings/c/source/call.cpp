#include "bindings/c/source/call.h"

#include <array>
#include <cstdlib>

namespace treescope_c {

namespace {

using ModelSrv::ModelRes;

// Fixed memory: no message needs an allocation, and no thread a destructor.
constexpr std::size_t messageSize = 1024;
thread_local std::array<char, messageSize> message{};

/// Appends what fits of `text` after `used` bytes; returns how many are used then. Never divides a
/// UTF-8 character.
std::size_t append(std::size_t used, std::string_view text) {
  const std::size_t space = messageSize - 1 - used;
  std::size_t count = text.size();
  if (count > space) {
    count = space;
    while (count > 0 && (static_cast<unsigned char>(text[count]) & 0xC0U) == 0x80U) {
      --count;
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    message[used + i] = byte < 0x20 || byte == 0x7F ? '?' : text[i];
  }
  return used + count;
}

}  // namespace

treescope_result fail(treescope_result result, std::string_view about,
                      std::string_view reason) noexcept {
  std::size_t used = 0;
  if (!about.empty()) {
    // The reason is what matters; it is at most half of the message.
    used = append(used, about.substr(0, messageSize / 2 - 2));
    used = append(used, ": ");
  }
  used = append(used, reason.empty() ? treescope_result_text(result) : reason);
  message[used] = 0;
  return result;
}

treescope_result toResult(ModelRes result) {
  switch (result) {
    case ModelSrv::ModelRes_DoNothing:
      // C programs do not know it, and there is no output. See `toValueResult` and `Client::store`.
      return TREESCOPE_PROTOCOL_ERROR;
    case ModelSrv::ModelRes_NotSubscribed:
      return TREESCOPE_CLOSED;
    default:
      return static_cast<treescope_result>(result);
  }
}

treescope_result toResult(EvtSrv::EvtRes result) {
  switch (result) {
    case EvtSrv::EvtRes_Success:
      return TREESCOPE_SUCCESS;
    case EvtSrv::EvtRes_Timeout:
      return TREESCOPE_TIMEOUT;
    case EvtSrv::EvtRes_NoDescriptors:
      return TREESCOPE_NO_DESCRIPTORS;
    default:
      return TREESCOPE_SYSTEM_ERROR;
  }
}

ModelRes toModelResult(treescope_result result, ModelRes otherwise) {
  switch (result) {
    case TREESCOPE_SUCCESS:
    case TREESCOPE_NO_SUCH_PART:
    case TREESCOPE_NO_SUCH_ELEMENT:
    case TREESCOPE_NO_VALUE:
    case TREESCOPE_BAD_TEXT:
    case TREESCOPE_OUT_OF_RANGE:
    case TREESCOPE_READ_ONLY:
    case TREESCOPE_PROTECTED:
    case TREESCOPE_VETOED:
    case TREESCOPE_TOO_LARGE:
    case TREESCOPE_UNREACHABLE:
    case TREESCOPE_DENIED:
      return static_cast<ModelRes>(result);
    default:
      return otherwise;
  }
}

}  // namespace treescope_c

// The numbers are the same on both sides of the C interface.
#define TREESCOPE_SAME(NAME, Name) \
  static_assert(static_cast<unsigned>(TREESCOPE_##NAME) == ModelSrv::ModelRes_##Name)
TREESCOPE_SAME(SUCCESS, Success);
TREESCOPE_SAME(NO_SUCH_PART, NoSuchPart);
TREESCOPE_SAME(NO_SUCH_ELEMENT, NoSuchIndex);
TREESCOPE_SAME(NO_VALUE, NoValue);
TREESCOPE_SAME(BAD_TEXT, BadText);
TREESCOPE_SAME(OUT_OF_RANGE, OutOfRange);
TREESCOPE_SAME(READ_ONLY, ReadOnly);
TREESCOPE_SAME(PROTECTED, Protected);
TREESCOPE_SAME(VETOED, Vetoed);
TREESCOPE_SAME(TOO_LARGE, TooLarge);
TREESCOPE_SAME(NOT_SUBSCRIBABLE, NotSubscribable);
TREESCOPE_SAME(LIMIT_REACHED, LimitReached);
TREESCOPE_SAME(BAD_REQUEST, BadRequest);
TREESCOPE_SAME(DUPLICATE_ID, DuplicateId);
TREESCOPE_SAME(BAD_ARGUMENT, BadArgument);
TREESCOPE_SAME(UNREACHABLE, Unreachable);
TREESCOPE_SAME(DENIED, Denied);
TREESCOPE_SAME(NO_SERVER, NotConnected);
TREESCOPE_SAME(TIMEOUT, Timeout);
TREESCOPE_SAME(NAME_IN_USE, NameInUse);
TREESCOPE_SAME(BAD_NAME, BadName);
TREESCOPE_SAME(NOT_PERMITTED, NotPermitted);
TREESCOPE_SAME(REFUSED, Refused);
TREESCOPE_SAME(PROTOCOL_ERROR, Protocol);
TREESCOPE_SAME(NO_DESCRIPTORS, NoDescriptors);
TREESCOPE_SAME(SYSTEM_ERROR, SystemError);
TREESCOPE_SAME(BUSY, Busy);
TREESCOPE_SAME(OUTCOME_UNKNOWN, OutcomeUnknown);
TREESCOPE_SAME(NO_SPACE, NoSpace);
TREESCOPE_SAME(NOT_WRITABLE, NotWritable);
TREESCOPE_SAME(NOT_SUPPORTED, NotSupported);
#undef TREESCOPE_SAME

const char* treescope_result_text(treescope_result result) {
  // An argument of another number is no value of the enumeration for the switch there.
  const auto number = static_cast<unsigned>(result);
  return number == TREESCOPE_CLOSED ? "the handle is not open"
                                    : ModelSrv::describe(static_cast<ModelSrv::ModelRes>(number));
}

const char* treescope_message() {
  return treescope_c::message.data();
}

void treescope_free(void* allocated) {
  std::free(allocated);
}

const char* treescope_version() {
  return TREESCOPE_VERSION;
}
