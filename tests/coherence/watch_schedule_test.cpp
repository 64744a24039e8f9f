#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "modelsrv/watch.h"
#include "tests/coherence/changing_server.h"

// A client that watches parts and subtrees of a server in another process. In a random order the
// tree is changed, events are dispatched, and the server ends, refuses sessions and returns. After
// some steps the client is given the time to catch up, and what it has been told is the tree.

namespace {

using namespace ModelSrv;
using namespace coherence;

/// What a watch has reported.
class Picture {
 public:
  Picture(Client& client, Chain top, const WatchOptions& options)
      : top_(std::move(top)), options_(options) {
    EXPECT_EQ(watch_.start(client.root, top_, options_,
                           [this](const WatchEvent& event) { follow(event); }),
              ModelRes_Success);
  }

  /// What is wrong about the picture of `tree`; empty if nothing is.
  [[nodiscard]] std::string difference(const TreeModel& tree) const {
    if (!isComplete_) {
      return "not complete";
    }
    for (const auto& [chain, part] : tree.parts()) {
      if (isWatched(chain) && tree.contains(chain)) {
        const auto at = seen_.find(chain);
        if (at == seen_.end()) {
          return textOf(chain) + " is missing";
        }
        if (const std::string wrong = differenceOf(at->second, part); !wrong.empty()) {
          return textOf(chain) + wrong;
        }
      }
    }
    // It is not reported when a node begins to hide its children.
    for (const auto& [chain, part] : seen_) {
      if (!tree.parts().contains(chain)) {
        return textOf(chain) + " is not there any more";
      }
    }
    return "";
  }

 private:
  struct Seen {
    std::string name;
    bool isNode = false;
    std::vector<std::string> texts = {};
  };

  [[nodiscard]] bool isWatched(const Chain& chain) const {
    return options_.subtree
               ? std::mismatch(top_.begin(), top_.end(), chain.begin(), chain.end()).first ==
                     top_.end()
               : chain == top_;
  }

  static std::string differenceOf(const Seen& seen, const PartModel& part) {
    if (seen.name != part.name) {
      return ": name " + seen.name + ", expected " + part.name;
    }
    if (seen.isNode != (part.isNode && !part.isHiding)) {
      return part.isHiding ? "" : ": is a node or not";
    }
    const std::vector<std::string> expected = linesOf(part.text());
    if (!part.isNode && seen.texts != expected) {
      return ": begins with " + (seen.texts.empty() ? "nothing" : seen.texts[0].substr(0, 20)) +
             ", expected " + expected[0].substr(0, 20);
    }
    return "";
  }

  void follow(const WatchEvent& event) {
    const Chain chain(event.chain.begin(), event.chain.end());
    switch (event.kind) {
      case WatchEvent::Kind::begin:
        seen_.clear();
        isComplete_ = false;
        return;
      case WatchEvent::Kind::complete:
        isComplete_ = true;
        return;
      case WatchEvent::Kind::added:
        remove(chain);
        seen_[chain] = {chain.empty() ? "" : std::string(event.name), event.isNode};
        return;
      case WatchEvent::Kind::removed:
        remove(chain);
        return;
      case WatchEvent::Kind::value:
        followValue(chain, event);
    }
  }

  void followValue(const Chain& chain, const WatchEvent& event) {
    const auto at = seen_.find(chain);
    ASSERT_NE(at, seen_.end()) << "a value of a part that was not reported";
    std::string text(event.text);
    if (event.result == ModelRes_TooLarge) {
      // If the server has gone, the value comes again.
      static_cast<void>(watch_.fetch(event, text));
    }
    std::vector<std::string>& texts = at->second.texts;
    if (event.index == ModelPartIndex_All) {
      texts = linesOf(text);
    } else {
      ASSERT_LT(event.index, texts.size());
      texts[event.index] = text;
    }
  }

  void remove(const Chain& chain) {
    std::erase_if(seen_, [&](const auto& entry) {
      return std::mismatch(chain.begin(), chain.end(), entry.first.begin(), entry.first.end())
                 .first == chain.end();
    });
  }

  const Chain top_;
  const WatchOptions options_;
  std::map<Chain, Seen> seen_;
  bool isComplete_ = false;
  Watch watch_;
};

class WatchedServer {
 public:
  explicit WatchedServer(unsigned seed) : server_(seed) {
    EXPECT_EQ(client_.connect(server_.port()), ModelRes_Success);
    WatchOptions subtree;
    subtree.subtree = true;
    WatchOptions slowSubtree = subtree;
    slowSubtree.period = 3;
    pictures_.emplace_back(client_, Chain{}, subtree);
    pictures_.emplace_back(client_, Chain{3}, slowSubtree);
    pictures_.emplace_back(client_, Chain{1, 13}, subtree);
    for (const Chain& chain :
         {Chain{1, 0}, Chain{1, 8}, Chain{3, 10}, Chain{7, 12, 1}, Chain{20}}) {
      pictures_.emplace_back(client_, chain, WatchOptions{});
    }
  }

  void step() {
    const unsigned kind = server_.below(1000);
    if (kind < 500) {
      server_.change(anyPart());
    } else if (kind < 560) {
      server_.store(client_, anyPart());
    } else if (kind < 660) {
      static_cast<void>(server_.addPart(anyPart()));
    } else if (kind < 740) {
      server_.remove(anyPart());
    } else if (kind < 965) {
      dispatch(server_.below(30));
    } else if (kind < 995) {
      catchUp();
    } else {
      replace();
    }
  }

  /// Dispatches until each picture is that of the tree.
  void catchUp() {
    constexpr int shortWait = 10;
    for (int left = test_support::timeoutMilliseconds; left > 0; left -= shortWait) {
      dispatchAll();
      if (difference().empty()) {
        return;
      }
      static_cast<void>(client_.manager.receiveEvent(shortWait));
    }
    ADD_FAILURE() << difference();
  }

 private:
  /// Usually one that is watched by more than one.
  Chain anyPart() {
    Chain chain = server_.anyPart();
    const auto group = static_cast<ModelPartId>(server_.below(2) == 0 ? 1 : 3);
    if (server_.below(3) == 0 || !server_.tree().contains({group})) {
      return chain;
    }
    std::vector<Chain> below;
    for (const auto& [at, part] : server_.tree().parts()) {
      if (!at.empty() && at[0] == group && server_.tree().contains(at)) {
        below.push_back(at);
      }
    }
    return below[server_.below(static_cast<unsigned>(below.size()))];
  }

  void dispatch(unsigned events) {
    for (; events > 0 && client_.manager.receiveEvent(0) == EvtSrv::EvtRes_Success; --events) {
    }
  }
  void dispatchAll() { client_.pumpAll(); }

  [[nodiscard]] std::string difference() const {
    for (std::size_t i = 0; i < pictures_.size(); ++i) {
      if (const std::string wrong = pictures_[i].difference(server_.tree()); !wrong.empty()) {
        return "watch " + std::to_string(i) + ": " + wrong;
      }
    }
    return "";
  }

  /// Ends the server, and starts one with another tree.
  void replace() {
    if (server_.below(2) == 0) {
      server_.kill();
    } else {
      server_.finish();
    }
    dispatch(server_.below(3));
    server_.start();
    // A sanitizer's check of types takes descriptors of its own, and ends a server without any.
    if (server_.below(2) == 0 && !test_support::sanitized) {
      refuse();
    }
    if (server_.below(10) != 0) {
      // A request does not wait as a dispatch does after a server that ended soon.
      std::vector<unsigned short> ids;
      EXPECT_EQ(client_.childIds({}, ids), ModelRes_Success);
    }
    catchUp();
  }

  /// Lets the client try to connect while the server has no descriptors for another session.
  void refuse() {
    server_.refuse(true);
    std::vector<unsigned short> ids;
    EXPECT_EQ(client_.childIds({}, ids), ModelRes_NoDescriptors);
    server_.refuse(false);
  }

  ChangingServer server_;
  Client client_;
  std::deque<Picture> pictures_;
};

class WatchCoherence : public testing::TestWithParam<unsigned> {};

TEST_P(WatchCoherence, APictureIsTheTreeOnceItsClientHasCaughtUp) {
  WatchedServer schedule(GetParam());
  const int count = scheduleSteps() / 2;
  for (int i = 0; i < count && !HasFailure(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    schedule.step();
  }
  if (!HasFailure()) {
    schedule.catchUp();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, WatchCoherence, testing::Range(1U, 4U));

}  // namespace
