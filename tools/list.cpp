#include <set>
#include <utility>

#include "tools/commands.h"
#include "tools/json_object.h"
#include "tools/match.h"
#include "tools/subtree.h"
#include "tools/tree_walk.h"

namespace treectl {

namespace {

/// Prints what is below nodes, and parts themselves.
class Lister {
 public:
  explicit Lister(Context& context)
      : context_(context), options_(context.options()), below_{NamePattern("*")} {}

  void run() {
    std::vector<Address> addresses;
    if (!parseAddresses(context_, options_.operands, addresses)) {
      return;
    }
    for (const Address& address : addresses) {
      hasWildcards_ = address.hasWildcards();
      printed_.clear();
      forEachMatch(context_, address, [this](const Match& match) { return list(match); });
    }
  }

 private:
  /// One entry of the listing.
  struct Entry {
    const Match& match;
    const Chain& chain;
    const std::string& address;
  };

  Visit list(const Match& match) {
    ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
    const bool node = match.index == ModelSrv::ModelPartIndex_All &&
                      isNode(*match.connection, match.chain, result);
    if (result == ModelSrv::ModelRes_Success && !node) {
      return print({match, match.chain, match.address}, false);
    }
    if (result == ModelSrv::ModelRes_Success && options_.recursive) {
      return listSubtree(match);
    }
    TreeWalk walk(*match.connection, match.chain, match.address, below_);
    while (result == ModelSrv::ModelRes_Success && walk.next()) {
      const bool nodeBelow = isNode(*match.connection, walk.chain(), result);
      if (result == ModelSrv::ModelRes_Success &&
          print({match, walk.chain(), walk.address()}, nodeBelow) == Visit::stopped) {
        return Visit::stopped;
      }
    }
    result = result == ModelSrv::ModelRes_Success ? walk.result() : result;
    if (result != ModelSrv::ModelRes_Success) {
      context_.fail(match.shown(), result);
      return visitAfter(result);
    }
    return Visit::taken;
  }

  /// Everything below, in few exchanges.
  Visit listSubtree(const Match& match) {
    Subtree subtree;
    ModelSrv::ModelRes result = match.connection->readSubtree(match.chain, subtree);
    if (result != ModelSrv::ModelRes_Success) {
      context_.fail(match.shown(), result);
      return visitAfter(result);
    }
    SubtreeWalk walk(subtree, match.chain, match.address);
    ModelSrv::PartDescription description;
    Value value;
    while (walk.next()) {
      const SubtreeEntry& part = walk.entry();
      const Entry entry{match, walk.chain(), walk.address()};
      if (isRepeated(entry)) {
        continue;
      }
      if (options_.longForm && !part.isNode) {
        result = walk.readValue(*match.connection, value);
        description.type = part.type;
        description.access = part.access;
      }
      if (result == ModelSrv::ModelRes_Success && options_.json && options_.longForm &&
          !part.isNode) {
        // The unit is in no listing.
        result = match.connection->readDescription(walk.chain(), description);
      }
      if (result != ModelSrv::ModelRes_Success) {
        context_.fail(walk.address(), result);
        if (visitAfter(result) == Visit::stopped) {
          return Visit::stopped;
        }
        result = ModelSrv::ModelRes_Success;
        continue;
      }
      write(entry, part.isNode, description, value);
    }
    return Visit::taken;
  }

  /// Several matches of one address may have an entry in common; it is printed once.
  bool isRepeated(const Entry& entry) {
    return hasWildcards_ && !printed_.emplace(entry.address).second;
  }

  Visit print(const Entry& entry, bool node) {
    if (isRepeated(entry)) {
      return Visit::taken;
    }
    ModelSrv::PartDescription description;
    Value value;
    if (options_.longForm && !node) {
      Connection& connection = *entry.match.connection;
      ModelSrv::ModelRes result = connection.readDescription(entry.chain, description);
      if (result == ModelSrv::ModelRes_Success) {
        result = connection.readValue(entry.chain, entry.match.index, value);
      }
      if (result != ModelSrv::ModelRes_Success) {
        context_.fail(entry.address, result);
        return visitAfter(result);
      }
    }
    write(entry, node, description, value);
    return Visit::taken;
  }

  void write(const Entry& entry, bool node, const ModelSrv::PartDescription& description,
             const Value& value) {
    if (options_.json) {
      printJson(entry, node, description, value);
    } else {
      printPlain(entry, node, description, value);
    }
    context_.output().writeIfLarge();
  }

  void printPlain(const Entry& entry, bool node, const ModelSrv::PartDescription& description,
                  const Value& value) {
    std::string& out = context_.output().text();
    if (node && context_.colored()) {
      out += "\x1B[1;34m" + entry.address + "\x1B[0m/";
    } else {
      out += entry.address;
      out += node ? "/" : "";
    }
    if (options_.longForm && !node) {
      appendKind(out, description);
      appendPlain(out, value);
    }
    out += '\n';
  }

  /// Appends type and access. Most parts have those of the part before.
  void appendKind(std::string& out, const ModelSrv::PartDescription& description) {
    if (kind_.empty() || description.type != type_ || description.access != access_) {
      type_ = description.type;
      access_ = description.access;
      kind_ = '\t' + type_ + '\t';
      kind_ += accessName(access_);
      kind_ += '\t';
    }
    out += kind_;
  }

  void printJson(const Entry& entry, bool node, const ModelSrv::PartDescription& description,
                 const Value& value) {
    std::string& out = context_.output().text();
    JsonObject object(out);
    object.addText("address", entry.address);
    if (node) {
      object.addText("type", "node");
    } else if (options_.longForm) {
      object.addPart(description, entry.match.elementName);
      object.addValue(value, description.type);
    } else {
      object.addTextIfAny("element", entry.match.elementName);
    }
    object.end();
    out += '\n';
  }

  Context& context_;
  const Options& options_;
  std::vector<NamePattern> below_;
  bool hasWildcards_ = false;
  std::string type_;  ///< of the last line, as the two below
  ModelSrv::ModelPartStatus access_ = ModelSrv::ModelPartStatus_Void;
  std::string kind_;
  std::set<std::string> printed_;  ///< of an address with wildcards
};

}  // namespace

void runList(Context& context) {
  Lister(context).run();
}

}  // namespace treectl
