#include <unistd.h>

#include <string_view>
#include <unordered_map>
#include <utility>

#include "tools/change_json.h"
#include "tools/commands.h"
#include "tools/stop_signals.h"
#include "tools/watch_pacer.h"

namespace treectl {

namespace {

using Clock = Watcher::Clock;

/// Prints changes as lines, one for each.
class WatchPrinter {
 public:
  explicit WatchPrinter(Context& context) : context_(context), options_(context.options()) {}

  /// Whether the output is at its end.
  [[nodiscard]] bool isDone() const { return isFull() || (options_.failOnLoss && hasLost_); }
  [[nodiscard]] bool hasLost() const { return hasLost_; }

  void print(const Change& change) {
    // There is no line for a value that is missing.
    if (isFull() || change.event == Change::Event::noValue) {
      return;
    }
    note(change);
    std::string& out = context_.output().text();
    if (options_.json) {
      appendJsonChange(out, change);
    } else {
      appendLine(out, change);
    }
    ++lines_;
    context_.output().writeIfLarge();
  }

  /// Prints the header of a table. Its columns stay: the parts that there are now.
  void printHeader(const Watcher& watcher) {
    std::string& out = context_.output().text();
    out += "time";
    watcher.forEachPart([&](const WatchedPart& part) {
      columns_.push_back(part.address);
      appendField(out, part.address);
    });
    out += '\n';
  }

  /// Prints the row of a table: the time, and the present value of each part; of one that has left,
  /// that has no value, or whose server is lost, nothing.
  void printRow(const Watcher& watcher, std::int64_t time) {
    if (isFull()) {
      return;
    }
    std::unordered_map<std::string_view, const Value*> values;
    watcher.forEachPart([&](const WatchedPart& part) {
      values[part.address] = part.value && !part.isOutdated ? &*part.value : nullptr;
    });
    std::string& out = context_.output().text();
    out += utcTime(time);
    for (const std::string& column : columns_) {
      const auto found = values.find(column);
      std::string field;
      if (found != values.end() && found->second != nullptr) {
        appendPlain(field, *found->second);
      }
      appendField(out, field);
    }
    out += '\n';
    ++lines_;
    context_.output().writeIfLarge();
  }

  /// Notes a change that is not printed by itself.
  void note(const Change& change) { hasLost_ = hasLost_ || change.event == Change::Event::lost; }

 private:
  [[nodiscard]] bool isFull() const {
    return (options_.count && lines_ >= *options_.count) || context_.output().error() != 0;
  }

  void appendLine(std::string& out, const Change& change) const {
    if (options_.time) {
      out += localTime(change.time);
      out += '\t';
    }
    out += change.address;
    out += '\t';
    if (change.event != Change::Event::value) {
      out += change.event == Change::Event::lost ? "!lost" : "!restored";
    } else {
      const std::size_t begin = out.size();
      appendPlain(out, change.value);
      // Only an event begins like this.
      if (out.size() > begin && out[begin] == '!') {
        out.insert(begin, 1, '\\');
      }
    }
    out += '\n';
  }

  /// A field of a CSV row, with the comma in front (RFC 4180).
  static void appendField(std::string& out, std::string_view text) {
    out += ',';
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
      out += text;
      return;
    }
    out += '"';
    for (const char byte : text) {
      out += byte;
      if (byte == '"') {
        out += byte;
      }
    }
    out += '"';
  }

  Context& context_;
  const Options& options_;
  unsigned long lines_ = 0;
  std::vector<std::string> columns_;  ///< the addresses
  bool hasLost_ = false;
};

/// Runs a watch until its end.
class WatchRun {
 public:
  explicit WatchRun(Context& context)
      : context_(context),
        options_(context.options()),
        watcher_(context, {.typed = options_.json, .repeats = options_.csv}),
        printer_(context) {
    if (options_.every) {
      pacer_.emplace(*options_.every);
    }
    if (options_.duration) {
      end_ = Watcher::after(*options_.duration);
    }
  }

  void run() {
    const StopSignals signals;
    std::vector<Address> addresses;
    if (!parseAddresses(context_, options_.operands, addresses) || !watcher_.start(addresses)) {
      return;
    }
    while (!printer_.isDone() && StopSignals::received() == 0 && !(end_ && *end_ <= Clock::now())) {
      const std::vector<Change> changes = watcher_.wait(nextDeadline());
      if (options_.csv) {
        printRows(changes);
      } else {
        printLines(changes);
      }
      context_.output().flush();
    }
    printHeldBack();
    if (options_.failOnLoss && printer_.hasLost()) {
      context_.note(Status::noServer);
    }
    if (const int signal = StopSignals::received()) {
      context_.note(statusOfSignal(signal));
    }
  }

 private:
  /// What is held back at the end is the last value of its address.
  void printHeldBack() {
    if (hasRow_) {
      printer_.printRow(watcher_, microsecondsNow());
    } else if (pacer_) {
      for (const Change& change : pacer_->takeAll()) {
        printer_.print(change);
      }
    }
  }

  [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const {
    std::optional<Clock::time_point> deadline = end_;
    const auto consider = [&](std::optional<Clock::time_point> other) {
      if (other && (!deadline || *other < *deadline)) {
        deadline = other;
      }
    };
    if (pacer_) {
      consider(pacer_->deadline());
    }
    if (hasRow_) {
      consider(nextRow_);
    }
    return deadline;
  }

  void printLines(const std::vector<Change>& changes) {
    const auto now = Clock::now();
    if (pacer_) {
      for (const Change& change : pacer_->takeDue(now)) {
        printer_.print(change);
      }
    }
    for (const Change& change : changes) {
      if (options_.changes && change.isFirst) {
        continue;
      }
      if (change.event != Change::Event::value || !pacer_ || pacer_->admit(change, now)) {
        printer_.print(change);
      }
    }
  }

  /// One row for all changes that came together, the first when all values are known.
  void printRows(const std::vector<Change>& changes) {
    for (const Change& change : changes) {
      // A loss empties cells, as a missing value does; values that come after it fill them again.
      hasRow_ = hasRow_ || (hasHeader_ && change.event != Change::Event::restored);
      printer_.note(change);
    }
    if (!watcher_.isComplete()) {
      return;
    }
    if (!hasHeader_) {
      hasHeader_ = true;
      printer_.printHeader(watcher_);
      hasRow_ = !options_.changes;
    }
    const auto now = Clock::now();
    if (hasRow_ && nextRow_ <= now) {
      hasRow_ = false;
      printer_.printRow(watcher_, microsecondsNow());
      nextRow_ = options_.every ? Watcher::after(*options_.every) : now;
    }
  }

  Context& context_;
  const Options& options_;
  Watcher watcher_;
  WatchPrinter printer_;
  std::optional<WatchPacer> pacer_;
  std::optional<Clock::time_point> end_;
  bool hasHeader_ = false;
  bool hasRow_ = false;
  Clock::time_point nextRow_;
};

}  // namespace

void runWatch(Context& context) {
  if (context.options().live || context.options().plot) {
    runLive(context);
    return;
  }
  WatchRun(context).run();
}

}  // namespace treectl
