#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "gateway/viewer/mirror_part.h"
#include "gateway/wire/shape.h"
#include "gateway/wire/values.h"

namespace modelgate {

/// The parts of a mirror, by their positions in the shape. Owns them; they are below the root that
/// is given, from `build` on.
///
/// Threads: that which dispatches the events of the root's manager. What changes the parts locks
/// its client mutex; to change many of them, lock it before.
class MirrorTree {
 public:
  /// The bytes of long texts that a tree keeps; more is `ModelRes_TooLarge`.
  static constexpr std::size_t maxTextBytes = std::size_t{256} * 1024 * 1024;

  /// `root` outlives the tree. With `readOnly` no client may store.
  MirrorTree(MirrorRoot& root, bool readOnly);
  /// Takes the parts out of the root.
  ~MirrorTree();
  MirrorTree(const MirrorTree&) = delete;
  MirrorTree& operator=(const MirrorTree&) = delete;

  /// Makes the parts those of `shape`, and `last` the last child of the root. A part of which the
  /// chain, the names, type, access and elements are the same stays, with its value and its
  /// subscriptions. Throws std::bad_alloc, and std::runtime_error if the library refuses the parts;
  /// the tree is to be destroyed then.
  void build(const Shape& shape, ModelSrv::ModelPart& last);
  /// The shape that was built.
  [[nodiscard]] Shape shape() const;
  /// Takes over the values of a tree that was built from the same shape.
  void takeValuesOf(MirrorTree& other) noexcept;

  /// Takes the value of a part if `sequence` is newer than that of what it has. Ignores positions
  /// without a value. Throws std::bad_alloc.
  void take(const PositionedValue& value, std::uint64_t sequence, Accept accept);
  /// The same for a part of this tree.
  void take(MirrorPart& part, ModelSrv::ModelPartIndex index, const Value& value,
            std::uint64_t sequence, Accept accept);
  /// From now on every sequence is newer than that of what the parts have.
  void forgetSequences();

  [[nodiscard]] const MirrorRoot& root() const { return root_; }
  /// The part at a position, or null if it has no value.
  [[nodiscard]] MirrorPart* partAt(std::size_t position) const;
  [[nodiscard]] std::size_t size() const { return built_.parts.size(); }
  /// About how many bytes of memory the parts and their values take.
  [[nodiscard]] std::size_t memory() const { return partBytes_ + textBytes_; }

 private:
  /// The children that a node is to have.
  struct Children {
    ModelSrv::ModelNode* node;
    std::vector<ModelSrv::ModelPart*> parts;
  };
  struct Parts {
    std::vector<std::unique_ptr<ModelSrv::ModelPart>> parts;
    std::vector<bool> nodes;  ///< whether the part at a position is a node
  };
  using Positions = std::unordered_map<const ModelSrv::ModelPart*, std::size_t>;

  [[nodiscard]] std::unique_ptr<ModelSrv::ModelPart> takeSame(const ModelSrv::ModelNode& parent,
                                                              const ShapePart& shape,
                                                              const Positions& positions);
  [[nodiscard]] std::unique_ptr<ModelSrv::ModelPart> create(const ShapePart& shape) const;
  [[nodiscard]] SequenceMark markOf(std::uint64_t sequence);
  void moveBase(std::uint64_t base);
  template <typename Visit>
  void forEachValue(Visit visit) const;
  static void destroy(Parts& parts);

  MirrorRoot& root_;
  const bool readOnly_;
  Parts built_;
  std::uint64_t base_ = 0;  ///< the sequence before that of mark 1
  bool hasBase_ = false;
  std::size_t partBytes_ = 0;
  std::size_t textBytes_ = 0;
};

}  // namespace modelgate
