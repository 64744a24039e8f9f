#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <unordered_set>
#include <utility>

#include "tools/change_json.h"
#include "tools/commands.h"
#include "tools/part_json.h"
#include "tools/stop_signals.h"
#include "tools/watcher.h"

namespace treectl {

namespace {

using Clock = Watcher::Clock;

constexpr std::chrono::seconds flushInterval{1};

/// A file that is written now and then. After the first error the rest is dropped.
class RecordFile {
 public:
  RecordFile() = default;
  ~RecordFile() {
    if (descriptor_ > STDERR_FILENO) {
      ::close(descriptor_);
    }
  }
  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;

  void open(const std::string& path) {
    descriptor_ = STDOUT_FILENO;
    if (path != "-") {
      descriptor_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
      error_ = descriptor_ < 0 ? errno : 0;
    }
  }

  [[nodiscard]] std::string& text() { return text_; }

  void flush() {
    if (error_ == 0) {
      error_ = writeAll(descriptor_, text_);
    }
    text_.clear();
  }

  /// The number of the first error; 0 if there was none.
  [[nodiscard]] int error() const { return error_; }

 private:
  int descriptor_ = -1;
  int error_ = 0;
  std::string text_;
};

/// Writes a watch into a file.
class Recorder {
 public:
  explicit Recorder(Context& context)
      : context_(context),
        options_(context.options()),
        watcher_(context, {.typed = true, .structure = true}) {}

  void run() {
    const StopSignals signals;
    std::vector<Address> addresses;
    if (!parseAddresses(context_, options_.operands, addresses) || !watcher_.start(addresses)) {
      return;
    }
    // Not before: a recording that cannot begin leaves an older one in its place.
    file_.open(options_.file);
    if (reportError()) {
      return;
    }
    const std::int64_t start = microsecondsNow();
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(options_.duration.value_or(0)));
    auto nextFlush = Clock::now() + flushInterval;
    std::string first;
    bool hasHeader = false;
    while (StopSignals::received() == 0 && file_.error() == 0 &&
           !(options_.duration && end <= Clock::now())) {
      const std::vector<Change> changes =
          watcher_.wait(options_.duration ? std::min(end, nextFlush) : nextFlush);
      for (const Change& change : changes) {
        if (change.event != Change::Event::noValue) {
          appendJsonChange(hasHeader ? file_.text() : first, change);
        }
      }
      // The header says what the parts are, so it waits for the first values.
      if (!hasHeader && watcher_.isComplete()) {
        hasHeader = true;
        appendHeader(start);
        file_.text() += std::exchange(first, {});
      }
      if (nextFlush <= Clock::now()) {
        file_.flush();
        nextFlush = Clock::now() + flushInterval;
      }
    }
    if (!hasHeader) {
      appendHeader(start);
      file_.text() += first;
    }
    file_.flush();
    static_cast<void>(reportError());
  }

 private:
  bool reportError() {
    if (file_.error() != 0) {
      context_.fail(Status::ioError, options_.file, errorText(file_.error()));
    }
    return file_.error() != 0;
  }

  /// The nodes: also those without parts, and those whose names are in no address.
  void appendNodes(JsonObject& header, std::string& out) {
    header.addKey("nodes");
    out += '[';
    bool isFirst = true;
    std::unordered_set<std::string> seen;
    watcher_.forEachNode([&](const WatchedPart& node) {
      if (!seen.insert(node.address).second) {
        return;
      }
      out += isFirst ? "" : ",";
      isFirst = false;
      JsonObject object(out);
      object.addText("address", node.address.empty() ? "/" : node.address);
      addPlace(object, out, node.chain, node.isNamed ? "" : node.name);
      object.end();
    });
    out += ']';
  }

  void appendHeader(std::int64_t start) {
    std::string& out = file_.text();
    JsonObject header(out);
    header.addRaw("format", "1");
    header.addText("version", TREECTL_VERSION);
    header.addText("start", utcTime(start));
    // Without it the addresses begin with the server's name.
    header.addTextIfAny("server", options_.server);
    appendNodes(header, out);
    header.addKey("parts");
    out += '[';
    bool isFirst = true;
    std::unordered_set<std::string> seen;
    watcher_.forEachPart([&](const WatchedPart& part) {
      if (!part.description || !seen.insert(part.address).second) {
        return;
      }
      out += isFirst ? "" : ",";
      isFirst = false;
      JsonObject object(out);
      object.addText("address", part.address);
      addPlace(object, out, part.chain, part.isNamed ? "" : part.name);
      object.addPart(*part.description, part.elementName);
      addDetails(object, out, *part.description);
      object.end();
    });
    out += ']';
    header.end();
    out += '\n';
  }

  Context& context_;
  const Options& options_;
  Watcher watcher_;
  RecordFile file_;
};

}  // namespace

void runRecord(Context& context) {
  Recorder(context).run();
}

}  // namespace treectl
