#include "tools/connection.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "tools/stop_signals.h"
#include "tools/subtree.h"

namespace treectl {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelRes;
using Clock = std::chrono::steady_clock;

namespace {

/// Stands for the part that the next request is about. The library asks for each id of the chain
/// once, the last one first.
class TargetPart final : public ModelSrv::ModelPart {
 public:
  explicit TargetPart(ModelSrv::ModelRoot& root) : root_(root) {}
  ~TargetPart() override { detach(); }
  TargetPart(const TargetPart&) = delete;
  TargetPart& operator=(const TargetPart&) = delete;

  void set(const Chain& chain) { chain_ = chain; }

  ModelSrv::ModelPartId getId() override {
    const ModelSrv::ModelPartId id = chain_.back();
    chain_.pop_back();
    return id;
  }

  ModelSrv::ModelPart* getParentNode() override {
    return chain_.empty() ? static_cast<ModelSrv::ModelPart*>(&root_) : this;
  }

 private:
  ModelSrv::ModelRoot& root_;
  Chain chain_;
};

/// Whether a store would take `text` for the counted form of another one: a length, a line feed
/// and that many bytes.
bool looksCounted(std::string_view text) {
  const std::size_t feed = text.find('\n');
  return feed != std::string_view::npos && text.starts_with(std::to_string(text.size() - feed - 1));
}

/// The form that stores exactly `text`. What looks like the counted form is no number, so the
/// part's type does not matter.
std::string storedForm(std::string_view text) {
  std::string form;
  if (looksCounted(text)) {
    form = std::to_string(text.size()) + '\n';
  }
  form += text;
  return form;
}

/// A request on a thread of its own, which may end when no thread waits for it any more.
template <typename Result>
struct DetachedRequest {
  std::mutex mutex;
  std::condition_variable ended;
  std::optional<ModelRes> result;
  Result output{};
};

}  // namespace

bool splitElements(std::string_view text, std::size_t count, Value& value) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  if (lines.size() != count) {
    return false;
  }
  value = {std::move(lines), true};
  return true;
}

struct Connection::Link {
  /// Passes the events of the connection on.
  class Root final : public ModelSrv::ModelRoot {
   public:
    explicit Root(EvtSrv::EventPortManager* manager) : ModelRoot(manager) {}

    unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                               EvtSrv::MemoryHolder* reply) override {
      if (listener != nullptr && type == EvtTyp_Model_Lost) {
        listener->lost(*connection);
      } else if (listener != nullptr && type == EvtTyp_Model_Restored) {
        listener->restored(*connection);
      }
      return receiveMain(sender, type, data, reply);
    }

    ConnectionListener* listener = nullptr;
    Connection* connection = nullptr;
  };

  explicit Link(bool reconnects) : manager(EvtSrv::ConBehave_Default, reconnects) {}

  EvtSrv::EventPortManager manager;
  Root root{&manager};
  TargetPart target{root};

  ModelSrv::ModelPart* at(const Chain& chain) {
    if (chain.empty()) {
      return &root;
    }
    target.set(chain);
    return &target;
  }
};

Connection::Connection(double limit, bool reconnects)
    : limit_(limit), link_(std::make_shared<Link>(reconnects)) {}

Connection::~Connection() = default;

/// Makes a request, or several from one state of the tree, with the client mutex held.
template <typename Result, typename Request>
ModelRes Connection::locked(const Request& request, Link& link, Result& output) {
  const std::lock_guard lock(link.manager.clientMutex);
  return request(link, output);
}

template <typename Result, typename Request>
ModelRes Connection::run(Result& output, bool isRead, Request request) {
  if (hasTimedOut_) {
    return ModelSrv::ModelRes_Timeout;
  }
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(limit_));
  // In a callback this thread has the client mutex, and no other one could make the request.
  if (limit_ >= defaultLimit || isDispatching_) {
    ModelRes result = locked(request, *link_, output);
    while (result == ModelSrv::ModelRes_Timeout && isRead && Clock::now() < deadline &&
           StopSignals::received() == 0) {
      // Until the server shows life, requests fail without waiting.
      constexpr int pause = 50;
      static_cast<void>(link_->manager.receiveEvent(pause));
      result = locked(request, *link_, output);
    }
    return result;
  }
  const auto detached = std::make_shared<DetachedRequest<Result>>();
  try {
    std::thread([detached, link = link_, request] {
      Result received{};
      const ModelRes result = locked(request, *link, received);
      const std::lock_guard lock(detached->mutex);
      detached->output = std::move(received);
      detached->result = result;
      detached->ended.notify_one();
    }).detach();
  } catch (const std::system_error&) {
    return ModelSrv::ModelRes_SystemError;
  }
  std::unique_lock lock(detached->mutex);
  if (!detached->ended.wait_until(lock, deadline, [&] { return detached->result.has_value(); })) {
    hasTimedOut_ = true;
    return ModelSrv::ModelRes_Timeout;
  }
  output = std::move(detached->output);
  return *detached->result;
}

ModelRes Connection::open(const std::string& name) {
  struct Nothing {};
  Nothing nothing;
  return run(nothing, true, [name](Link& link, Nothing&) {
    return link.root.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop,
                                   EvtSrv::ConBehave_Default);
  });
}

std::optional<uid_t> Connection::owner() const {
  return hasTimedOut_ ? std::nullopt : link_->root.serverOwner();
}

ModelRes Connection::readChildren(const Chain& chain, Children& children) {
  return run(children, true, [chain](Link& link, Children& output) {
    ModelRes result = link.root.getChildIdsFromServer(link.at(chain), output.ids);
    if (result == ModelSrv::ModelRes_Success) {
      result = link.root.getChildNamesFromServer(link.at(chain), output.names);
    }
    output.names.resize(output.ids.size());
    return result;
  });
}

ModelRes Connection::readElementCount(const Chain& chain, unsigned& count) {
  return run(count, true, [chain](Link& link, unsigned& output) {
    unsigned short sum = 0;
    const ModelRes result = link.root.getElementSumFromServer(link.at(chain), sum);
    output = sum;
    return result;
  });
}

ModelRes Connection::readElementNames(const Chain& chain, std::vector<std::string>& names) {
  return run(names, true, [chain](Link& link, std::vector<std::string>& output) {
    return link.root.getElementNamesFromServer(link.at(chain), output);
  });
}

ModelRes Connection::readText(const Chain& chain, ModelPartIndex index, std::string& text) {
  return run(text, true, [chain, index](Link& link, std::string& output) {
    return link.root.getTextFromServer(link.at(chain), index, output);
  });
}

ModelRes Connection::readValue(const Chain& chain, ModelPartIndex index, Value& value) {
  unsigned count = 0;
  ModelRes result = index == ModelSrv::ModelPartIndex_All ? readElementCount(chain, count)
                                                          : ModelSrv::ModelRes_Success;
  std::string text;
  if (result == ModelSrv::ModelRes_Success) {
    result = readText(chain, index, text);
  }
  if (result != ModelSrv::ModelRes_Success) {
    return result;
  }
  if (count == 0) {
    value = {{std::move(text)}, false};
    return result;
  }
  if (splitElements(text, count, value)) {
    return result;
  }
  // A text has line feeds of its own.
  std::vector<std::string> texts(count);
  for (unsigned i = 0; i < count; ++i) {
    result = readText(chain, static_cast<ModelPartIndex>(i), texts[i]);
    if (result != ModelSrv::ModelRes_Success) {
      return result;
    }
  }
  value = {std::move(texts), true};
  return result;
}

ModelRes Connection::readDescription(const Chain& chain, ModelSrv::PartDescription& description) {
  return run(description, true, [chain](Link& link, ModelSrv::PartDescription& output) {
    return link.at(chain)->describe(output);
  });
}

ModelRes Connection::readSubtree(const Chain& chain, Subtree& subtree) {
  return run(subtree, true, [chain](Link& link, Subtree& output) {
    SubtreeBuilder builder(output, chain.size());
    ModelRes result = link.root.readTree(link.at(chain), [&](const ModelSrv::TreePart& part) {
      builder.add(part);
      return true;
    });
    for (std::size_t i = 0; result == ModelSrv::ModelRes_Success && i < output.entries.size();
         ++i) {
      const std::vector<std::uint32_t> children = builder.childrenToSort(i);
      if (children.empty()) {
        continue;
      }
      Chain node = chain;
      const Chain below = builder.chainOf(i);
      node.insert(node.end(), below.begin(), below.end());
      std::vector<ModelSrv::ModelPartId> ids;
      result = link.root.getChildIdsFromServer(link.at(node), ids);
      if (result == ModelSrv::ModelRes_Success) {
        builder.sortChildren(i, children, ids);
      } else if (result == ModelSrv::ModelRes_NoSuchPart) {
        result = ModelSrv::ModelRes_Success;  // It has left meanwhile.
      }
    }
    return result;
  });
}

ModelRes Connection::visitSubtree(const Chain& chain, const ModelSrv::TreeVisitor& visit) {
  struct Nothing {};
  Nothing nothing;
  return run(nothing, true,
             [&](Link& link, Nothing&) { return link.root.readTree(link.at(chain), visit); });
}

ModelRes Connection::storeText(const Chain& chain, ModelPartIndex index, std::string text,
                               bool passProtected, std::string& reason) {
  const ModelRes result =
      run(reason, false,
          [chain, index, text = std::move(text), passProtected](Link& link, std::string& output) {
            return link.at(chain)->store(text, passProtected, index, output);
          });
  if (result != ModelSrv::ModelRes_Success && reason.empty()) {
    reason = ModelSrv::describe(result);
  }
  return result;
}

ModelRes Connection::store(const Chain& chain, ModelPartIndex index, std::string_view text,
                           bool passProtected, std::string& reason) {
  return storeText(chain, index, storedForm(text), passProtected, reason);
}

ModelRes Connection::storeElements(const Chain& chain, const std::vector<std::string>& texts,
                                   bool passProtected, std::string& reason) {
  const auto fitsLine = [](const std::string& text) { return text.find('\n') == text.npos; };
  if (std::all_of(texts.begin(), texts.end(), fitsLine)) {
    std::string lines;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      lines += i == 0 ? "" : "\n";
      lines += texts[i];
    }
    return storeText(chain, ModelSrv::ModelPartIndex_All, std::move(lines), passProtected, reason);
  }
  // Line feeds separate the elements of a whole array, so these are stored one by one.
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const ModelRes result =
        store(chain, static_cast<ModelPartIndex>(i), texts[i], passProtected, reason);
    if (result != ModelSrv::ModelRes_Success) {
      reason.insert(0, '[' + std::to_string(i) + "]: ");
      return result;
    }
  }
  return ModelSrv::ModelRes_Success;
}

void Connection::setListener(ConnectionListener* listener) {
  link_->root.listener = listener;
  link_->root.connection = this;
}

ModelRes Connection::start(ModelSrv::Watch& watch, const Chain& chain,
                           const ModelSrv::WatchOptions& options,
                           ModelSrv::Watch::Callback callback) {
  return watch.start(link_->root, chain, options, std::move(callback));
}

int Connection::descriptor() const {
  return link_->manager.pollDescriptor();
}

bool Connection::dispatch() {
  isDispatching_ = true;
  const EvtSrv::EvtRes result = link_->manager.receiveEvent(0);
  isDispatching_ = false;
  return result == EvtSrv::EvtRes_Success;
}

}  // namespace treectl
