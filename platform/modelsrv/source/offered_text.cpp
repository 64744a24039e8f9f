#include "modelsrv/source/offered_text.h"

#include <functional>

namespace ModelSrv::internal {

namespace {

thread_local OfferedText* offered = nullptr;

}  // namespace

OfferedText::OfferedText(EvtSrv::internal::ServerConnection& connection, std::string_view text)
    : connection_(connection), text_(text), outer_(offered) {
  offered = this;
}

OfferedText::~OfferedText() {
  offered = outer_;
}

std::unique_ptr<std::uint8_t[]> OfferedText::take(std::string_view text) {
  if (offered == nullptr || text.size() < leastBytes) {
    return nullptr;
  }
  const std::string_view all = offered->text_;
  const std::less_equal<const char*> notAfter;
  // The rest of that memory would be kept for nothing.
  const bool isMost = text.size() >= all.size() - all.size() / 8;
  const bool isPart = notAfter(all.data(), text.data()) && notAfter(text.end(), all.end());
  return isPart && isMost ? offered->connection_.takeRequestMemory() : nullptr;
}

}  // namespace ModelSrv::internal
