#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "kstd/thread_mutex.h"
#include "model/child_list.h"
#include "model/child_list_cache.h"
#include "model/derived_model_part.h"
#include "model/derived_model_root.h"
#include "model/element_choice.h"
#include "model/id_chain.h"
#include "model/model_data_tree.h"
#include "shell/scope_base.h"
#include "term/listing_node.h"

namespace treescope {

struct SplitPath;
struct SubscribingWalk;

/// The shell of this program: a command interpreter that is a model client.
///
/// The entry point makes one on the heap and deletes it at the end. Not connected,
/// it stands above the servers of this device; connected, inside the tree of one.
/// Commands run on one thread (the key reader's, or the main thread in batch
/// mode), which alone connects, disconnects, moves and subscribes, each with the
/// client mutex held for what it changes; events arrive on the thread that pumps
/// the manager, with the mutex held. What goes wrong is told by result codes, of
/// `shell/results.h`, or by an output left as it was. Nothing throws.
class TreeScope : public ScopeBase, public DerivedModelRoot {
 public:
  /// `manager` is not owned and outlives the shell; `mode` is 0 for an interactive
  /// shell and 1 for one that runs a command string or file.
  TreeScope(EvtSrv::EventPortManager* manager, int mode);

  /// Frees the listing tree; while connected, drops every subscription below the
  /// current directory and then the mirror part.
  ~TreeScope() override;

  // The commands. A word that was not given is null.

  /// Lists what is below `path`; not connected and without a path, the servers.
  int doLs(unsigned options, const char* path) override;

  /// Not connected: connects to the server that `path` names. Connected: moves to
  /// `path`, or stays where that leads nowhere; without a path disconnects.
  int doCd(const char* path) override;

  /// Stores a value and shows what the server holds then.
  int doSet(unsigned options, const char* value, const char* path) override;

  /// The same with a text of any bytes, handed on in its counted form.
  int doStr(const char* text, const char* path) override;

  /// Shows a value in one line.
  int doGet(const char* path) override;

  /// Subscribes the part that `path` names, or inside a part that part; with "-r"
  /// all parts below a node. With "-l" shows what is subscribed instead.
  int doEu(unsigned options, const char* path) override;

  /// Drops the subscriptions on the way to and below `path`, which is understood
  /// as `pwd` shows paths: "/" and the server's name first.
  int doDu(const char* path) override;

  /// The same as `doEu`.
  int doCat(unsigned options, const char* path) override;

  /// Runs the command file `file` while connected; 3 while not. `unused` is what its
  /// name says.
  int doFrom(const char* file, const char* unused) override;

  /// Writes the values below `path` into `file`, as commands that store them: 1
  /// also when there is no such child, the file then being empty, and when the
  /// writing fails; 3 where `path` leads nowhere, the file then being empty too,
  /// or while not connected; 6 when the file cannot be opened.
  int doTo(const char* file, const char* path) override;

  /// Answers a completion request: `completeWord`.
  int doTab(const char* head, const char* lastWord) override;

  /// Shows the manual page.
  int doHelp() override;

  /// Drops every subscription below the current directory; the dispatcher then
  /// ends the shell.
  int doExit() override;

  /// The event hook. An update is shown: the path of the part that changed, then
  /// what is below it with its values. One that arrives while not connected is
  /// dropped. Everything else is the library's.
  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override;

  // The connection.

  /// Connects to the server of that name and stands at its root: 1, or 7 where the
  /// library gives no connection and nothing has changed. Called while not
  /// connected.
  int connectServer(const std::string& name);

  /// Drops the subscriptions below the current directory and the mirror part.
  /// The library's connection stays until the next one is made or the root is
  /// stopped. Called while connected; returns 1.
  int disconnectServer();

  /// Null while not connected.
  [[nodiscard]] DerivedModelPart* currentPart() const { return currentPart_.get(); }
  [[nodiscard]] bool connected() const { return currentPart_ != nullptr; }

  /// `path` with a leading "~" replaced by "/" while connected; empty for null.
  [[nodiscard]] std::string expandPath(const char* path) const;

  /// Completes `word`, or an empty one behind a complete command word, or, where
  /// `word` is null, the command word `line` itself, which is null where nothing is
  /// typed (`completeCommandWord`). Connected, a word becomes the name of a child of
  /// the place in the tree that the text before its last "/" leads to, with a "/"
  /// behind that where the child has children, as far as the server says so; not
  /// connected, the name of a server. Leaves all names of that place in the tree of
  /// known names. Returns 1, also where there is nothing to offer.
  int completeWord(const char* line, const char* word);

  // What is asked of the server. Each request is one exchange with the client
  // mutex held: `lock` says whether the operation takes it, as commands want, or
  // runs inside the library's event processing, where it is held. While not
  // connected every request fails.

  /// Follows the path `text` from the server's root where it begins with "/", else
  /// from the current location. True when it leads all the way; `reached` is the
  /// part that it leads to, or the last one on the way there. Empty components are
  /// passed over; ".." above the root leads nowhere.
  [[nodiscard]] bool resolveChain(const std::string& text, NamedChain& reached);

  /// The name of each part along `chain`; one that the server does not list, like
  /// one without a name, is "noname-" and its id.
  [[nodiscard]] std::vector<std::string> namePathOf(const IdChain& chain, bool lock);

  /// Whether `chain` is a node.
  [[nodiscard]] bool hasChildren(const IdChain& chain, bool lock);

  /// The children of `chain`, none for a part. False, and `children` left alone,
  /// when the server gave no answer.
  [[nodiscard]] bool fetchChildren(const IdChain& chain, ChildList& children, bool lock);

  /// The two halves of that, each of them one exchange.
  [[nodiscard]] bool fetchChildIds(const IdChain& chain, std::vector<std::uint16_t>& ids,
                                   bool lock);
  [[nodiscard]] bool fetchChildNames(const IdChain& chain, std::vector<std::string>& names,
                                     bool lock);

  /// How many elements the part is an array of; 0 also when the server gave no
  /// answer.
  [[nodiscard]] std::uint16_t elementSum(const IdChain& chain, bool lock);

  /// 1 with the names of the part's elements, 3 where they have none, 7 when the
  /// server gave no answer.
  [[nodiscard]] int fetchElementNames(const IdChain& chain, std::vector<std::string>& names,
                                      bool lock);

  /// 1 with the index of the first element of exactly that name, 3 where there is
  /// none, 7 when the server gave no answer.
  [[nodiscard]] int findElementIndex(const IdChain& chain, const std::string& name,
                                     std::uint16_t& index, bool lock);

  /// The text of the whole value; `text` is left alone when there is none.
  void readValueText(const IdChain& chain, std::string& text, bool lock);

  /// The text of one element; `text` is left alone when there is none.
  void readElementText(const IdChain& chain, std::string& text, std::uint16_t index, bool lock);

  /// The text of the element that `element` chooses where the part is an array and
  /// a choice is made, else of the whole value.
  void readValue(const IdChain& chain, const ElementIndexText& element, std::string& text,
                 bool lock);

  /// Stores `text`, with the loader's `flag`: into the element of that name where
  /// the part is an array and a name is given, else as the whole value. 1 once the
  /// store has been asked for, whatever the server made of it; 3, and nothing
  /// stored, where there is no such element.
  [[nodiscard]] int writeValue(const IdChain& chain, const ElementName& element,
                               const std::string& text, bool flag);

  /// The same for an element chosen by index. An array wants a choice: 4, and
  /// nothing stored, without one. An index is ignored where there are no elements,
  /// and not compared with how many there are.
  [[nodiscard]] int writeValue(const IdChain& chain, const ElementIndexText& element,
                               const std::string& text, bool flag);

  /// Asks for updates of the part and notes it among the subscriptions: 1, or 2
  /// when the server refuses.
  [[nodiscard]] int subscribePath(const IdChain& chain);

  /// Takes one subscription of the part back and the first of its notes with it.
  /// False, and nothing has changed, when that is refused.
  [[nodiscard]] bool unsubscribePath(const IdChain& chain);

  // What is listed.

  /// A bit beside those of the commands' options, for who draws what is below a
  /// node and not the node: its own value is not asked for.
  static constexpr unsigned optionBelowOnly = 16;

  /// Fills `node`, a new one, with what the server has at `chain`: a part with its
  /// elements, or a node with its children; with the bits of `options` recursively,
  /// with values, with the marks of kinds. `name` is the label; without one it is
  /// made of the last id, or "root". `depth` is how many levels below the node are
  /// listed without the recursive bit; `top` says that the node is not itself a
  /// child in the listing, which would only be marked as having content. What the
  /// server does not answer is not in the listing. `lock` is as for the requests.
  void buildTree(ListingNode& node, unsigned options, const IdChain& chain, std::string name,
                 std::uint8_t depth, bool top, bool lock);

  /// Frees what the last `ls` listed. For the thread that runs commands, or after
  /// the last of them.
  void freeListing() { freeTree(listingTree_); }

 private:
  using ClientLock = std::unique_lock<KSTD::KThreadMutex>;

  /// Holds the client mutex, or nothing where `lock` is false.
  [[nodiscard]] ClientLock lockClient(bool lock) const;

  /// `namePathOf`; false where one of the names stands for what the server did not
  /// list.
  bool nameChain(const IdChain& chain, std::vector<std::string>& names, bool lock);

  /// The mirror part with `chain` as its target; for requests about children,
  /// `childrenTarget` is the root itself where `chain` is empty.
  ModelSrv::ModelPart* target(const IdChain& chain);
  ModelSrv::ModelPart* childrenTarget(const IdChain& chain);

  void readText(const IdChain& chain, std::string& text, std::uint16_t index, bool lock);
  void loadText(const IdChain& chain, const std::string& text, bool flag, std::uint16_t index);

  void changeLocation(NamedChain location);
  void displayUpdate(const IdChain& chain);
  /// `namePathOf`, without a request where the names have been noted.
  std::vector<std::string> namesOfChanged(const IdChain& chain);

  [[nodiscard]] std::vector<std::string> serverCandidates(const std::string& prefix);
  [[nodiscard]] std::vector<std::string> treeCandidates(const SplitPath& path);

  /// Empties the listing tree, its own texts and marks included.
  void clearListing();
  void listServers();
  void listSubscriptions(bool resetEach);

  /// Subscribes all that is below the node, which `path` (may be null) names; the
  /// result is that of the last part, `result::nothing` where there is none.
  int subscribeBelow(unsigned options, const IdChain& node, const char* path);

  ListingNode listingTree_;
  ModelDataTree dataTree_{"root"};
  [[maybe_unused]] std::int32_t spareNumber_ = -1;
  std::unique_ptr<DerivedModelPart> currentPart_;
  std::ostringstream valueStream_;  ///< a value's way into a text; with the client mutex held

  // While a command runs that has use for them; of its thread.
  ChildListCache* childListCache_ = nullptr;
  SubscribingWalk* subscribingWalk_ = nullptr;
};

}  // namespace treescope
