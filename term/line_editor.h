#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "term/key_input.h"

namespace UtilSrv {
class Thread;
}

namespace treescope {

/// What the line editor needs of the shell that owns it. All but `promptText`
/// are called on the reading thread only. The last two may be empty.
struct LineEditorHost {
  /// The text between the brackets of the prompt.
  std::function<std::string()> promptText;
  /// Runs one line that was typed, zero-terminated, without its line feed.
  /// Returns false when the shell is ending and wants no further prompt.
  std::function<bool(const char* line)> runLine;
  /// Standard input has ended: no key will come any more, the shell is to end.
  std::function<void()> endOfInput;
  /// A key asked for what is not there, such as a line behind the history's end.
  std::function<void()> rangeError{};
  /// There was no memory for what a key asked for.
  std::function<void()> outOfMemory{};
};

/// Edits one line on a terminal in raw mode, a key at a time, on a thread of its
/// own; hands each finished line to the shell and keeps it as history.
///
/// The thread is started by the constructor but takes no key before `startReading`, so
/// that a key that waits already cannot meet a shell that is still being built. It
/// ends after the key during which the running flag was cleared, or at the end of
/// standard input. In batch mode there is no thread, nothing is printed and nothing
/// is read. Where the system gives no thread, the shell is told that input has
/// ended when reading starts.
///
/// Everything but the running flag belongs to the reading thread once reading
/// has started; commands run there, so their handlers may use every operation. What an
/// operation prints stays in one piece between other threads' lines, and is
/// flushed before the next key is awaited.
///
/// Texts are bytes; a byte takes one column.
class LineEditor {
 public:
  /// `owner` is kept for the caller and has no influence here.
  LineEditor(int owner, bool batch, LineEditorHost host);

  /// Waits for the reading thread, which ends with the key it waits for.
  ~LineEditor();

  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  /// Lets the reading thread take its first key. To be called once, when the
  /// whole shell stands.
  void startReading();

  /// Any thread. Cleared, no key is read any more after the present one.
  void setRunning(bool running) { running_ = running; }

  /// Prints the prompt "[name]$ " and behind it the line, the cursor at its end;
  /// nothing in batch mode. `initialText`, unless null, becomes the line.
  void showPrompt(const char* name, const char* initialText);

  /// Prints the line anew, from `textColumn` on; leaves the cursor behind it.
  void redrawLine();

  /// 1 and 5 put the cursor at the beginning of the line, 2 and 6 at its end, 3 and
  /// 4 move it one place right or left, which may be past the end; with any other
  /// `how` it stays. Then puts the terminal's cursor there. Nothing in batch mode.
  void moveCursor(int how);

  /// Inserts the bytes of `code`, lowest first, up to the first that is zero, at the
  /// cursor and moves it one place right. So a plain byte is itself, and 0 inserts
  /// nothing but moves the cursor.
  void insertKey(int code);

  /// Empties the line.
  void clearLine();

  /// Erases what is behind the cursor, or with `toEnd` false what is before it.
  /// Throws std::out_of_range when all behind a cursor past the end is to go.
  void killLine(bool toEnd);

  /// Brings back the line before this one, `steps` times or as often as there is
  /// one. The line that it replaces waits for `historyForward`.
  void historyBack(std::uint8_t steps);
  void historyForward(std::uint8_t steps);

  /// Replaces what follows the last "/" or blank of the line, whichever is further
  /// right, and puts the cursor at the end. A line without either stays as it is,
  /// and nothing is printed.
  void replaceLastWord(const std::string& word);

  /// Makes `text` the line; prints nothing and leaves the cursor.
  void setLine(std::string text) { line_ = std::move(text); }

  /// Does what the key `code` (`term/key_codes.h`) stands for. Nothing is thrown: a
  /// key that cannot be obeyed is told to the host, and leaves an empty line
  /// behind a new prompt.
  void handleKey(int code);

  [[nodiscard]] const std::string& line() const { return line_; }
  /// The cursor's place in the line; 0 is before its first byte.
  [[nodiscard]] std::uint32_t cursor() const { return cursor_; }
  /// The column of the terminal, from 1, in which the line begins.
  [[nodiscard]] int textColumn() const { return textColumn_; }
  [[nodiscard]] int owner() const { return owner_; }
  [[nodiscard]] bool batch() const { return batch_; }

  /// The lines accepted so far, oldest first.
  [[nodiscard]] const std::vector<std::string>& history() const { return history_; }

 private:
  using Action = void (LineEditor::*)();

  static int readKeys(void* editor);
  void takeKeys();
  void endInput();
  void repaint();

  static Action actionOf(int code);
  void dispatchKey(int code);
  void recover(int code, const std::function<void()>& tell);
  void typeText(int code);
  void deleteBackward();
  void goToStart();
  void goToEnd();
  void goLeft();
  void goRight();
  void deleteAtCursor();
  void killToEnd();
  void killToStart();
  void goBack();
  void goForward();
  void goPageBack();
  void goPageForward();
  void complete();
  void accept();
  void ignore() {}

  void reprompt();
  void insertText(int code);
  void flushRepaint();
  void browse(std::vector<std::string>& from, std::vector<std::string>& to, std::uint8_t steps);

  std::atomic<bool> running_{true};
  std::atomic<bool> readingStarted_{false};
  const int owner_;
  std::vector<std::string> history_;
  // What walking back and forward brings, the next one last. While `browsing_` is
  // false they stand for all of the history and nothing, and are filled when the
  // first step is made.
  std::vector<std::string> olderLines_;
  std::vector<std::string> newerLines_;
  bool browsing_ = false;
  std::string line_;
  int textColumn_ = 1;
  std::uint32_t cursor_ = 0;
  // Whether the text of the present key may be shown later, with that of the keys
  // that wait behind it, and whether such text is still to be shown.
  bool deferRepaint_ = false;
  bool repaintOwed_ = false;
  const bool batch_;
  const LineEditorHost host_;
  std::optional<RepaintRequests> wishes_;
  // Last: started when all else stands, joined while all else still does.
  std::unique_ptr<UtilSrv::Thread> reader_;
};

}  // namespace treescope
