#include <unistd.h>

#include <utility>

#include "tools/commands.h"
#include "tools/input.h"
#include "tools/match.h"
#include "tools/store_reason.h"

namespace treectl {

namespace {

/// Stores values, in order.
class Setter {
 public:
  explicit Setter(Context& context) : context_(context), options_(context.options()) {}

  void run() {
    const std::vector<std::string>& words = options_.operands;
    const std::size_t step = options_.array || options_.fromInput ? words.size() : 2;
    std::vector<std::string> targets;
    for (std::size_t i = 0; i < words.size(); i += step) {
      targets.push_back(words[i]);
    }
    std::vector<Address> addresses;
    if (!parseAddresses(context_, targets, addresses) || !checkWildcards(addresses)) {
      return;
    }
    if (options_.array) {
      values_.assign(words.begin() + 1, words.end());
      storeAt(addresses.front(), true);
      return;
    }
    if (options_.fromInput && !readValue()) {
      return;
    }
    for (std::size_t i = 0; i < addresses.size() && !isStopped_; ++i) {
      if (!options_.fromInput) {
        values_ = {words[2 * i + 1]};
      }
      storeAt(addresses[i], false);
    }
  }

 private:
  bool checkWildcards(const std::vector<Address>& addresses) {
    for (const Address& address : addresses) {
      if (address.hasWildcards()) {
        context_.messages().print(address.text, "no wildcards in an address of set");
        context_.note(Status::usage);
        return false;
      }
    }
    return true;
  }

  bool readValue() {
    std::string text;
    // A larger value would be refused.
    const int error = readAll(STDIN_FILENO, text, ModelSrv::ModelValueText_Max + 1);
    if (error != 0) {
      context_.fail(Status::ioError, "standard input", errorText(error));
      return false;
    }
    if (text.ends_with('\n')) {
      text.pop_back();
    }
    values_ = {std::move(text)};
    return true;
  }

  void storeAt(const Address& address, bool array) {
    const Status before = context_.status();
    failed_ = false;
    forEachMatch(context_, address, [&](const Match& match) {
      if (array) {
        storeArray(match);
      } else {
        storeOne(match);
      }
      return Visit::taken;
    });
    isStopped_ = options_.stop && (failed_ || before != context_.status());
  }

  void storeOne(const Match& match) {
    std::string reason;
    const ModelSrv::ModelRes result = match.connection->store(
        match.chain, match.index, values_.front(), options_.passProtected, reason);
    report(match, result, reason);
  }

  void storeArray(const Match& match) {
    unsigned count = 0;
    ModelSrv::ModelRes result = match.connection->readElementCount(match.chain, count);
    if (result != ModelSrv::ModelRes_Success) {
      report(match, result, ModelSrv::describe(result), RequestKind::read);
      return;
    }
    if (match.index != ModelSrv::ModelPartIndex_All || count == 0) {
      fail(Status::notFound, match, "not an array");
      return;
    }
    if (count != values_.size()) {
      fail(Status::usage, match,
           "expected " + std::to_string(count) + " values, got " + std::to_string(values_.size()));
      return;
    }
    std::string reason;
    result = match.connection->storeElements(match.chain, values_, options_.passProtected, reason);
    report(match, result, reason);
  }

  void report(const Match& match, ModelSrv::ModelRes result, const std::string& reason,
              RequestKind kind = RequestKind::store) {
    if (result != ModelSrv::ModelRes_Success) {
      fail(statusOf(result, kind), match,
           result == ModelSrv::ModelRes_NoValue ? "a node has no value"
                                                : reasonAfterAddress(match.address, reason));
    }
  }

  void fail(Status status, const Match& match, std::string_view reason) {
    failed_ = true;
    context_.fail(status, match.shown(), reason);
  }

  Context& context_;
  const Options& options_;
  std::vector<std::string> values_;  ///< one, or those of an array
  bool failed_ = false;
  bool isStopped_ = false;
};

}  // namespace

void runSet(Context& context) {
  Setter(context).run();
}

}  // namespace treectl
