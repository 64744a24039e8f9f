#include <algorithm>
#include <chrono>
#include <unordered_map>
#include <unordered_set>

#include "tools/commands.h"
#include "tools/input.h"
#include "tools/match.h"
#include "tools/stop_signals.h"
#include "tools/store_reason.h"
#include "tools/time_text.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

using Clock = std::chrono::steady_clock;

/// Stores the values of a recording at the pace at which they were recorded.
class Replayer {
 public:
  explicit Replayer(Context& context) : context_(context), options_(context.options()) {}

  void run() {
    const StopSignals signals;
    TreeImage recording;
    if (!read(recording)) {
      return;
    }
    const auto begin = Clock::now();
    const std::int64_t first = recording.parts.empty() ? 0 : timeOf(recording.parts.front());
    for (const ImagePart& part : recording.parts) {
      if (!options_.fast) {
        waitUntil(begin, timeOf(part) - first);
      }
      if (StopSignals::received() != 0 || isLost_) {
        break;
      }
      replay(part);
    }
    if (const int signal = StopSignals::received()) {
      context_.note(statusOfSignal(signal));
    }
    context_.messages().printLine("stored " + std::to_string(stored_) + ", skipped " +
                                  std::to_string(skipped_) + ", refused " +
                                  std::to_string(refused_));
  }

 private:
  struct Target {
    Connection* connection = nullptr;  ///< null: it cannot be stored
    Chain chain;
    ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  };

  bool read(TreeImage& recording) {
    const std::string& path = options_.operands.front();
    std::string text;
    if (const int number = readInputFile(path, text)) {
      context_.failFile(path, number);
      return false;
    }
    std::string error;
    if (!parseRecording(std::move(text), recording, error)) {
      context_.fail(Status::ioError, printable(path), error);
      return false;
    }
    return true;
  }

  [[nodiscard]] static std::int64_t timeOf(const ImagePart& part) {
    return parseTime(part.time).value_or(0);
  }

  void waitUntil(Clock::time_point begin, std::int64_t microseconds) const {
    const std::chrono::duration<double, std::micro> offset(static_cast<double>(microseconds) /
                                                           options_.speed.value_or(1));
    const auto due = begin + std::chrono::duration_cast<Clock::duration>(offset);
    while (StopSignals::received() == 0 && Clock::now() < due) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
      constexpr std::chrono::milliseconds longest{1000000};
      StopSignals::waitFor(nullptr, 0, static_cast<int>(std::min(left, longest).count()));
    }
  }

  const Target& find(const ImagePart& part) {
    const auto found = targets_.try_emplace(part.address);
    Target& target = found.first->second;
    if (!found.second) {
      return target;
    }
    auto parsed = parseAddress(part.address, options_.server);
    if (const auto* problem = std::get_if<std::string>(&parsed)) {
      context_.fail(Status::ioError, options_.operands.front(), *problem);
      return target;
    }
    forEachMatch(context_, std::get<Address>(parsed), [&](const Match& match) {
      target = {match.connection, match.chain, match.index};
      return Visit::taken;
    });
    return target;
  }

  void replay(const ImagePart& part) {
    if (part.access == "ro") {
      ++skipped_;
      return;
    }
    const Target& target = find(part);
    if (target.connection == nullptr) {
      ++refused_;
      return;
    }
    std::string reason;
    const ModelSrv::ModelRes result =
        part.value.isArray
            ? target.connection->storeElements(target.chain, part.value.texts,
                                               options_.passProtected, reason)
            : target.connection->store(target.chain, target.index, part.value.texts.front(),
                                       options_.passProtected, reason);
    const Status status = statusOf(result, RequestKind::store);
    if (status == Status::success) {
      ++stored_;
      return;
    }
    ++refused_;
    isLost_ = status != Status::refused && status != Status::notFound;
    // A part that refuses once may do so a thousand times.
    if (refusedParts_.insert(part.address).second) {
      context_.fail(status, part.address, reasonAfterAddress(part.address, reason));
    }
  }

  Context& context_;
  const Options& options_;
  std::unordered_map<std::string, Target> targets_;
  std::unordered_set<std::string> refusedParts_;
  std::size_t stored_ = 0;
  std::size_t skipped_ = 0;
  std::size_t refused_ = 0;
  bool isLost_ = false;
};

}  // namespace

void runReplay(Context& context) {
  Replayer(context).run();
}

}  // namespace treectl
