#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "shell/word_tree.h"
#include "term/line_editor.h"
#include "term/screen_printer.h"

namespace EvtSrv {
class EventPortManager;
}

namespace treescope {

/// The generic shell: takes lines apart, recognises commands, checks what they
/// were given and calls their handlers, which a concrete shell overrides.
///
/// Interactively it reads lines on the line editor's thread, and every command
/// runs there; the thread that made the shell only repeats `step`. In batch mode
/// everything runs on the caller's thread. Only the running flag and the printer
/// may be used from both.
///
/// Results are codes (`shell/results.h`); handlers give them, the dispatcher
/// alone prints their messages. Texts are zero-terminated; an argument that was
/// not given is null.
class ScopeBase {
 public:
  /// `manager` is not owned, outlives the shell, and is used by `step` alone.
  /// With a `batch` of 0 the line editor's thread is started, which waits for
  /// `acceptInput`, the terminal goes into raw mode (term/terminal_mode.h), which
  /// the destructor ends, and the first prompt is printed.
  ScopeBase(EvtSrv::EventPortManager* manager, int batch);
  ScopeBase(const ScopeBase&) = delete;
  ScopeBase& operator=(const ScopeBase&) = delete;

  virtual ~ScopeBase();

  // The commands' handlers. Here each does nothing and gives `result::nothing`:
  // the command is accepted and has no effect. `options` holds the bits of
  // `shell/command_table.h`.

  virtual int doLs(unsigned options, const char* path);
  virtual int doCd(const char* path);
  virtual int doSet(unsigned options, const char* value, const char* path);
  virtual int doStr(const char* text, const char* path);
  virtual int doGet(const char* path);
  virtual int doEu(unsigned options, const char* path);
  virtual int doDu(const char* path);
  virtual int doConvert(const char* first, const char* second);
  virtual int doFrom(const char* first, const char* second);
  virtual int doTo(const char* first, const char* second);
  virtual int doCat(unsigned options, const char* path);
  virtual int doCon(const char* first, const char* second);
  virtual int doDis(const char* first, const char* second);
  virtual int doLoad(const char* name);
  virtual int doSave(const char* name);
  virtual int doRn(const char* first, const char* second);
  virtual int doRm(const char* name);
  virtual int doMkdir(const char* name);
  /// A completion request: `head` is the command word, with one blank behind it
  /// when it is complete; `lastWord` is the word to be completed.
  virtual int doTab(const char* head, const char* lastWord);
  virtual int doExit();
  virtual int doEnd();
  virtual int doTerminate();
  virtual int doBt(unsigned options, const char* path);
  virtual int doHelp();
  /// A command word that is none of the shell's.
  virtual int doOther(const char* word, const char* first, const char* second);

  /// Lets the line editor take its first line; called once, when the concrete
  /// shell is constructed.
  void acceptInput();

  /// 1 until an exit command or the end of input. Any thread.
  [[nodiscard]] int isRunning() const;
  /// Any thread. With 0 the interactive loop and the line editor end.
  void setRunning(int running);

  /// One turn of the interactive loop: handles an event when one comes within
  /// 100 ms, and helps terminations along. Gives 1.
  int step();

  /// Runs the commands of a line that was typed, which ";" separates, until one
  /// gives a result other than success or nothing; gives that, else success.
  int runLine(const char* line);

  /// Runs the commands of one line of a script until one does not succeed; gives
  /// the last result, `result::nothing` when there was no command. A non-zero
  /// `unquote` removes one double quote from the beginning of the line; two
  /// empty it.
  int runCommandString(const char* text, int unquote);

  /// Runs the lines of the file `fileName` until one does not succeed; gives the
  /// last result. An empty line ends the run, so does the line feed at the
  /// file's end: both give `result::nothing`. Of a line of more than 999 bytes
  /// the first 999 are run, and nothing after them. `result::openFileError` when
  /// the file cannot be read; `result::unknownError` when files run each other
  /// more than 64 deep. A named pipe that nobody writes is an empty file.
  int runCommandFile(const char* fileName);

  /// Runs one command and prints its message; gives its result, `result::nothing`
  /// for an empty command, `result::exit` when the shell is ending. Nothing is
  /// thrown.
  int dispatch(const char* command);

  /// Prints the message of `code`, if it has one.
  void printResult(int code);

  /// Prints the current path, as one line.
  int printCurrentPath();

  /// Keeps the names of three ports.
  void setPorts(const char* first, const char* second, const char* third);

  /// Prints the line editor's history, each entry behind its number, until the
  /// person has had enough.
  int printHistory(bool paging);

  /// Replaces `matches` by the paths of the known names that `pattern` matches
  /// (`matchingPaths`).
  void expandWildcard(const char* pattern, std::vector<std::string>& matches) const;

  // Completion. The candidates are whole: each is what the word becomes. Every
  // presenter prints the prompt anew; several candidates are listed in columns before
  // it, without paging, and what they have in common takes the place of the last word
  // (`LineEditor::replaceLastWord`).

  /// Completes a command word, `head`, null where nothing is typed, to those of
  /// `codes` (row indices of the command table, ended by `noCommand`). True, and
  /// nothing is presented, where `head` is one of them with one blank behind it: what
  /// is to be completed is the word after it.
  bool completeCommandWord(const int* codes, const char* head);

  /// Presents what the last word of the line may become. A single candidate takes its
  /// place, ".." with a "/" behind it.
  void presentCandidates(std::vector<std::string> candidates);

  /// Presents what the whole line may become. A single candidate takes its place.
  void presentLineCandidates(std::vector<std::string> candidates);

  /// What stands in the prompt: the label, a blank, the last component of the
  /// current path or "/".
  [[nodiscard]] std::string promptText() const;
  /// Prints the prompt anew.
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
  void presentSeveral(const std::vector<std::string>& candidates);

  int commandFileDepth_ = 0;
};

}  // namespace treescope
