#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "servers/state_text.h"
#include "servers/stored_values.h"
#include "servers/tree_source.h"
#include "tests/platform/modelsrv/failing_allocation.h"
#include "tests/support/scratch_directory.h"

// What clients have stored after any single allocation of the server has failed.

namespace modelsrvd {
namespace {

using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes_Success;
using modelsrv_tests::forEachAllocation;
using modelsrv_tests::runWithFailure;

/// A text, an array of numbers and an array of texts, with the ids 1 to 3.
std::string treeText(const std::string& access) {
  const auto element = [](const std::string& name, const std::string& value) {
    return R"({"name": "a long name of an element )" + name + R"(", "value": )" + value + "}";
  };
  return R"({"children": [{"id": 1, "name": "label", "type": "text", "value": "")" + access +
         R"(}, {"id": 2, "name": "gains", "type": "double", "elements": [)" + element("p", "1") +
         ", " + element("i", "2") +
         R"(]}, {"id": 3, "name": "notes", "type": "text", "elements": [)" + element("t", R"("")") +
         "]}]}";
}

/// The whole texts of the parts after the stores.
const std::map<ModelSrv::ModelPartId, std::string> storedTexts{
    {1, "a text that is not short"},
    {2, "-1.2345678901234568e-300\n0.30000000000000004"},
    {3, "an element that is not short"}};

/// A tree that would be served, and its state file.
class TreeWithState {
 public:
  explicit TreeWithState(const test_support::ScratchDirectory& directory)
      : source_(makeSource(directory.write("tree.json", treeText("")))),
        values_(directory.file("state.json"), root_,
                {[this](const Error&) { ++reports_; },
                 [this](const ModelSrv::ModelPart& part) { return source_->holdsValue(part); }}) {
    EXPECT_FALSE(source_->publish(root_));
  }

  TreeSource& source() { return *source_; }
  StoredValues& values() { return values_; }
  [[nodiscard]] int reports() const { return reports_; }

  /// What clients have stored, of which `values` does not know yet.
  void setAll() {
    for (const auto& [id, text] : storedTexts) {
      std::string reason;
      EXPECT_EQ(part(id).storeAsClient(text, true, ModelPartIndex_All, reason), ModelRes_Success)
          << reason;
    }
  }
  void notifyAll() {
    for (const auto& each : storedTexts) {
      values_.stored(part(each.first));
    }
  }
  std::map<ModelSrv::ModelPartId, std::string> texts() {
    std::map<ModelSrv::ModelPartId, std::string> texts;
    for (const auto& each : storedTexts) {
      std::ostringstream text;
      EXPECT_EQ(part(each.first).save(text, ModelPartIndex_All), ModelRes_Success);
      texts[each.first] = text.str();
    }
    return texts;
  }

 private:
  static std::unique_ptr<TreeSource> makeSource(const std::string& path) {
    Options options;
    options.tree = path;
    return std::get<std::unique_ptr<TreeSource>>(makeTreeSource(options));
  }
  ModelSrv::ModelPart& part(ModelSrv::ModelPartId id) { return *root_.findChild(id); }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::unique_ptr<TreeSource> source_;
  int reports_ = 0;
  StoredValues values_;
};

class StoredValuesMemory : public testing::Test {
 protected:
  /// The texts in the state file, whose parts have different ids.
  [[nodiscard]] std::map<ModelSrv::ModelPartId, std::string> writtenTexts() const {
    std::map<ModelSrv::ModelPartId, std::string> texts;
    const auto parsed = parseState(directory_.read("state.json"));
    if (const auto* error = std::get_if<Error>(&parsed)) {
      ADD_FAILURE() << error->text << " in " << directory_.read("state.json");
      return texts;
    }
    for (const StoredPart& part : std::get<std::vector<StoredPart>>(parsed)) {
      std::string text;
      for (const StoredPart::Element& element : part.elements) {
        text += (text.empty() ? "" : "\n") + element.text;
      }
      EXPECT_TRUE(texts.emplace(part.levels.back().id, text).second) << "twice";
    }
    return texts;
  }
  void removeState() const { std::filesystem::remove(directory_.file("state.json")); }

  test_support::ScratchDirectory directory_;
};

TEST_F(StoredValuesMemory, ThatIsMissingForAWriteGivesNoWrongFile) {
  forEachAllocation([this](int failing) {
    removeState();
    TreeWithState tree(directory_);
    tree.setAll();
    const bool allocationFailed = runWithFailure(failing, [&] {
      tree.notifyAll();
      tree.values().tick(StoredValues::Clock::now());
    });
    EXPECT_EQ(tree.reports(), allocationFailed ? 1 : 0) << "allocation " << failing;
    if (std::filesystem::exists(directory_.file("state.json"))) {
      for (const auto& [id, text] : writtenTexts()) {
        EXPECT_EQ(text, storedTexts.at(id)) << "allocation " << failing;
      }
    }
    tree.notifyAll();
    tree.values().finish();
    EXPECT_EQ(writtenTexts(), storedTexts) << "allocation " << failing;
    return allocationFailed;
  });
}

TEST_F(StoredValuesMemory, ThatIsMissingInAReloadLosesNoStoredValue) {
  forEachAllocation([this](int failing) {
    removeState();
    TreeWithState tree(directory_);
    tree.setAll();
    tree.notifyAll();
    static_cast<void>(directory_.write("tree.json", treeText(R"(, "access": "protected")")));
    std::optional<Error> error;
    const bool allocationFailed =
        runWithFailure(failing, [&] { error = tree.source().reload(&tree.values()); });
    EXPECT_TRUE(allocationFailed || !error) << error->text;
    if (tree.reports() != 0) {
      EXPECT_THAT(error, testing::Optional(testing::Field(&Error::text, testing::Not(""))))
          << "the tree lacks a part, allocation " << failing;
      return true;
    }
    tree.values().tick(StoredValues::Clock::now());
    EXPECT_EQ(writtenTexts(), storedTexts) << "allocation " << failing;
    EXPECT_FALSE(tree.source().reload(&tree.values()));
    EXPECT_EQ(tree.texts(), storedTexts) << "allocation " << failing;
    tree.values().finish();
    EXPECT_EQ(writtenTexts(), storedTexts) << "allocation " << failing;
    EXPECT_EQ(tree.reports(), 0) << "allocation " << failing;
    return allocationFailed;
  });
}

}  // namespace
}  // namespace modelsrvd
