#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/viewer/mirror_value.h"
#include "gateway/wire/shape.h"
#include "modelsrv/model_root.h"

namespace modelgate {

class MirrorPart;

/// Carries out what clients store in a mirror.
class MirrorStores {
 public:
  /// As `ModelPart::storeFromClient` of `part`, which is in the tree of a `MirrorRoot` with this
  /// object. Called with the client mutex held.
  virtual ModelSrv::ModelRes store(MirrorPart& part, std::string_view text, bool flag,
                                   ModelSrv::ModelPartIndex index, std::string& reason) = 0;

 protected:
  ~MirrorStores() = default;
};

/// The root of a mirror.
class MirrorRoot final : public ModelSrv::ModelRoot {
 public:
  /// Both outlive the root. Without `stores` the parts are read-only.
  MirrorRoot(EvtSrv::EventPortManager& manager, MirrorStores* stores)
      : ModelRoot(&manager), stores_(stores) {}

  [[nodiscard]] MirrorStores* stores() const { return stores_; }

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }

 private:
  MirrorStores* const stores_;
};

/// The order of a value among those of a mirror: that of its sequence number, relative to a base
/// that its tree knows. 0 for no value.
using SequenceMark = std::uint32_t;

/// When a value is newer than the one that a part has.
enum class Accept {
  newer,        ///< with a larger mark
  newerOrSame,  ///< also with the same one: the reply to a store
};

/// A part with a single value that stands for one of a device. In the tree of a `MirrorRoot`, or of
/// none. Its values are checked at the device only.
///
/// Threads: the client mutex guards it; every function here but the constructor requires it.
class MirrorPart : public ModelSrv::ModelPart {
 public:
  /// Takes the name of `shape`; not its attributes. With `readOnly` clients see a part with a value
  /// as read-only, whatever the device allows.
  MirrorPart(const ShapePart& shape, bool readOnly);
  ~MirrorPart() override { detach(); }

  /// Takes a value if it is newer than what the part has. Invalidates caches and notifies the
  /// subscribers if that makes a difference. Returns how many bytes of texts more are on the heap
  /// now. Throws std::bad_alloc; nothing has changed then.
  virtual std::ptrdiff_t take(ModelSrv::ModelPartIndex index, const Value& value, SequenceMark mark,
                              Accept accept);
  /// Takes over the value of `other`, which is made from the same shape.
  virtual void takeFrom(MirrorPart& other) noexcept;
  /// Calls `change` for each mark.
  virtual void changeMarks(SequenceMark (*change)(SequenceMark mark, SequenceMark by),
                           SequenceMark by);
  /// The bytes of texts on the heap.
  [[nodiscard]] virtual std::size_t heapSize() const { return value_.heapSize(); }

  /// Which clients may store at the device.
  [[nodiscard]] ModelSrv::ModelPartStatus access() const { return access_; }
  /// Whether a part of `shape` would be as this one, but for its attributes and its id.
  [[nodiscard]] bool isLike(const ShapePart& shape) const;
  /// The part of the shape, without the depth.
  [[nodiscard]] ShapePart toShape() const;
  /// For an array: whether the elements are not known although the whole value is, since there are
  /// line feeds in them.
  [[nodiscard]] virtual bool needsElements() const { return false; }

 protected:
  [[nodiscard]] std::string_view typeName() const override;
  ModelSrv::ModelRes appendText(std::string& out, ModelSrv::ModelPartIndex index) const override;
  ModelSrv::ModelRes storeText(std::string_view text, bool flag, ModelSrv::ModelPartIndex index,
                               bool fromClient) override;
  ModelSrv::ModelRes storeFromClient(std::string_view text, bool flag,
                                     ModelSrv::ModelPartIndex index, std::string& reason) override;
  [[nodiscard]] bool isCacheable() const override { return true; }

  [[nodiscard]] static bool isAccepted(SequenceMark mark, SequenceMark present, Accept accept) {
    return accept == Accept::newer ? mark > present : mark >= present;
  }
  static ModelSrv::ModelRes append(const MirrorValue& value, std::string& out);

  SequenceMark mark_ = 0;

 private:
  const std::uint8_t type_;
  const std::uint8_t access_;
  MirrorValue value_;
};

/// A part with an array.
class MirrorArray final : public MirrorPart {
 public:
  MirrorArray(const ShapePart& shape, bool readOnly);
  ~MirrorArray() override { detach(); }

  std::ptrdiff_t take(ModelSrv::ModelPartIndex index, const Value& value, SequenceMark mark,
                      Accept accept) override;
  void takeFrom(MirrorPart& other) noexcept override;
  void changeMarks(SequenceMark (*change)(SequenceMark mark, SequenceMark by),
                   SequenceMark by) override;
  [[nodiscard]] std::size_t heapSize() const override;
  [[nodiscard]] bool needsElements() const override { return whole_ != nullptr; }

 protected:
  [[nodiscard]] unsigned elementCount() const override { return count_; }
  [[nodiscard]] const std::vector<std::string>& elementNames() const override { return names_; }
  ModelSrv::ModelRes appendText(std::string& out, ModelSrv::ModelPartIndex index) const override;

 private:
  [[nodiscard]] std::vector<MirrorValue> elementsOf(const Value& value) const;
  [[nodiscard]] bool isUnknown() const;
  std::ptrdiff_t takeWhole(const Value& value, SequenceMark mark, Accept accept);
  std::ptrdiff_t takeElement(ModelSrv::ModelPartIndex index, const Value& value, SequenceMark mark,
                             Accept accept);

  const std::uint16_t count_;
  const std::vector<std::string> names_;
  std::vector<MirrorValue> elements_;
  /// Of each element, if one of them is newer than the whole value.
  std::vector<SequenceMark> marks_;
  /// The whole value if its text cannot be divided.
  std::unique_ptr<MirrorValue> whole_;
};

}  // namespace modelgate
