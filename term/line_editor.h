#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace UtilSrv {
class Thread;
}

namespace treescope {

/// What the line editor needs of the shell that owns it. All but `promptText`
/// are called on the reading thread only.
struct LineEditorHost {
  /// The text between the brackets of the prompt.
  std::function<std::string()> promptText;
  /// Runs one line that was typed, zero-terminated, without its line feed.
  /// Returns false when the shell is ending and wants no further prompt.
  std::function<bool(const char* line)> runLine;
  /// Standard input has ended: no line will come any more, the shell is to end.
  std::function<void()> endOfInput;
};

/// Reads what a person types, on a thread of its own, and hands each line to the
/// shell; keeps the lines as the history.
///
/// The thread is started by the constructor but takes no line before
/// `openGate`, so that a line that waits in a pipe already cannot meet a shell
/// that is still being built. It ends after the line during which the running
/// flag was cleared, or at the end of standard input. In batch mode there is no
/// thread, nothing is printed and nothing is read. Where the system gives no
/// thread, the shell is told that input has ended when the gate opens.
///
/// Everything but the running flag belongs to the reading thread once the gate
/// is open.
class LineEditor {
 public:
  /// `owner` is kept for the caller and has no influence here.
  LineEditor(int owner, bool batch, LineEditorHost host);

  /// Waits for the reading thread, which ends with the line it waits for.
  ~LineEditor();

  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  /// Lets the reading thread take its first line. To be called once, when the
  /// whole shell stands.
  void openGate();

  /// Any thread. Cleared, no line is read any more after the present one.
  void setRunning(bool running) { running_ = running; }

  /// Prints the prompt "[name]$ "; nothing in batch mode. `initialText`, unless
  /// null, becomes the text of the line.
  void showPrompt(const char* name, const char* initialText);

  [[nodiscard]] int owner() const { return owner_; }
  [[nodiscard]] bool batch() const { return batch_; }

  /// The lines taken so far that were not empty, oldest first.
  [[nodiscard]] const std::vector<std::string>& history() const { return history_; }

 private:
  static int readLines(void* editor);
  void waitAtGate();
  void takeLines();
  bool readLine();
  bool acceptLine();

  std::atomic<bool> running_{true};
  std::atomic<bool> gateOpen_{false};
  const int owner_;
  std::vector<std::string> history_;
  std::string line_;
  const bool batch_;
  const LineEditorHost host_;
  // Last: started when all else stands, joined while all else still does.
  std::unique_ptr<UtilSrv::Thread> reader_;
};

}  // namespace treescope
