#include <charconv>
#include <optional>
#include <unordered_map>

#include "tools/commands.h"
#include "tools/match.h"
#include "tools/stop_signals.h"
#include "tools/store_reason.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

/// Stores what a file has and the live tree has not.
class Restorer {
 public:
  explicit Restorer(Context& context) : context_(context), options_(context.options()) {}

  void run() {
    const StopSignals signals;
    TreeImage file;
    if (!readImageFile(context_, options_.operands.front(), file) || !readLiveTree(file)) {
      return;
    }
    std::size_t done = 0;
    while (done < file.parts.size() && StopSignals::received() == 0 && !isLost_) {
      restore(file.parts[done]);
      ++done;
    }
    printSummary(file.parts.size() - done);
    if (const int signal = StopSignals::received()) {
      context_.note(statusOfSignal(signal));
    } else if (refused_ > 0) {
      context_.note(Status::refused);
    }
  }

 private:
  bool readLiveTree(const TreeImage& file) {
    const bool isGiven = options_.operands.size() == 2;
    base_ = isGiven ? options_.operands.back() : file.base;
    auto parsed = parseAddress(base_, isGiven ? options_.server : std::string());
    if (const auto* problem = std::get_if<std::string>(&parsed)) {
      context_.messages().print(isGiven ? *problem
                                        : printable(options_.operands.front()) +
                                              ": has no base; expected an address after it");
      context_.note(Status::usage);
      return false;
    }
    while (base_.ends_with('/')) {
      base_.pop_back();
    }
    if (!readImage(context_, std::get<Address>(parsed), live_)) {
      return false;
    }
    for (const ImagePart& part : live_.parts) {
      index_.emplace(part.address, &part);
    }
    return true;
  }

  void restore(const ImagePart& part) {
    const ImagePart* target = find(part.address);
    const auto element = target == nullptr ? elementOf(part.address) : std::nullopt;
    if (element) {
      target = find(std::string_view(part.address).substr(0, part.address.rfind('[')));
    }
    // The shell's `to` writes a node without children as an empty value.
    const bool isEmptyNode = target == nullptr && part.type.empty() && isEmpty(part.value);
    if (isEmptyNode || (target != nullptr && target->access == "ro")) {
      ++skipped_;
    } else if (target == nullptr) {
      refuse(part, "no such part");
    } else if (element && (!target->value.isArray || *element >= target->value.texts.size())) {
      refuse(part, "no such element");
    } else if (const Value present =
                   element ? Value{{target->value.texts[*element]}, false} : target->value;
               isSameValue(part.value, present, target->type)) {
      ++same_;
    } else if (part.value.isArray && part.value.texts.size() != present.texts.size()) {
      refuse(part, "expected " + std::to_string(present.texts.size()) + " values, got " +
                       std::to_string(part.value.texts.size()));
    } else {
      store(part, *target, element);
    }
  }

  [[nodiscard]] static bool isEmpty(const Value& value) {
    return value.texts.size() == 1 && value.texts.front().empty();
  }

  [[nodiscard]] const ImagePart* find(std::string_view address) const {
    const auto found = index_.find(address);
    return found == index_.end() ? nullptr : found->second;
  }

  /// The index at the end of an address.
  [[nodiscard]] static std::optional<unsigned> elementOf(std::string_view address) {
    const std::size_t open = address.rfind('[');
    if (open == std::string_view::npos || !address.ends_with(']')) {
      return std::nullopt;
    }
    unsigned index = 0;
    const char* const end = address.data() + address.size() - 1;
    const auto [stop, code] = std::from_chars(address.data() + open + 1, end, index);
    return code == std::errc{} && stop == end ? std::optional(index) : std::nullopt;
  }

  void store(const ImagePart& part, const ImagePart& target, std::optional<unsigned> element) {
    if (options_.dryRun) {
      preview(part, target);
      return;
    }
    std::string reason;
    const auto index =
        element ? static_cast<ModelSrv::ModelPartIndex>(*element) : ModelSrv::ModelPartIndex_All;
    Connection& connection = *target.connection;
    const ModelSrv::ModelRes result =
        part.value.isArray ? connection.storeElements(target.chain, part.value.texts,
                                                      options_.passProtected, reason)
                           : connection.store(target.chain, index, part.value.texts.front(),
                                              options_.passProtected, reason);
    const Status status = statusOf(result, RequestKind::store);
    if (status == Status::success) {
      ++stored_;
      return;
    }
    if (status == Status::refused || status == Status::notFound) {
      refuse(part, std::string(reasonAfterAddress(part.address, reason)) +
                       (result == ModelSrv::ModelRes_Protected ? " (see --protected)" : ""));
      return;
    }
    isLost_ = true;
    context_.fail(status, base_ + part.address, reason);
  }

  void preview(const ImagePart& part, const ImagePart& target) {
    if (target.access == "protected" && !options_.passProtected) {
      refuse(part, "the part is protected (see --protected)");
      return;
    }
    ++stored_;
    std::string& out = context_.output().text();
    out += base_ + part.address;
    out += '\t';
    appendPlain(out, part.value);
    out += '\n';
    context_.output().writeIfLarge();
  }

  /// One refusal does not end the rest. The status is set at the end.
  void refuse(const ImagePart& part, std::string_view reason) {
    ++refused_;
    context_.output().flush();
    context_.messages().print(base_ + part.address, reason);
  }

  void printSummary(std::size_t left) {
    std::string text = options_.dryRun ? "would store " : "stored ";
    text += std::to_string(stored_) + ", same " + std::to_string(same_) + ", skipped " +
            std::to_string(skipped_) + ", refused " + std::to_string(refused_);
    if (left > 0) {
      text += ", left " + std::to_string(left);
    }
    context_.output().flush();
    context_.messages().printLine(text);
  }

  Context& context_;
  const Options& options_;
  std::string base_;  ///< without a "/" at the end
  TreeImage live_;
  std::unordered_map<std::string_view, const ImagePart*> index_;
  std::size_t stored_ = 0;
  std::size_t same_ = 0;
  std::size_t skipped_ = 0;
  std::size_t refused_ = 0;
  bool isLost_ = false;
};

}  // namespace

void runRestore(Context& context) {
  Restorer(context).run();
}

}  // namespace treectl
