#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace modelgate {

class PortClaim;

/// Which server of the fleet has which names of ports. Several can want the same one: the server
/// "b" of the device "h.a" and "a.b" of "h" both are "Model_h.a.b". The first one has it; the
/// others wait, in the order of arrival, until that one has gone for good.
///
/// Threads: one.
class PortNames {
 public:
  /// Gives the names of those that have gone for good to those that wait for them.
  void review();

 private:
  friend class PortClaim;

  void add(PortClaim& claim);
  void remove(PortClaim& claim);
  [[nodiscard]] PortClaim* ownerOf(const std::string& name) const;
  [[nodiscard]] bool canTake(const PortClaim& claim) const;
  void take(PortClaim& claim);
  void release(const PortClaim& claim);

  std::map<std::string, PortClaim*, std::less<>> owners_;
  std::vector<PortClaim*> waiting_;
};

/// The names that one server wants: it has all of them or none.
class PortClaim {
 public:
  struct Handlers {
    /// Whether another server may have the names: this one has gone for good.
    std::function<bool()> isGone;
    /// `isGranted` has changed after the constructor. Must not throw.
    std::function<void()> changed;
  };

  /// `names` outlives the object. `server` is for people.
  PortClaim(PortNames& names, std::vector<std::string> wanted, std::string server,
            Handlers handlers);
  ~PortClaim();
  PortClaim(const PortClaim&) = delete;
  PortClaim& operator=(const PortClaim&) = delete;

  [[nodiscard]] bool isGranted() const { return isGranted_; }
  /// Who has one of the names, as a line for people; empty if this server has them.
  [[nodiscard]] std::string obstacle() const;

 private:
  friend class PortNames;

  PortNames& names_;
  const std::vector<std::string> wanted_;
  const std::string server_;
  const Handlers handlers_;
  bool isGranted_ = false;
};

}  // namespace modelgate
