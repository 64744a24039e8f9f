#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/hiding_node.h"
#include "tests/platform/modelsrv/watched_session.h"
#include "tests/support/port_name.h"

// What follows a watch beside the tree, while both change at random.

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using modelsrv_tests::HidingNode;
using modelsrv_tests::WatchedSession;

using Chain = std::vector<ModelPartId>;
using TextByChain = std::map<Chain, std::string, ChainLess>;

/// A tree whose parts, names and values change at random, and mirrors of it.
class WatchSchedule {
 public:
  explicit WatchSchedule(unsigned seed) : random_(seed) {
    EXPECT_EQ(root_.add(&top_), ModelRes_Success);
    EXPECT_EQ(root_.startAsServer(test_support::uniquePortName()), ModelRes_Success);
    connect();
  }

  void run(int steps) {
    for (int i = 0; i < steps; ++i) {
      step();
    }
    for (const Owned& owned : parts_) {
      hide(*owned.part, false);
      owned.part->setSubscribable(true);
    }
    takeEvents(1'000'000);
  }

  /// What the mirror should have, and has: the texts by chain and name.
  TextByChain expected() {
    TextByChain parts;
    collect(top_, {1}, parts);
    return parts;
  }
  [[nodiscard]] const TextByChain& mirror() const { return mirror_; }

 private:
  struct Owned {
    std::unique_ptr<ModelPart> part;
    ModelNode* parent = nullptr;  ///< null if it is not in the tree
  };

  unsigned upTo(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  void connect() {
    session_.reset();
    session_.emplace(share_);
    ASSERT_EQ(session_->watch(5, {1}, watchSubtree | watchMayBeAbsent), ModelRes_Success);
  }

  void step() {
    switch (upTo(14)) {
      case 0:
      case 1:
        addPart();
        return;
      case 2:
        removePart();
        return;
      case 3:
        takeEvents(upTo(20));
        return;
      case 4:
        takeEvents(upTo(3));
        return;
      case 5:
        if (upTo(100) == 0) {
          connect();
        }
        return;
      case 6:
        if (upTo(50) == 0) {
          leaveAndReturn();
        }
        return;
      case 7:
        if (!parts_.empty()) {
          hide(*parts_[upTo(unsigned(parts_.size()))].part, upTo(2) == 0);
        }
        return;
      case 8:
        if (!parts_.empty()) {
          parts_[upTo(unsigned(parts_.size()))].part->setSubscribable(upTo(2) == 0);
        }
        return;
      default:
        change();
    }
  }

  /// Lets a node hide its children, or show them.
  static void hide(ModelPart& part, bool hidden) {
    if (auto* const node = dynamic_cast<HidingNode*>(&part)) {
      node->hide(hidden);
    }
  }

  void addPart() {
    ModelNode* parent = &top_;
    if (!parts_.empty()) {
      auto* const node = dynamic_cast<ModelNode*>(parts_[upTo(unsigned(parts_.size()))].part.get());
      parent = node != nullptr && node->findRoot() != nullptr ? node : parent;
    }
    const auto id = static_cast<ModelPartId>(upTo(6));
    const std::string name(1, static_cast<char>('a' + upTo(3)));
    Owned owned;
    switch (upTo(3)) {
      case 0:
        owned.part = std::make_unique<HidingNode>(id, name, manager_);
        break;
      case 1:
        owned.part = std::make_unique<ValuePart<unsigned>>(id, name, upTo(1000));
        break;
      default:
        owned.part =
            std::make_unique<ArrayPart<unsigned>>(id, name, std::vector<unsigned>{1, 2, upTo(9)});
    }
    if (parent->add(owned.part.get()) == ModelRes_Success) {
      owned.parent = parent;
      parts_.push_back(std::move(owned));
    }
  }

  void removePart() {
    if (parts_.empty()) {
      return;
    }
    const std::size_t at = upTo(unsigned(parts_.size()));
    auto* const node = dynamic_cast<ModelNode*>(parts_[at].part.get());
    if (node != nullptr && !node->children().empty()) {
      // With its descendants, which come back at once.
      ModelNode* const parent = parts_[at].part->parent();
      if (parent != nullptr && parent->remove(node) == ModelRes_Success) {
        EXPECT_EQ(parent->add(node), ModelRes_Success);
      }
      return;
    }
    parts_.erase(parts_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  void leaveAndReturn() {
    ASSERT_EQ(root_.remove(&top_), ModelRes_Success);
    takeEvents(upTo(5));
    ASSERT_EQ(root_.add(&top_), ModelRes_Success);
  }

  void change() {
    if (parts_.empty()) {
      return;
    }
    ModelPart* const part = parts_[upTo(unsigned(parts_.size()))].part.get();
    if (auto* const value = dynamic_cast<ValuePart<unsigned>*>(part)) {
      ASSERT_EQ(value->setValue(upTo(1000)), ModelRes_Success);
    } else if (auto* const array = dynamic_cast<ArrayPart<unsigned>*>(part)) {
      if (upTo(3) == 0) {
        ASSERT_EQ(array->setValues({upTo(9), upTo(9), upTo(9)}), ModelRes_Success);
      } else {
        ASSERT_EQ(array->setValue(static_cast<ModelPartIndex>(upTo(3)), upTo(9)), ModelRes_Success);
      }
    }
  }

  void takeEvents(unsigned count) {
    DecodedWatchEvent decoded;
    for (unsigned i = 0; i < count && session_->take(); ++i) {
      ASSERT_TRUE(
          decodeWatchEvent(session_->type, PayloadReader(session_->payload, nativeOrder), decoded));
      follow(decoded.event, decoded.hasValue);
    }
  }

  void follow(const WatchEvent& event, bool hasValue) {
    const Chain chain(event.chain.begin(), event.chain.end());
    switch (event.kind) {
      case WatchEvent::Kind::begin:
        mirror_.clear();
        names_.clear();
        break;
      case WatchEvent::Kind::complete:
        break;
      case WatchEvent::Kind::added:
        removeFrom(chain);
        names_[chain] = std::string(event.name);
        mirror_[chain] = names_[chain] + "=" + (hasValue ? std::string(event.text) : "");
        break;
      case WatchEvent::Kind::removed:
        removeFrom(chain);
        break;
      case WatchEvent::Kind::value:
        ASSERT_TRUE(names_.contains(chain)) << "a value of a part that was not reported";
        followValue(chain, event);
    }
  }

  void followValue(const Chain& chain, const WatchEvent& event) {
    std::string& text = mirror_[chain];
    if (event.index == ModelPartIndex_All) {
      text = names_[chain] + "=" + std::string(event.text);
      return;
    }
    std::size_t begin = text.find('=') + 1;
    for (unsigned element = 0; element < event.index; ++element) {
      begin = text.find('\n', begin) + 1;
    }
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    text.replace(begin, end - begin, event.text);
  }

  void removeFrom(const Chain& chain) {
    const auto isBelow = [&](const auto& entry) {
      return entry.first.size() >= chain.size() &&
             std::equal(chain.begin(), chain.end(), entry.first.begin());
    };
    std::erase_if(mirror_, isBelow);
    std::erase_if(names_, isBelow);
  }

  void collect(ModelPart& part, const Chain& chain, TextByChain& parts) {
    std::ostringstream text;
    static_cast<void>(part.save(text, ModelPartIndex_All));
    parts[chain] = std::string(part.name()) + "=" + text.str();
    if (auto* const node = dynamic_cast<ModelNode*>(&part)) {
      for (ModelPart* const child : node->children()) {
        Chain below(chain);
        below.push_back(child->id());
        collect(*child, below, parts);
      }
    }
  }

  std::mt19937 random_;
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ModelNode top_{1, "top"};
  std::vector<Owned> parts_;
  std::shared_ptr<SessionShare> share_ = std::make_shared<SessionShare>(root_);
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
  std::optional<WatchedSession> session_;
  TextByChain mirror_;
  TextByChain names_;
};

TEST(WatchSchedules, LeaveAMirrorThatEqualsTheTree) {
  std::random_device device;
  for (int round = 0; round < 200; ++round) {
    const unsigned seed = device();
    SCOPED_TRACE("seed " + std::to_string(seed));
    WatchSchedule schedule(seed);
    for (int part = 0; part < 4; ++part) {
      schedule.run(400);
      ASSERT_EQ(schedule.mirror(), schedule.expected());
    }
  }
}

}  // namespace
