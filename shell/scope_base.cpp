#include "shell/scope_base.h"

#include "evtsrv/event_port_manager.h"
#include "shell/paths.h"
#include "term/shown_text.h"
#include "term/terminal_mode.h"

namespace treescope {

namespace {

constexpr int stepMilliseconds = 100;

}  // namespace

ScopeBase::ScopeBase(EvtSrv::EventPortManager* manager, int batch)
    : eventPortManager_(manager),
      lineEditor_(0, batch != 0,
                  {[this] { return promptText(); },
                   [this](const char* line) { return runLine(line) != result::exit; },
                   [this] { runLine("exit"); }, [this] { printResult(result::notFound); },
                   [this] { printResult(result::outOfMemory); }}),
      printer_(colour_, batch != 0),
      wordTree_(std::make_unique<WordNode>()),
      batch_(batch) {
  if (batch_ == 0) {
    signalStack_.emplace();
    // Fails when standard input is not a terminal; there is no mode to change then.
    static_cast<void>(setRawMode(1));
  }
  lineEditor_.showPrompt(promptText().c_str(), nullptr);
}

ScopeBase::~ScopeBase() {
  if (batch_ == 0) {
    static_cast<void>(setRawMode(0));
  }
}

void ScopeBase::acceptInput() {
  lineEditor_.startReading();
}

int ScopeBase::isRunning() const {
  return running_;
}

void ScopeBase::setRunning(int running) {
  lineEditor_.setRunning(running != 0);
  running_ = running;
}

int ScopeBase::step() {
  // Neither result matters: an iteration may pass without an event.
  static_cast<void>(eventPortManager_->receiveEvent(stepMilliseconds));
  static_cast<void>(eventPortManager_->finishActiveTerm(stepMilliseconds));
  return 1;
}

void ScopeBase::printResult(int code) {
  const char* message = resultMessage(code);
  if (message == nullptr) {
    return;
  }
  const std::string text = batch_ != 0 ? message : std::string(message) + '\n';
  printer_.printStyled({.text = text.c_str()});
}

int ScopeBase::printCurrentPath() {
  const std::string text = shownText(pathText(currentPath_));
  return printer_.printLine({.text = text.c_str()}, false) ? result::success : result::unknownError;
}

void ScopeBase::setPorts(const char* first, const char* second, const char* third) {
  portName1_ = first;
  portName2_ = second;
  portName3_ = third;
}

int ScopeBase::printHistory(bool paging) {
  const std::vector<std::string>& history = lineEditor_.history();
  for (std::size_t index = 0; index < history.size(); ++index) {
    const std::string text = std::to_string(index) + ' ' + history[index];
    if (!printer_.printLineReset({.text = text.c_str()}, index == 0, paging)) {
      break;
    }
  }
  return result::success;
}

void ScopeBase::expandWildcard(const char* pattern, std::vector<std::string>& matches) const {
  matches = matchingPaths(*wordTree_, pattern);
}

std::string ScopeBase::promptText() const {
  return promptLabel_ + ' ' + (currentPath_.empty() ? "/" : shownText(currentPath_.back()));
}

void ScopeBase::setPromptLabel(const char* label) {
  promptLabel_ = label;
  showPrompt();
}

void ScopeBase::showPrompt() {
  lineEditor_.showPrompt(promptText().c_str(), nullptr);
}

}  // namespace treescope
