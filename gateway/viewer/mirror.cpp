#include "gateway/viewer/mirror.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace modelgate {

namespace {

/// Until a name that another server has is tried again.
constexpr std::chrono::seconds serveRetry{5};
/// For the values that the broker has kept: nothing says which is the last.
constexpr std::chrono::milliseconds readingTime{200};

/// The largest id that no part at the top of `shape` has.
ModelSrv::ModelPartId freeId(const Shape& shape) {
  std::vector<bool> used(ModelSrv::ModelPartId_Max + 1);
  for (const ShapePart& part : shape) {
    if (part.depth <= 1 && part.id < used.size()) {
      used[part.id] = true;
    }
  }
  const auto at = std::find(used.rbegin(), used.rend(), false);
  return static_cast<ModelSrv::ModelPartId>(used.rend() - at - (at == used.rend() ? 0 : 1));
}

}  // namespace

Mirror::Mirror(DeviceLink& link, const LinkStatus& device, std::string server)
    : link_(link),
      device_(device),
      server_(std::move(server)),
      stores_(link, server_),
      clients_(
          link.context().loop(), [this] { return isComplete(); }, [this] { work(); },
          [this] {
            fetch_.cancel();
            noteUse();
          }),
      fetch_(link, server_,
             [this](const Shape& shape, const std::vector<std::string>& hashes) {
               takeShape(shape, hashes);
             }),
      values_(
          link, server_, [this] { return clients_.any(); },
          [this] {
            if (isComplete()) {
              clients_.release();
            }
          }) {}

Mirror::~Mirror() {
  values_.detach();
  served_.reset();
}

/// Whether there is nothing that a client had better wait for.
bool Mirror::isComplete() const {
  if (!link_.context().isConnected()) {
    return true;
  }
  if (!isOnline_) {
    return (served_->tree != nullptr && !readsRetained_) || state_.pages.empty();
  }
  // The values may be those of an earlier shape or run: without clients nothing is fetched.
  return values_.isSynced() && hasShape() &&
         values_.isAttachedTo(served_->tree.get(), state_.shape);
}

/// Whether the tree is that of the device's state.
bool Mirror::hasShape() const {
  return served_->tree != nullptr && builtPages_ == state_.pages;
}

std::string Mirror::portName() const {
  return "Model_" + link_.name() + "." + server_ + (isOnline_ ? "" : "~offline");
}

/// For people.
std::string Mirror::title() const {
  return "server \"" + server_ + "\" of " + link_.name();
}

std::string_view Mirror::stateText() const {
  return isOnline_ || !link_.presence().isOnline() ? device_.stateText() : "offline";
}

std::string Mirror::problem() const {
  return claim_ && !claim_->isGranted() ? claim_->obstacle() : problem_;
}

void Mirror::setState(const ServerState* state) {
  isListed_ = state != nullptr;
  isUp_ = state != nullptr && state->up;
  if (isUp_) {
    state_ = *state;
  }
}

void Mirror::update() {
  if (isStopped_) {
    return;
  }
  const bool online = isUp_ && link_.presence().isOnline();
  if (served_ == nullptr ? online : online != isOnline_) {
    serve(online);
  }
  refresh();
  work();
}

void Mirror::disconnected() {
  fetch_.cancel();
  values_.disconnected();
  endReading();
}

void Mirror::refresh() {
  if (served_ != nullptr) {
    served_->linkNode->refresh();
  }
  if (idle_) {
    // The device may still send values.
    idle_->resize(served_->tree->memory());
  }
}

/// Replaces the server by the other one, which has the parts and values of this one.
void Mirror::serve(bool online) {
  fetch_.cancel();
  values_.detach();
  endReading();
  stores_.setTree(nullptr);
  retry_ = {};
  idle_.reset();
  if (isOnline_ && !online) {
    lostAt_ = ViewerContext::now();
  }
  isOnline_ = online;
  auto next = std::make_unique<Served>();
  next->root = std::make_unique<MirrorRoot>(link_.context().manager(), online ? &stores_ : nullptr);
  next->linkNode = std::make_unique<LinkNode>(ModelSrv::ModelPartId_Max, *this);
  static_cast<void>(next->root->add(next->linkNode.get()));
  if (served_ != nullptr && served_->tree != nullptr && build(*next, served_->tree->shape())) {
    next->tree->takeValuesOf(*served_->tree);
  }
  if (served_ != nullptr) {
    served_->root->stop(true);
  }
  served_ = std::move(next);
  if (!claim_) {
    claimNames();
  }
  startServer();
}

/// Both names at once: who has one of them gets the other one, too.
void Mirror::claimNames() {
  const std::string name = "Model_" + link_.name() + "." + server_;
  claim_.emplace(link_.context().portNames(), std::vector{name, name + "~offline"}, title(),
                 PortClaim::Handlers{[this] { return isGone(); },
                                     [this] {
                                       serve(isOnline_);
                                       work();
                                     }});
}

/// Whether it hardly comes back.
bool Mirror::isGone() const {
  return !isOnline_ &&
         (!isListed_ || ViewerContext::now() - lostAt_ >= link_.context().times().nameRetention);
}

void Mirror::startServer() {
  if (!claim_->isGranted()) {
    clients_.reset();
    return report(claim_->obstacle());
  }
  ModelSrv::ServerOptions options;
  options.group = link_.context().group();
  clients_.addHooks(options);
  const ModelSrv::ModelRes result = served_->root->startAsServer(portName(), options);
  served_->isServing = result == ModelSrv::ModelRes_Success;
  if (served_->isServing) {
    return report({});
  }
  report(result == ModelSrv::ModelRes_NameInUse
             ? "another program of this machine has " + portName()
             : portName() + ": " + ModelSrv::describe(result));
  retry_ = link_.context().loop().after(serveRetry, [this] {
    startServer();
    work();
  });
}

/// Logs why there is no port, when that changes.
void Mirror::report(std::string problem) {
  if (!problem.empty() && problem != problem_) {
    link_.context().logOften("no port for " + title() + ": " + problem);
  }
  problem_ = std::move(problem);
}

/// False if that is not possible; then there are no parts.
bool Mirror::build(Served& served, const Shape& shape) {
  try {
    if (served.tree == nullptr) {
      served.tree = std::make_unique<MirrorTree>(*served.root, !isOnline_);
    }
    const ModelSrv::ModelPartId id = freeId(shape);
    auto linkNode = served.linkNode->id() == id ? nullptr : std::make_unique<LinkNode>(id, *this);
    served.tree->build(shape, linkNode != nullptr ? *linkNode : *served.linkNode);
    if (linkNode != nullptr) {
      served.linkNode = std::move(linkNode);
    }
    return true;
  } catch (const std::exception& error) {
    link_.context().log(portName() + ": " + error.what());
  }
  dropTree(served);
  return false;
}

void Mirror::dropTree(Served& served) {
  values_.forget();
  stores_.setTree(nullptr);
  builtPages_.clear();
  served.tree.reset();
  static_cast<void>(served.root->setChildren({served.linkNode.get()}));
}

void Mirror::takeShape(const Shape& shape, const std::vector<std::string>& hashes) {
  if (!build(*served_, shape)) {
    return;
  }
  builtPages_ = hashes;
  if (isOnline_) {
    work();
  } else {
    readRetained();
  }
}

/// Notes whether a client uses the tree.
void Mirror::noteUse() {
  if (clients_.any() || served_ == nullptr || served_->tree == nullptr) {
    idle_.reset();
  } else if (!idle_) {
    link_.context().addIdleTree(idle_, served_->tree->memory(), isOnline_,
                                [this] { giveTreeBack(); });
  }
}

/// The next client is served as the first one was.
void Mirror::giveTreeBack() {
  idle_.reset();
  if (!clients_.any() && !isStopped_) {
    dropTree(*served_);
  }
}

/// Fetches what is missing of the shape and the values, if somebody wants them.
void Mirror::work() {
  if (served_ == nullptr) {
    return;
  }
  noteUse();
  if (isComplete()) {
    clients_.release();
  }
  if (!clients_.any() || !link_.context().isConnected()) {
    return;
  }
  if (!isOnline_) {
    return workOffline();
  }
  if (!hasShape()) {
    return fetch_.begin(state_.pages);
  }
  fetch_.cancel();
  stores_.setTree(served_->tree.get());
  if (!values_.isAttachedTo(served_->tree.get(), state_.shape)) {
    values_.attach(*served_->tree, state_.shape);
  }
  values_.begin();
}

/// The device has gone before anybody looked at it: the broker still has its shape, and may have
/// its last values.
void Mirror::workOffline() {
  if (served_->tree == nullptr) {
    fetch_.begin(state_.pages);
  }
}

void Mirror::readRetained() {
  readsRetained_ = true;
  link_.context().subscribe(link_.topics().allValues(server_), 1);
  reading_ = link_.context().loop().after(readingTime, [this] {
    endReading();
    clients_.release();
  });
}

void Mirror::endReading() {
  reading_ = {};
  if (std::exchange(readsRetained_, false)) {
    link_.context().unsubscribe(link_.topics().allValues(server_));
  }
}

void Mirror::takeValues(std::string_view payload) {
  const auto page = readsRetained_ ? decodeValuePage(payload) : std::nullopt;
  if (!page || page->shape != state_.shape || served_->tree == nullptr) {
    return;
  }
  for (const PositionedValue& value : page->values) {
    served_->tree->take(value, page->sequence, Accept::newerOrSame);
  }
}

void Mirror::stop() {
  isStopped_ = true;
  fetch_.cancel();
  values_.end();
  endReading();
  clients_.release();
  retry_ = {};
  if (served_ != nullptr) {
    served_->root->stop(false);
  }
}

}  // namespace modelgate
