#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "servers/error.h"
#include "servers/kept_ids.h"
#include "servers/tree_description.h"
#include "servers/value_feeds.h"

namespace modelsrvd {

/// The nodes and parts created from a description.
///
/// Owns them; they are the children of the root from `publish` to the destruction of the
/// tree. For one thread. While the root is serving, the caller holds the client mutex
/// of the root's manager.
class PublishedTree {
 public:
  /// Whether a part that stays in a reload keeps its value. Called when its attributes are set; may
  /// be empty.
  using KeepsValue = std::function<bool(ModelSrv::ModelPart& part)>;

  /// Creates the nodes and parts, not yet added to a root.
  explicit PublishedTree(TreeDescription description);

  /// Removes the tree from the root.
  ~PublishedTree();

  PublishedTree(const PublishedTree&) = delete;
  PublishedTree& operator=(const PublishedTree&) = delete;

  /// Adds the tree to `root`, which outlives it. The error is the library's; the root
  /// then has some of the children or none.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// Makes the published tree that of `description`, in the order of its entries. A part
  /// with the same path, id, type, number and names of elements and access stays, with its
  /// clients' subscriptions; so does a node. Its value is set, which notifies the
  /// subscribers if it changes, unless `keepsValue` returns true. An id that `description` does not
  /// state is that of the part that has, or last had, the same name (see `keepIds`). All others are
  /// removed and added.
  ///
  /// After an error the tree is unchanged; or, if memory runs out late, or the library refuses
  /// something of a part that stays, it is between both.
  [[nodiscard]] std::optional<Error> reload(TreeDescription description,
                                            const KeepsValue& keepsValue = {});

  /// Adds the parts whose values are in files or simulated to `feeds`, which is cleared before
  /// this tree is destroyed or its values are updated.
  void supply(ValueFeeds& feeds) const;

 private:
  /// What was created for an entry of a description.
  struct Created {
    std::unique_ptr<ModelSrv::ModelPart> part;
    std::uint32_t parent;
    EntryType type;
    std::uint16_t elements;  ///< 0 if not an array
  };
  /// What was created for a description, in its order.
  struct Parts {
    std::vector<Created> created;
    /// Element names by entry, for comparison: a part does not return them.
    std::map<std::size_t, std::vector<std::string>> elementNames;
    /// The details of the entries whose values come from elsewhere.
    std::map<std::size_t, std::shared_ptr<const EntryDetails>> sources;
  };
  /// For each entry of a description the index of the present part that stays for it, or
  /// `isNew`.
  using Kept = std::vector<std::uint32_t>;
  static constexpr std::uint32_t isNew = 0xFFFFFFFF;
  /// The new children of the nodes that stay, by the index of the node's entry.
  using Children = std::map<std::size_t, std::vector<ModelSrv::ModelPart*>>;

  [[nodiscard]] static std::unique_ptr<ModelSrv::ModelPart> create(Entry& entry,
                                                                   std::optional<Error>& error);
  [[nodiscard]] static std::optional<Error> addCreated(Entry& entry, Parts& parts);
  [[nodiscard]] static std::optional<Error> addToParent(const Parts& parts, std::size_t index);
  static void destroy(std::vector<Created>& created);

  [[nodiscard]] static Ids idsOf(const TreeDescription& description, std::size_t index);
  [[nodiscard]] Kept match(TreeDescription& description);
  [[nodiscard]] bool isSame(std::size_t index, const Entry& entry) const;
  /// The node of an entry's parent if it is kept or the root, else null.
  [[nodiscard]] ModelSrv::ModelNode* keptParent(const Entry& entry, const Kept& kept) const;
  [[nodiscard]] static std::optional<Error> createNew(TreeDescription& description,
                                                      const Kept& kept, Parts& next);
  [[nodiscard]] Children childrenOfKept(const TreeDescription& description, const Kept& kept,
                                        const Parts& next) const;
  [[nodiscard]] std::optional<Error> replaceParts(Parts next, const Kept& kept,
                                                  const Children& children);

  Parts parts_;
  DepartedIds departed_;
  ModelSrv::ModelRoot* root_ = nullptr;
  std::optional<Error> error_;  ///< the first one
};

}  // namespace modelsrvd
