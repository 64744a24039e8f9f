#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace treescope {

/// The line that is being edited: its text, the cursor, and the lines accepted before it.
///
/// Pure: reads nothing and prints nothing; `LineEditor` draws it. For one thread.
/// Texts are bytes. Any operation that needs memory may throw std::bad_alloc or
/// std::length_error.
class LineBuffer {
 public:
  [[nodiscard]] const std::string& text() const { return text_; }

  /// The cursor as an offset into the text; 0 is before the first byte. It may be
  /// past the end.
  [[nodiscard]] std::uint32_t cursor() const { return cursor_; }

  /// The lines accepted so far, oldest first.
  [[nodiscard]] const std::vector<std::string>& history() const { return history_; }

  /// Replaces the text; the cursor stays.
  void setText(std::string text) { text_ = std::move(text); }

  /// Empties the text and moves the cursor to the start.
  void clear() noexcept;

  void moveTo(std::uint32_t cursor) { cursor_ = cursor; }
  void moveToStart() { cursor_ = 0; }
  void moveToEnd() { cursor_ = static_cast<std::uint32_t>(text_.size()); }
  /// Stops at the start.
  void moveLeft() { cursor_ -= cursor_ > 0 ? 1 : 0; }
  /// Does not stop at the end.
  void moveRight() { ++cursor_; }

  /// Inserts the bytes of the key code `code`, lowest first, up to the first that is
  /// zero, and moves the cursor one byte right. A plain byte therefore inserts itself,
  /// and 0 inserts nothing but moves the cursor. If the cursor is past the end, the
  /// bytes are appended.
  void insertKey(int code);

  /// Deletes the byte before the cursor and moves the cursor one byte left. A cursor past
  /// the end only moves. Returns false, with no effect, at the start and on an empty line.
  bool deleteBackward();

  /// Deletes the byte at the cursor. Returns false, with no effect, if there is none.
  bool deleteAtCursor();

  /// Erases from the cursor to the end. Throws std::out_of_range, with no effect, if the
  /// cursor is past the end.
  void killToEnd() { text_.erase(cursor_); }

  /// Erases from the start to the cursor, and moves the cursor to the start.
  void killToStart();

  /// Goes `steps` lines back in the history, or to the oldest line if there are fewer,
  /// and moves the cursor to the end. The text that is replaced, edited or not, is what
  /// `browseNewer` returns to.
  void browseOlder(std::uint8_t steps) { browse(olderLines_, newerLines_, steps); }
  void browseNewer(std::uint8_t steps) { browse(newerLines_, olderLines_, steps); }

  /// Replaces what follows the last "/" or space, whichever is further right, and moves
  /// the cursor to the end. Returns false, with no effect, if the text has neither.
  bool replaceLastWord(const std::string& word);

  /// Accepts the text, which is not empty: resolves its references to the history
  /// (`expandHistory`), adds it to the history and ends browsing. Returns the line to
  /// run, which is the text from now on.
  ///
  /// Throws std::out_of_range, with no effect, if it refers to a line that does not
  /// exist (`expandHistory`).
  [[nodiscard]] std::string accept();

 private:
  void browse(std::vector<std::string>& from, std::vector<std::string>& to, std::uint8_t steps);

  std::string text_;
  std::uint32_t cursor_ = 0;
  std::vector<std::string> history_;
  // The lines that browsing reaches, the nearest one last. They are filled by the first
  // step after a line was accepted; until then `browsing_` is false and they are stale.
  std::vector<std::string> olderLines_;
  std::vector<std::string> newerLines_;
  bool browsing_ = false;
};

/// The longest prefix that all of `candidates` share, which completion may insert while
/// it cannot decide between them. Empty if they share none or there are none. Any
/// thread; candidates may hold any bytes.
[[nodiscard]] std::string commonPrefix(const std::vector<std::string>& candidates);

}  // namespace treescope
