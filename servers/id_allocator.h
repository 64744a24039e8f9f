#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "modelsrv/model_part.h"

namespace modelsrvd {

/// Assigns ids and names to children that appear and disappear at run time, each
/// identified by a key.
///
/// A child that reappears gets its previous id and name. Only when all ids are assigned, or the
/// keys take `keyBytesLimit`, do absent children lose theirs. For one thread.
class IdAllocator {
 public:
  static constexpr std::size_t keyBytesLimit = std::size_t{4} * 1024 * 1024;

  struct Child {
    ModelSrv::ModelPartId id;
    std::string name;
  };

  /// The id and name for `key`. A new child is named `preferredName`; if that name
  /// is taken, "-2", "-3" … is appended. The keys in `present` keep their ids.
  /// Nothing if they use all ids.
  [[nodiscard]] std::optional<Child> assign(const std::string& key,
                                            const std::string& preferredName,
                                            const std::set<std::string>& present);

 private:
  void releaseAbsent(const std::set<std::string>& present);

  std::map<std::string, Child> children_;
  std::set<std::string> names_;
  /// For each name that several children would have: the number with which to try the next one, as
  /// all smaller ones are taken.
  std::map<std::string, unsigned> nextNumbers_;
  std::set<ModelSrv::ModelPartId> released_;
  unsigned nextId_ = 1;
  std::size_t keyBytes_ = 0;  ///< of all keys
  std::size_t releaseAt_ = keyBytesLimit;
};

/// The child name for a mount point, without characters that are special to a
/// shell: "/" becomes "root", "/boot/efi" becomes "boot-efi", a special character
/// becomes "_".
[[nodiscard]] std::string mountName(const std::string& mountPoint);

}  // namespace modelsrvd
