#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "servers/replay.h"
#include "tests/support/scratch_directory.h"

namespace modelsrvd {

/// A recording with times that the test passes in.
class Replayed : public testing::Test {
 protected:
  using Clock = Replay::Clock;

  ~Replayed() override { replay_.reset(); }

  /// The time `ms` after the recording began, as it is written.
  static std::string at(int ms) {
    std::string digits = std::to_string(1000000 + ms * 1000 % 1000000);
    return R"({"time":"2026-11-22T09:32:)" + std::to_string(10 + ms / 1000) + "." +
           digits.substr(1) + "Z\",";
  }
  static std::string header(const std::string& parts, const std::string& more = "") {
    return R"({"format":1,"start":"2026-11-22T09:32:10.000000Z",)" + more + "\"parts\":[" + parts +
           "]}\n";
  }
  static std::string intPart(const std::string& address) {
    return R"({"address":")" + address + R"(","type":"int32","access":"rw","unit":""})";
  }
  /// A line of an int32; without `isChange` of one that was read in the beginning.
  static std::string value(int ms, const std::string& address, int number, bool isChange = true) {
    return at(ms) + R"("address":")" + address + R"(","type":"int32","access":"rw","unit":"",)" +
           "\"value\":" + std::to_string(number) + (isChange ? ",\"changes\":1}\n" : "}\n");
  }
  static std::string event(int ms, const std::string& address, const std::string& what) {
    return at(ms) + R"("address":")" + address + R"(","event":")" + what + "\"}\n";
  }

  /// The error, empty if there is none.
  std::string open(const std::string& text, Replay::Pace pace = {}) {
    auto opened = Replay::open(directory_.write("rec", text), pace);
    if (const auto* error = std::get_if<Error>(&opened)) {
      return error->text.substr(directory_.file("rec: ").size());
    }
    replay_ = std::move(std::get<std::unique_ptr<Replay>>(opened));
    return "";
  }
  void play(const std::string& text, Replay::Pace pace = {}) {
    ASSERT_EQ(open(text, pace), "");
    const auto error = replay_->publish(root_);
    ASSERT_FALSE(error) << error->text;
    replay_->tick(start_);
  }
  /// Lets the time be that, and does all that is due.
  void advanceTo(std::chrono::milliseconds time) {
    const Clock::time_point now = start_ + time;
    for (auto next = replay_->nextDeadline(now); next && *next <= now;
         next = replay_->nextDeadline(now)) {
      replay_->tick(now);
    }
  }

  [[nodiscard]] ModelSrv::ModelPart* find(const std::string& path) const {
    ModelSrv::ModelPart* part = const_cast<ModelSrv::ModelRoot*>(&root_);
    std::istringstream names(path);
    for (std::string name; part != nullptr && std::getline(names, name, '/');) {
      const auto* node = dynamic_cast<const ModelSrv::ModelNode*>(part);
      part = nullptr;
      for (ModelSrv::ModelPart* child :
           node != nullptr ? node->children() : std::vector<ModelSrv::ModelPart*>()) {
        part = child->name() == name ? child : part;
      }
    }
    return part;
  }
  /// The value; "none" if there is no such part.
  [[nodiscard]] std::string get(const std::string& path) const {
    ModelSrv::ModelPart* const part = find(path);
    std::ostringstream text;
    return part != nullptr &&
                   part->save(text, ModelSrv::ModelPartIndex_All) == ModelSrv::ModelRes_Success
               ? text.str()
               : "none";
  }
  [[nodiscard]] static std::vector<std::string> names(const ModelSrv::ModelNode& node) {
    std::vector<std::string> all;
    for (const ModelSrv::ModelPart* child : node.children()) {
      all.push_back(std::to_string(child->id()) + ":" + std::string(child->name()));
    }
    return all;
  }

  test_support::ScratchDirectory directory_;
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::unique_ptr<Replay> replay_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace modelsrvd
