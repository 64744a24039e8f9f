#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shell/results.h"
#include "shell/word_tree.h"
#include "term/line_editor.h"
#include "term/screen_printer.h"
#include "term/terminal_mode.h"

namespace EvtSrv {
class EventPortManager;
}

namespace treescope {

class CommandFileRun;

/// The generic shell: splits lines into commands, checks the arguments of each
/// command and calls its handler. A concrete shell overrides the handlers.
///
/// An interactive shell reads lines on the line editor's thread, and every command
/// runs there; the thread that constructed the shell only repeats `step`. In batch
/// mode everything runs on the caller's thread. Only the running flag and the
/// printer may be used from both threads.
///
/// Results are codes (`shell/results.h`). Handlers return them; only the dispatcher
/// prints their messages. Texts are zero-terminated; a missing argument is null.
class ScopeBase {
 public:
  /// `manager` is not owned, must outlive the shell, and is used by `step` only.
  /// With a `batch` of 0 the constructor starts the line editor's thread, which
  /// waits for `acceptInput`, puts the terminal into raw mode
  /// (term/terminal_mode.h) until the destructor restores it, and prints the first
  /// prompt.
  ScopeBase(EvtSrv::EventPortManager* manager, int batch);
  ScopeBase(const ScopeBase&) = delete;
  ScopeBase& operator=(const ScopeBase&) = delete;

  virtual ~ScopeBase();

  // The handlers of the commands; the command table (shell/command_table.h) calls
  // them. These defaults accept the command and do nothing. `options` holds the
  // bits of the command's options.

  virtual int doLs(unsigned /*options*/, const char* /*path*/) { return result::nothing; }
  virtual int doCd(const char* /*path*/) { return result::nothing; }
  virtual int doSet(unsigned /*options*/, const char* /*value*/, const char* /*path*/) {
    return result::nothing;
  }
  virtual int doStr(const char* /*text*/, const char* /*path*/) { return result::nothing; }
  virtual int doGet(const char* /*path*/) { return result::nothing; }
  virtual int doEu(unsigned /*options*/, const char* /*path*/) { return result::nothing; }
  virtual int doDu(const char* /*path*/) { return result::nothing; }
  virtual int doConvert(const char* /*first*/, const char* /*second*/) { return result::nothing; }
  virtual int doFrom(const char* /*first*/, const char* /*second*/) { return result::nothing; }
  virtual int doTo(const char* /*first*/, const char* /*second*/) { return result::nothing; }
  virtual int doCat(unsigned /*options*/, const char* /*path*/) { return result::nothing; }
  virtual int doCon(const char* /*first*/, const char* /*second*/) { return result::nothing; }
  virtual int doDis(const char* /*first*/, const char* /*second*/) { return result::nothing; }
  virtual int doLoad(const char* /*name*/) { return result::nothing; }
  virtual int doSave(const char* /*name*/) { return result::nothing; }
  virtual int doRn(const char* /*first*/, const char* /*second*/) { return result::nothing; }
  virtual int doRm(const char* /*name*/) { return result::nothing; }
  virtual int doMkdir(const char* /*name*/) { return result::nothing; }
  /// A completion request: `head` is the command word, followed by one space when it
  /// is complete; `lastWord` is the word to be completed.
  virtual int doTab(const char* /*head*/, const char* /*lastWord*/) { return result::nothing; }
  virtual int doExit() { return result::nothing; }
  virtual int doEnd() { return result::nothing; }
  virtual int doTerminate() { return result::nothing; }
  virtual int doBt(unsigned /*options*/, const char* /*path*/) { return result::nothing; }
  virtual int doHelp() { return result::nothing; }
  /// A command word that is not in the command table.
  virtual int doOther(const char* /*word*/, const char* /*first*/, const char* /*second*/) {
    return result::nothing;
  }

  /// Lets the line editor read its first line. Called once, after the concrete shell
  /// is constructed.
  void acceptInput();

  /// 1 until an exit command or the end of input. Any thread.
  [[nodiscard]] int isRunning() const;
  /// 0 ends the interactive loop and the line editor. Any thread.
  void setRunning(int running);

  /// One iteration of the interactive loop: dispatches an event if one arrives
  /// within 100 ms, and continues pending terminations of connections. Returns 1.
  int step();

  /// Runs the commands of a typed line, which ";" separates, until one returns a
  /// code other than success or nothing. Returns that code, else success.
  int runLine(const char* line);

  /// Runs the commands of one line of a script until one does not succeed. Returns
  /// the last code, `result::nothing` when there is no command. With a non-zero
  /// `unquote`, one double quote at the beginning of the line is removed first; two
  /// double quotes there make the line empty.
  int runCommandString(const char* text, int unquote);

  /// Runs the lines of the file `fileName` until one does not succeed. Returns the
  /// last code. An empty line ends the run with `result::nothing`, and so does a line
  /// feed at the end of the file. Of a line of more than 999 bytes the first 999 are
  /// run, and the run ends after it. Returns `result::openFileError` when the file
  /// cannot be read or the process has no descriptor left. Waits for the first writer
  /// of a named pipe, and for its lines.
  int runCommandFile(const char* fileName);

  /// For the handlers of commands that run a file: as `runCommandFile`, unless a
  /// command file has called the handler. Then it returns `result::success` when the
  /// file is open. The file is run when the handler has returned, and its result is
  /// the command's. So files run each other to any depth.
  int runFileOfCommand(const char* fileName);

  /// Runs one command and prints the message of its result. Returns the result:
  /// `result::nothing` for an empty command, `result::exit` when the shell is ending.
  /// Does not throw.
  int dispatch(const char* command);

  /// Runs `command` in the system's command interpreter (system(3)) and waits for
  /// it. Pending output is flushed first, and the terminal is in its original mode
  /// while the command runs. Only the command reacts to the interrupt and quit keys
  /// then. Returns the interpreter's wait status, -1 when it could not be started.
  static int runSystemCommand(const char* command);

  /// Prints the message of `code`, if it has one.
  void printResult(int code);

  /// Prints the current path on one line.
  int printCurrentPath();

  /// Stores the names of three ports. No command uses them.
  void setPorts(const char* first, const char* second, const char* third);

  /// Prints the line editor's history, each entry after its number, until the user
  /// quits the pager.
  int printHistory(bool paging);

  /// Replaces `matches` by the paths of the known names that `pattern` matches
  /// (`matchingPaths`).
  void expandWildcard(const char* pattern, std::vector<std::string>& matches) const;

  // Completion. A candidate is the complete replacement of what is completed. Each
  // of these prints the prompt again. Several candidates are first listed in columns,
  // without paging, and their common beginning replaces the last word
  // (`LineEditor::replaceLastWord`). Of a candidate from a server or a file name only
  // what stands before its first ";" or control character is inserted.

  /// Completes the command word `head` (null when nothing is typed) to one of
  /// `codes` (row indices of the command table, ended by `noCommand`). Returns true,
  /// and presents nothing, if `head` is one of them followed by one space: the word
  /// after it is to be completed.
  bool completeCommandWord(const int* codes, const char* head);

  /// Presents the candidates for the last word of the line. A single candidate
  /// replaces that word; ".." becomes "../".
  void presentCandidates(std::vector<std::string> candidates);

  /// Presents the candidates for the whole line. A single candidate replaces it.
  void presentLineCandidates(std::vector<std::string> candidates);

  /// The text of the prompt: the label, a space, then the last component of the
  /// current path, as it is shown (term/shown_text.h), or "/".
  [[nodiscard]] std::string promptText() const;
  /// Stores the label and prints the prompt again.
  void setPromptLabel(const char* label);

 protected:
  EvtSrv::EventPortManager* const eventPortManager_;
  std::atomic<int> running_{1};
  const int colour_ = 0;
  LineEditor lineEditor_;
  ScreenPrinter printer_;
  /// The current directory, outermost component first.
  std::vector<std::string> currentPath_;
  std::unique_ptr<WordNode> wordTree_;
  std::string promptLabel_;
  std::string portName1_;
  std::string portName2_;
  std::string portName3_;
  const int batch_;

 private:
  void showPrompt();
  void presentSeveral(std::vector<std::string> candidates);

  friend class CommandFileRun;

  /// As `dispatch`; the files that the command runs are added to `run` unless it is
  /// null.
  int dispatchFrom(CommandFileRun* run, const char* command);

  std::optional<SignalStack> signalStack_;  ///< of the main thread, while interactive

  /// The run of files that the current command is part of; null for none.
  CommandFileRun* fileRun_ = nullptr;
};

}  // namespace treescope
