#include <signal.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

#include "tools/commands.h"
#include "tools/live_terminal.h"
#include "tools/live_view.h"
#include "tools/stop_signals.h"

namespace treectl {

namespace {

using Clock = Watcher::Clock;

/// A watch that is shown on the terminal until its end.
class LiveRun {
 public:
  explicit LiveRun(Context& context)
      : context_(context),
        options_(context.options()),
        watcher_(context, {.typed = true, .repeats = true}) {
    if (options_.plot) {
      view_ = std::make_unique<LiveChart>();
    } else {
      view_ = std::make_unique<LiveTable>();
    }
    if (options_.duration) {
      end_ = Watcher::after(*options_.duration);
    }
    // What comes sooner is shown together.
    constexpr double shortest = 0.05;
    interval_ = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::max(shortest, options_.every.value_or(0))));
  }

  /// Returns the signal that ended it, or 0.
  int run() {
    const StopSignals signals(StopSignals::Kind::terminal);
    std::vector<Address> addresses;
    if (!parseAddresses(context_, options_.operands, addresses) || !watcher_.start(addresses)) {
      return StopSignals::received();
    }
    {
      LiveTerminal terminal(context_.output(), context_.colored());
      terminal_ = &terminal;
      while (!isDone()) {
        waitAndTake();
        followTerminal();
        if (isDue()) {
          show();
        }
      }
    }
    if (options_.failOnLoss && lost_) {
      // The picture that said so is gone.
      context_.fail(Status::noServer, *lost_, "the server was lost");
    }
    return StopSignals::received();
  }

 private:
  [[nodiscard]] bool isDone() const {
    return StopSignals::received() != 0 || isQuit_ || context_.output().error() != 0 ||
           (options_.failOnLoss && lost_) || (options_.count && shown_ >= *options_.count) ||
           (end_ && *end_ <= Clock::now());
  }

  /// When the picture has to be painted next.
  [[nodiscard]] std::optional<Clock::time_point> nextPicture() const {
    if (mustPaint_ || !changed_.empty()) {
      return nextPicture_;
    }
    const std::int64_t step = view_->step(terminal_->size());
    if (step == 0) {
      return std::nullopt;
    }
    return std::max(nextPicture_, shownAt_ + std::chrono::microseconds(step));
  }

  [[nodiscard]] bool isDue() const {
    const auto next = nextPicture();
    return next && *next <= Clock::now();
  }

  void waitAndTake() {
    std::optional<Clock::time_point> deadline = nextPicture();
    if (end_ && (!deadline || *end_ < *deadline)) {
      deadline = end_;
    }
    pollfd keys{terminal_->keys(), POLLIN, 0};
    for (const Change& change : watcher_.wait(deadline, &keys)) {
      view_->take(change);
      if (change.event == Change::Event::lost && !lost_) {
        lost_ = change.address;
      }
      // As many as there would be lines.
      if (!change.isRepeated) {
        changed_.insert(change.address);
      }
      mustPaint_ = true;
    }
    isQuit_ = keys.revents != 0 && terminal_->readKeys();
  }

  void followTerminal() {
    if (StopSignals::takeSuspension()) {
      terminal_->suspend();
      repaint();
    }
    if (StopSignals::takeContinuation()) {
      terminal_->resume();
      repaint();
    }
    if (StopSignals::takeResize()) {
      terminal_->resize();
      repaint();
    }
  }

  void repaint() {
    mustPaint_ = true;
    nextPicture_ = {};
  }

  void show() {
    shown_ += changed_.size();
    changed_.clear();
    mustPaint_ = false;
    shownAt_ = Clock::now();
    nextPicture_ = shownAt_ + interval_;
    terminal_->show(
        view_->draw(watcher_, terminal_->size(), microsecondsNow(), terminal_->style()));
  }

  Context& context_;
  const Options& options_;
  Watcher watcher_;
  std::unique_ptr<LiveView> view_;
  LiveTerminal* terminal_ = nullptr;
  Clock::duration interval_{};
  std::optional<Clock::time_point> end_;
  std::unordered_set<std::string> changed_;  ///< the addresses, since the last picture
  unsigned long shown_ = 0;
  Clock::time_point shownAt_;
  Clock::time_point nextPicture_;  ///< not before
  bool mustPaint_ = true;
  std::optional<std::string> lost_;  ///< the first address whose server was lost
  bool isQuit_ = false;
};

}  // namespace

void runLive(Context& context) {
  if (const auto problem = LiveTerminal::problem()) {
    context.messages().print(context.options().plot ? "--plot" : "--live", *problem);
    context.note(Status::usage);
    return;
  }
  const int signal = LiveRun(context).run();
  if (signal == SIGHUP || signal == SIGQUIT) {
    endBySignal(signal);
  } else if (signal != 0) {
    context.note(statusOfSignal(signal));
  }
}

}  // namespace treectl
