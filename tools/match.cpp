#include "tools/match.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <variant>

#include "tools/discovery.h"
#include "tools/nearest.h"
#include "tools/tree_walk.h"

namespace treectl {

namespace {

std::string withNearest(std::string reason, const std::string& wanted,
                        const std::vector<std::string>& names) {
  const std::string nearest = nearestName(wanted, names);
  return nearest.empty() ? reason : std::move(reason) + " (nearest: " + nearest + ")";
}

/// The visits of one address.
class Matcher {
 public:
  Matcher(Context& context, const Address& address, const Visitor& visit)
      : context_(context), address_(address), visit_(visit) {}

  void run() {
    if (!address_.server.hasWildcards()) {
      const std::string& server = address_.server.bytes();
      if (Connection* const connection = context_.connect(server, address_.text)) {
        searchServer(server, *connection);
      }
    } else {
      for (const std::string& server : discoverServers()) {
        Connection* const connection =
            address_.server.matches(server) ? context_.connectIfLiving(server) : nullptr;
        if (connection != nullptr) {
          searchServer(server, *connection);
        }
      }
    }
    if (!took_ && !failed_ && address_.hasWildcards()) {
      context_.fail(Status::notFound, address_.text, "nothing matches");
    }
  }

 private:
  void searchServer(const std::string& server, Connection& connection) {
    match_.connection = &connection;
    match_.server = server;
    TreeWalk walk(connection, {}, address_.rootOf(server), address_.names);
    bool found = false;
    while (!failed_ && walk.next()) {
      found = true;
      match_.chain = walk.chain();
      match_.address = walk.address();
      if (address_.element) {
        visitElements();
      } else {
        visit();
      }
    }
    if (walk.result() != ModelSrv::ModelRes_Success) {
      fail(walk.result());
    } else if (!found && !address_.hasWildcards() && !failed_) {
      failed_ = true;
      context_.fail(Status::notFound, address_.text, describeMissing(connection));
    }
  }

  void visit() {
    const Visit visited = visit_(match_);
    took_ = took_ || visited != Visit::skipped;
    failed_ = failed_ || visited == Visit::stopped;
  }

  void fail(ModelSrv::ModelRes result) {
    // With wildcards, what has matched was named; an error in the middle has the address.
    failed_ = true;
    context_.fail(address_.text, result);
  }

  void visitElements() {
    unsigned count = 0;
    std::vector<std::string> names;
    ModelSrv::ModelRes result = match_.connection->readElementCount(match_.chain, count);
    if (result == ModelSrv::ModelRes_Success && count > 0) {
      result = match_.connection->readElementNames(match_.chain, names);
    }
    if (result != ModelSrv::ModelRes_Success) {
      fail(result);
      return;
    }
    names.resize(count);
    const std::size_t size = match_.address.size();
    const auto visitElement = [&](std::size_t index) {
      match_.index = static_cast<ModelSrv::ModelPartIndex>(index);
      match_.elementName = names[index];
      match_.address += '[' + std::to_string(index) + ']';
      visit();
      match_.address.resize(size);
    };
    const NamePattern& element = *address_.element;
    if (element.hasWildcards()) {
      for (std::size_t i = 0; i < count; ++i) {
        if (!failed_ && (element.matches(names[i]) || element.matches(std::to_string(i)))) {
          visitElement(i);
        }
      }
    } else if (element.number() && *element.number() < count) {
      visitElement(*element.number());
    } else if (const auto named = std::find(names.begin(), names.end(), element.bytes());
               named != names.end() && !named->empty()) {
      visitElement(static_cast<std::size_t>(named - names.begin()));
    } else if (!address_.hasWildcards()) {
      failed_ = true;
      context_.fail(Status::notFound, address_.text, missingElement(count, names));
    }
  }

  [[nodiscard]] std::string missingElement(unsigned count,
                                           const std::vector<std::string>& names) const {
    if (count == 0) {
      return "no such element (not an array)";
    }
    std::string reason = "no such element";
    const std::string nearest = nearestName(address_.element->bytes(), names);
    return nearest.empty() ? reason + " (there are " + std::to_string(count) + ", from 0)"
                           : reason + " (nearest: " + nearest + ")";
  }

  /// "part NAME/NAME: no such part (nearest: NAME)", up to the first name that is missing.
  [[nodiscard]] std::string describeMissing(Connection& connection) const {
    Chain chain;
    std::string path;
    for (const NamePattern& name : address_.names) {
      path += path.empty() ? "" : "/";
      if (name.childId()) {
        path += name.bytes();
      } else {
        appendEscapedName(path, name.bytes());
      }
      Children children;
      if (connection.readChildren(chain, children) != ModelSrv::ModelRes_Success) {
        break;
      }
      const auto child = findChild(children, name);
      if (!child) {
        return withNearest("part " + path + ": no such part", name.bytes(), children.names);
      }
      chain.push_back(children.ids[*child]);
    }
    return "no such part";
  }

  Context& context_;
  const Address& address_;
  const Visitor& visit_;
  Match match_;
  bool took_ = false;
  bool failed_ = false;
};

}  // namespace

std::string_view Match::partAddress() const {
  std::string_view part = address;
  if (index != ModelSrv::ModelPartIndex_All) {
    part = part.substr(0, part.rfind('['));
  }
  return part;
}

bool parseAddresses(Context& context, const std::vector<std::string>& words,
                    std::vector<Address>& addresses) {
  for (const std::string& word : words) {
    auto parsed = parseAddress(word, context.options().server);
    if (const auto* problem = std::get_if<std::string>(&parsed)) {
      context.messages().print(*problem);
      context.note(Status::usage);
      return false;
    }
    addresses.push_back(std::move(std::get<Address>(parsed)));
  }
  return true;
}

void forEachMatch(Context& context, const Address& address, const Visitor& visit) {
  Matcher(context, address, visit).run();
}

Visit visitAfter(ModelSrv::ModelRes result) {
  const Status status = statusOf(result);
  return status == Status::noServer || status == Status::timeout ? Visit::stopped : Visit::taken;
}

bool isNode(Connection& connection, const Chain& chain, ModelSrv::ModelRes& result) {
  Children children;
  result = connection.readChildren(chain, children);
  if (result != ModelSrv::ModelRes_Success || !children.ids.empty()) {
    return result == ModelSrv::ModelRes_Success;
  }
  std::string text;
  if (connection.readText(chain, ModelSrv::ModelPartIndex_All, text) !=
      ModelSrv::ModelRes_NoValue) {
    return false;
  }
  // So has a part whose value is missing, which a server that knows no descriptions does not say.
  ModelSrv::PartDescription description;
  result = connection.readDescription(chain, description);
  return result == ModelSrv::ModelRes_Success &&
         (description.type.empty() || description.type == "node");
}

}  // namespace treectl
