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
#include "term/line_buffer.h"

namespace UtilSrv {
class Thread;
}

namespace treescope {

/// What the line editor needs of the shell that owns it. All but `promptText` are
/// called on the key-reader thread, except `endOfInput` if there is no such thread. The
/// last two may be empty.
struct LineEditorHost {
  /// The text between the brackets of the prompt.
  std::function<std::string()> promptText;
  /// Runs one typed line, zero-terminated, without its line feed. Returns false if the
  /// shell is ending and needs no further prompt.
  std::function<bool(const char* line)> runLine;
  /// Standard input has ended: no further key will come, and the shell is to end.
  std::function<void()> endOfInput;
  /// A key addressed a line or a position that does not exist.
  std::function<void()> rangeError{};
  /// A key could not be handled because memory ran out.
  std::function<void()> outOfMemory{};
};

/// Edits one line on a terminal in raw mode, one key at a time, on a thread of its
/// own, and passes each accepted line to the shell. Draws a `LineBuffer`.
///
/// The constructor starts the thread, which reads no key before `startReading`, so
/// that a key that is already waiting is not handled while the shell is being built.
/// The thread ends after the key during which the running flag was cleared, or at the
/// end of standard input. In batch mode there is no thread, nothing is printed, nothing
/// is read and the cursor stays at the start. If the system cannot start a thread,
/// `startReading` says so on standard error and itself reports the end of input.
///
/// Everything but the running flag belongs to the key-reader thread once reading has
/// started; commands run there, so their handlers may call every operation. What one
/// operation prints is not interleaved with other threads' lines, and is flushed before
/// the next key is read.
///
/// Texts are bytes; a byte takes one column.
class LineEditor {
 public:
  /// How `moveCursor` moves the cursor. 5 and 6 are other codes for `start` and
  /// `end`.
  enum CursorMove : int {
    stay = 0,
    start = 1,
    end = 2,
    right = 3,  ///< also past the end
    left = 4,   ///< not past the start
  };

  /// `owner` is kept for the caller and has no effect here.
  LineEditor(int owner, bool batch, LineEditorHost host);

  /// Waits for the key-reader thread, which ends after the key that it is waiting for.
  ~LineEditor();

  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  /// Lets the key-reader thread read its first key. To be called once, when the whole
  /// shell has been built.
  void startReading();

  /// Any thread. When cleared, no key is read after the current one.
  void setRunning(bool running) { running_ = running; }

  /// Prints the prompt "[name]$ " and the line, and moves the cursor to the end of the
  /// line. `initialText`, unless null, becomes the line first. No effect in batch mode.
  void showPrompt(const char* name, const char* initialText);

  /// Prints the line again from `textColumn` on; the terminal's cursor is left after it.
  void redrawLine();

  /// Moves the cursor as `CursorMove` says; with any other `how` it stays. Then places
  /// the terminal's cursor. No effect in batch mode.
  void moveCursor(int how);

  /// Inserts the key `code` as text (`LineBuffer::insertKey`).
  void insertKey(int code);

  /// Empties the line.
  void clearLine();

  /// Erases from the cursor to the end, or with `toEnd` false from the start to the
  /// cursor. Throws std::out_of_range if it is to erase to the end and the cursor is
  /// past it.
  void killLine(bool toEnd);

  /// Browses the history by up to `steps` lines (`LineBuffer::browseOlder`).
  void historyBack(std::uint8_t steps);
  void historyForward(std::uint8_t steps);

  /// Replaces the last word (`LineBuffer::replaceLastWord`). A line of one word stays,
  /// and nothing is printed.
  void replaceLastWord(const std::string& word);

  /// Makes `text` the line. The cursor stays, and nothing is printed.
  void setLine(std::string text) { buffer_.setText(std::move(text)); }

  /// Performs the action of the key `code` (`KeyCode`). Throws nothing: an error of the
  /// action is reported to the host, and an empty line follows after a new prompt.
  void handleKey(int code);

  [[nodiscard]] const std::string& line() const { return buffer_.text(); }
  /// The cursor as an offset into the line; 0 is before its first byte.
  [[nodiscard]] std::uint32_t cursor() const { return buffer_.cursor(); }
  /// The column of the terminal, from 1, in which the line begins.
  [[nodiscard]] int textColumn() const { return textColumn_; }
  [[nodiscard]] int owner() const { return owner_; }
  [[nodiscard]] bool batch() const { return batch_; }

  /// The lines accepted so far, oldest first.
  [[nodiscard]] const std::vector<std::string>& history() const { return buffer_.history(); }

 private:
  using Action = void (LineEditor::*)();

  static int readKeys(void* editor);
  void readUntilEnd();
  void endInput();

  // The keys and their actions: key_map.cpp.
  static Action actionOf(int code);
  void dispatchKey(int code);
  void recover(int code, const std::function<void()>& report);
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

  void drawEdit();
  void reprompt();
  void repaint();
  void flushRepaint();

  std::atomic<bool> running_{true};
  std::atomic<bool> readingStarted_{false};
  const int owner_;
  LineBuffer buffer_;
  int textColumn_ = 1;
  // Whether the text of the current key may be drawn together with that of the keys
  // that are waiting, and whether such text has not been drawn yet.
  bool deferRepaint_ = false;
  bool repaintPending_ = false;
  const bool batch_;
  const LineEditorHost host_;
  std::optional<RepaintRequests> repaintRequests_;
  // Last: started when all other members exist, joined before any is destroyed.
  std::unique_ptr<UtilSrv::Thread> reader_;
};

}  // namespace treescope
