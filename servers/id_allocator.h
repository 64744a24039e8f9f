#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "modelsrv/model_part.h"

namespace modelsrvd {

/// The ids and names of children that come and go, by what they stand for.
///
/// Whatever returns gets the id and the name it had, as long as no more than all
/// ids are spoken for; then the absent ones lose theirs. For one thread.
class IdAllocator {
 public:
  struct Child {
    ModelSrv::ModelPartId id;
    std::string name;
  };

  /// The child that stands for `key`, under `wished` or, where another one has
  /// that name, `wished` with "-2", "-3" … behind it. `present` are the keys that
  /// keep what they have. Nothing where all ids belong to them.
  [[nodiscard]] std::optional<Child> find(const std::string& key, const std::string& wished,
                                          const std::set<std::string>& present);

 private:
  void forgetAbsent(const std::set<std::string>& present);

  std::map<std::string, Child> children_;
  std::set<std::string> names_;
  std::set<ModelSrv::ModelPartId> freed_;
  unsigned nextId_ = 1;
};

/// A mount point as the name of a child, one that can be typed: "/" is "root",
/// "/boot/efi" is "boot-efi"; bytes that mean something to a shell become "_".
[[nodiscard]] std::string mountName(const std::string& mountPoint);

}  // namespace modelsrvd
