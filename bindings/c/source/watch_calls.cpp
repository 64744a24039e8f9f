#include <limits>
#include <utility>

#include "bindings/c/source/call.h"
#include "bindings/c/source/client.h"
#include "bindings/c/source/number_text.h"

// The watches of treescope.h, which documents them.

namespace treescope_c {

namespace {

using KSTD::KThreadMutexLock;
using ModelSrv::ModelRes;
using ModelSrv::WatchEvent;

treescope_change changeOf(WatchEvent::Kind kind) {
  switch (kind) {
    case WatchEvent::Kind::begin:
      return TREESCOPE_BEGIN;
    case WatchEvent::Kind::added:
      return TREESCOPE_ADDED;
    case WatchEvent::Kind::value:
      return TREESCOPE_VALUE;
    case WatchEvent::Kind::removed:
      return TREESCOPE_REMOVED;
    case WatchEvent::Kind::complete:
      break;
  }
  return TREESCOPE_COMPLETE;
}

/// A watch of a C program.
class ProgramWatch final : public Object {
 public:
  static constexpr Kind objectKind = Kind::watch;

  ProgramWatch(std::shared_ptr<Client> client, treescope_watcher watcher, void* context)
      : Object(objectKind), client_(std::move(client)), watcher_(watcher), context_(context) {}

  ModelRes start(const Path& path, const ModelSrv::WatchOptions& options,
                 HandleTable::Handle handle) {
    return client_->startWatch(
        path, options, [this](const WatchEvent& event) { report(event); }, watch_, handle);
  }

  /// The watcher is not called after this.
  void stop() {
    const KThreadMutexLock lock(client_->loop.manager.clientMutex);
    static_cast<void>(watch_.stop());
  }

  [[nodiscard]] Client& client() const { return *client_; }

 private:
  void report(const WatchEvent& event) {
    // A watcher may stop its own watch, which destroys this object.
    const std::shared_ptr<Client> client = client_;
    const IdChain chain(event.chain.begin(), event.chain.end());
    const std::string path = idPath(chain, event.index);
    const std::string name(event.name);
    const std::string text(event.text);
    double number = std::numeric_limits<double>::quiet_NaN();
    if (event.kind == WatchEvent::Kind::value && event.result == ModelSrv::ModelRes_Success) {
      static_cast<void>(parseNumber(text, number));
    }
    const treescope_update update{changeOf(event.kind),
                                  path.c_str(),
                                  chain.data(),
                                  chain.size(),
                                  {name.c_str(), name.size()},
                                  event.isNode,
                                  fromIndex(event.index),
                                  toValueResult(event.result),
                                  {text.c_str(), text.size()},
                                  number,
                                  event.timeNs,
                                  event.changes};
    const CallbackScope scope(client->loop);
    watcher_(context_, &update);
  }

  const std::shared_ptr<Client> client_;
  const treescope_watcher watcher_;
  void* const context_;
  ModelSrv::Watch watch_;  ///< has a lock of its own
};

}  // namespace

}  // namespace treescope_c

using namespace treescope_c;

treescope_result treescope_watch_start(treescope_client* client, const char* path, unsigned flags,
                                       unsigned period, treescope_watcher watcher, void* context,
                                       treescope_watch** watch) {
  return guarded([&] {
    const auto found = find<Client>(client);
    if (found == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    if (path == nullptr || watcher == nullptr || watch == nullptr ||
        (flags & ~TREESCOPE_SUBTREE) != 0) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    const std::optional<Path> parsed = parsePath(path);
    if (!parsed) {
      return failOfPath(path);
    }
    const ModelSrv::WatchOptions options{(flags & TREESCOPE_SUBTREE) != 0, parsed->index, period};
    const auto made = std::make_shared<ProgramWatch>(found, watcher, context);
    const HandleTable::Handle handle = HandleTable::instance().add(made);
    const ModelRes result = made->start(*parsed, options, handle);
    if (result != ModelSrv::ModelRes_Success) {
      HandleTable::instance().remove(handle);
      return finish(result, path);
    }
    *watch = reinterpret_cast<treescope_watch*>(handle);
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_watch_stop(treescope_watch* watch) {
  return guarded([&] {
    const auto found = find<ProgramWatch>(watch);
    if (found == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    const auto handle = reinterpret_cast<HandleTable::Handle>(watch);
    HandleTable::instance().remove(handle);
    found->client().removeWatch(handle);
    found->stop();
    return TREESCOPE_SUCCESS;
  });
}
