#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/model_client.h"
#include "model/model_data_tree.h"
#include "shell/scope_base.h"
#include "term/listing_node.h"

namespace treescope {

class SubtreeSubscriber;
struct SplitPath;

/// The shell of this program: a command interpreter that is also a model client.
///
/// The entry point constructs one on the heap and deletes it at the end. Not
/// connected, its current directory is above the servers of this device; connected,
/// it is inside the tree of one server.
///
/// Threads: commands run on one thread, the key reader's, or the main thread in
/// batch mode. That thread alone connects, disconnects, subscribes and changes the
/// current directory, and holds the client mutex for each change. Events arrive on
/// the thread that runs `step`, with the client mutex held.
///
/// Handlers report errors by the result codes of `shell/results.h`. Only
/// std::bad_alloc is thrown.
class TreeScope : public ScopeBase, public ModelClient {
 public:
  /// `manager` is not owned and outlives the shell. `mode` is 0 for an interactive
  /// shell and 1 for one that runs a command string or file.
  TreeScope(EvtSrv::EventPortManager* manager, int mode);

  /// Frees the listing tree. While connected, cancels every subscription below the
  /// current directory and then deletes the mirror part.
  ~TreeScope() override;

  // The commands. A missing argument is null.

  /// Lists what is below `path`; while not connected and without a path, the
  /// servers.
  int doLs(unsigned options, const char* path) override;

  /// While not connected, connects to the server `path`. While connected, moves to
  /// `path`, or stays if it does not resolve; disconnects without a path.
  int doCd(const char* path) override;

  /// Stores a value and prints the value that the server has afterwards.
  int doSet(unsigned options, const char* value, const char* path) override;

  /// `doSet` for a text of any bytes: sends its length, a line feed and the text.
  int doStr(const char* text, const char* path) override;

  /// Prints a value on one line.
  int doGet(const char* path) override;

  /// Subscribes the part `path`, or the current part if the current directory is a
  /// part; with "-r" all parts below a node. With "-l" prints the subscriptions
  /// instead.
  int doEu(unsigned options, const char* path) override;

  /// Cancels the subscriptions of the parts at, below and above `path`. `path` has the
  /// form that `pwd` prints: "/" and the server's name first.
  int doDu(const char* path) override;

  /// The same as `doEu`.
  int doCat(unsigned options, const char* path) override;

  /// Runs the command file `file`; 3 while not connected. Ignores `unused`.
  int doFrom(const char* file, const char* unused) override;

  /// Writes the values below `path` into `file`, as commands that store them. Returns 1
  /// also if there is no such child (the file is then empty) or if writing fails; 3 if
  /// the parent in `path` does not resolve (the file is then empty) or while not
  /// connected; 6 if the file cannot be opened.
  int doTo(const char* file, const char* path) override;

  /// A completion request: `completeWord`.
  int doTab(const char* head, const char* lastWord) override;

  /// Shows the manual page.
  int doHelp() override;

  /// Cancels every subscription below the current directory. The dispatcher then
  /// ends the shell.
  int doExit() override;

  /// The event hook. Displays an update: the path of the part that changed, then
  /// what is below it with values. Ignores updates while not connected. Other events
  /// go to the library's `receiveMain`.
  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override;

  // The connection.

  /// Connects to the server `name` and makes its root the current directory: 1, or 7
  /// and no change if the library cannot connect. Called while not connected.
  int connectServer(const std::string& name);

  /// Cancels the subscriptions below the current directory, then deletes the mirror
  /// part (`closeServer`). Called while connected; returns 1.
  int disconnectServer();

  /// `path` with a leading "~" replaced by "/" while connected; empty for null.
  [[nodiscard]] std::string expandPath(const char* path) const;

  /// Completes `word`. If `word` is null, completes an empty word after a complete
  /// command word, or the command word `line` itself, which is null if nothing is
  /// typed (`completeCommandWord`). Candidates for a word are, while connected, the
  /// children of the node before the word's last "/", each followed by "/" if the
  /// server lists children for it; while not connected, the names of the servers.
  /// Stores all names of that node in the word tree. Returns 1, also without
  /// candidates.
  int completeWord(const char* line, const char* word);

  /// Frees the tree of the last `ls`. Called on the command thread or after the last
  /// command.
  void freeListing() { freeTree(listingTree_); }

 private:
  void changeLocation(NamedChain location);

  [[nodiscard]] std::vector<std::string> serverCandidates(const std::string& prefix);
  [[nodiscard]] std::vector<std::string> treeCandidates(const SplitPath& path);

  /// Empties the listing tree, including its own texts and marks.
  void clearListing();
  void listServers();
  void listSubscriptions(bool resetEach);

  /// Subscribes all parts below `node`, whose path is `path`, expanded. Returns the
  /// result of the last part, `result::nothing` if there is none.
  int subscribeBelow(unsigned options, const IdChain& node, const std::string& path);

  // Used by the command thread.
  ListingNode listingTree_;
  ModelDataTree dataTree_{"root"};
  [[maybe_unused]] std::int32_t spareNumber_ = -1;
  SubtreeSubscriber* subtreeSubscriber_ = nullptr;  ///< null except during `eu -r`
};

}  // namespace treescope
