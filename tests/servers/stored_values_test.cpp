#include "servers/stored_values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "modelsrv/part_description.h"
#include "modelsrv/value_parts.h"
#include "tests/support/scratch_directory.h"

namespace modelsrvd {
namespace {

using ModelSrv::ModelPart;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes_Success;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A tree of one node, as a server has it that has just started.
struct DriveTree {
  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root{&manager};
  ModelSrv::ModelNode drive;

  DriveTree(ModelSrv::ModelPartId id, std::initializer_list<ModelPart*> parts)
      : drive(id, "drive") {
    add(parts);
    EXPECT_EQ(root.add(&drive), ModelRes_Success);
  }
  void add(std::initializer_list<ModelPart*> parts) {
    for (ModelPart* const part : parts) {
      EXPECT_EQ(drive.add(part), ModelRes_Success);
    }
  }
};

struct StoredTree : DriveTree {
  ModelSrv::ValuePart<std::int32_t> speed{1, "speed", 42};
  ModelSrv::ValuePart<std::string> label{2, "label", "two words"};
  ModelSrv::ArrayPart<double> gains{3, "gains", {1.5, 0.25}, {"p", "i"}};
  ModelSrv::ArrayPart<std::string> notes{4, "notes", {"", ""}};
  ModelSrv::ValuePart<float> offset{5, "offset", 0, ModelSrv::ModelPartStatus_Protected};

  StoredTree() : DriveTree(1, {}) { add({&speed, &label, &gains, &notes, &offset}); }

  std::string text(ModelPart& part) {
    std::ostringstream text;
    EXPECT_EQ(part.save(text, ModelPartIndex_All), ModelRes_Success);
    return text.str();
  }
};

class StoredValuesTest : public testing::Test {
 protected:
  using Clock = StoredValues::Clock;

  StoredValues valuesOf(StoredTree& tree) { return valuesOf(tree.root); }
  StoredValues valuesOf(ModelSrv::ModelRoot& root) {
    return {file_,
            root,
            {[this](const Error& error) { reported_.push_back(error.text); },
             [this](const ModelPart& part) { return fed_.count(&part) == 0; }}};
  }
  /// A client's store.
  static void store(StoredValues& values, ModelPart& part, const std::string& text,
                    unsigned short index = ModelPartIndex_All) {
    std::string reason;
    ASSERT_EQ(part.storeAsClient(text, true, index, reason), ModelRes_Success) << reason;
    values.stored(part);
  }
  /// Whether the file has `text`.
  [[nodiscard]] bool fileHas(const std::string& text) const {
    return std::filesystem::exists(file_) &&
           directory_.read("state.json").find(text) != std::string::npos;
  }
  [[nodiscard]] std::string fileError(const std::string& rest) const { return file_ + ": " + rest; }

  test_support::ScratchDirectory directory_;
  std::string file_ = directory_.file("state.json");
  std::vector<std::string> reported_;
  std::set<const ModelPart*> fed_;
};

TEST_F(StoredValuesTest, AreTheSameInTheNextProcess) {
  std::string bytes("5\nany\xff bytes");
  bytes += '\0';
  bytes += '\0';
  {
    StoredTree tree;
    StoredValues values = valuesOf(tree);
    ASSERT_FALSE(values.restore());
    store(values, tree.notes, std::to_string(bytes.size()) + '\n' + bytes, 1);
    store(values, tree.speed, "-7");
    store(values, tree.label, "4\n3\nab");
    store(values, tree.gains, "1e-300\n-0");
    store(values, tree.offset, "0.1");
    values.finish();
  }
  const std::string first = directory_.read("state.json");
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  ASSERT_FALSE(values.restore());
  EXPECT_EQ(tree.speed.value(), -7);
  EXPECT_EQ(tree.label.value(), "3\nab");
  EXPECT_EQ(tree.text(tree.gains), "1e-300\n-0");
  EXPECT_EQ(tree.notes.values(), (std::vector<std::string>{"", bytes}));
  EXPECT_EQ(tree.offset.value(), 0.1F);
  EXPECT_THAT(reported_, IsEmpty());
  store(values, tree.speed, "8");
  store(values, tree.speed, "-7");
  std::filesystem::remove(file_);
  values.finish();
  EXPECT_FALSE(std::filesystem::exists(file_)) << "nothing has changed";
  store(values, tree.speed, "8");
  values.finish();
  store(values, tree.speed, "-7");
  values.finish();
  EXPECT_EQ(directory_.read("state.json"), first);
}

TEST_F(StoredValuesTest, AreOnlyThoseThatClientsHaveStored) {
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  ASSERT_FALSE(values.restore());
  ASSERT_EQ(tree.label.setValue("by the server"), ModelRes_Success);
  store(values, tree.speed, "42");
  values.finish();
  EXPECT_EQ(directory_.read("state.json"),
            std::string(stateBegin) +
                R"({"path":["drive","speed"],"ids":[1,1],"type":"int32","value":42})" +
                std::string(stateEnd));
}

TEST_F(StoredValuesTest, AreWrittenAtOnceAndThenOnceASecondWhileTheyChange) {
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  ASSERT_FALSE(values.restore());
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(values.nextDeadline());
  values.tick(start);
  EXPECT_FALSE(std::filesystem::exists(file_));
  store(values, tree.speed, "1");
  ASSERT_TRUE(values.nextDeadline());
  EXPECT_LE(*values.nextDeadline(), start);
  values.tick(start);
  EXPECT_TRUE(fileHas("\"value\":1}"));
  EXPECT_FALSE(values.nextDeadline()) << "nothing changes";
  store(values, tree.speed, "2");
  ASSERT_TRUE(values.nextDeadline());
  const Clock::time_point next = *values.nextDeadline();
  EXPECT_GE(next, start + StoredValues::interval);
  values.tick(next - milliseconds(1));
  EXPECT_TRUE(fileHas("\"value\":1}"));
  values.tick(next);
  EXPECT_TRUE(fileHas("\"value\":2}"));
  std::filesystem::remove(file_);
  store(values, tree.speed, "2");
  values.tick(next + std::chrono::hours(1));
  EXPECT_FALSE(std::filesystem::exists(file_)) << "the value is the same";
}

TEST_F(StoredValuesTest, AreInAFileThatOnlyItsUserCanRead) {
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  store(values, tree.speed, "1");
  const mode_t before = ::umask(0777);
  values.finish();
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_FALSE(std::filesystem::exists(file_ + ".new"));
}

TEST_F(StoredValuesTest, AreReportedAndForgottenIfTheyDoNotFit) {
  {
    StoredTree tree;
    StoredValues values = valuesOf(tree);
    for (ModelPart* part :
         std::initializer_list<ModelPart*>{&tree.speed, &tree.label, &tree.offset}) {
      store(values, *part, "7");
    }
    store(values, tree.gains, "7\n8");
    store(values, tree.notes, "a\nb");
    values.finish();
  }
  ModelSrv::ValuePart<std::int32_t> speed(1, "speed", 42);
  ModelSrv::ValuePart<std::int32_t> label(2, "label", 42);
  ModelSrv::ArrayPart<double> gains(3, "gains", {1, 2}, {"p", "d"});
  ModelSrv::ArrayPart<std::string> notes(4, "notes", {"", "", ""});
  DriveTree tree(1, {&speed, &label, &gains, &notes});
  ASSERT_EQ(speed.setAttributes({"", "10", "50", "", {}}), ModelRes_Success);
  StoredValues values = valuesOf(tree.root);
  ASSERT_FALSE(values.restore());
  EXPECT_THAT(reported_, ElementsAre(fileError("/drive/speed: speed 7 is not within 10 to 50"),
                                     fileError("/drive/label: expected int32, got text"),
                                     fileError("/drive/offset: no such part"),
                                     fileError("/drive/gains: expected other names of elements"),
                                     fileError("/drive/notes: expected 3 elements, got 2")));
  EXPECT_EQ(speed.value(), 42);
  EXPECT_TRUE(fileHas("offset")) << "until the next write";
  store(values, label, "8");
  values.finish();
  EXPECT_FALSE(fileHas("offset"));
}

TEST_F(StoredValuesTest, FollowANameThatIsUniqueIfItsIdHasChanged) {
  {
    StoredTree tree;
    StoredValues values = valuesOf(tree);
    store(values, tree.speed, "7");
    values.finish();
  }
  ModelSrv::ValuePart<std::int32_t> other(1, "other", 1);
  ModelSrv::ValuePart<std::int32_t> speed(2, "speed", 42);
  DriveTree tree(9, {&other, &speed});
  ASSERT_FALSE(valuesOf(tree.root).restore());
  EXPECT_EQ(speed.value(), 7);
  EXPECT_EQ(other.value(), 1);
  EXPECT_THAT(reported_, IsEmpty());
  ModelSrv::ValuePart<std::int32_t> second(3, "speed", 43);
  tree.add({&second});
  ASSERT_FALSE(valuesOf(tree.root).restore());
  EXPECT_THAT(reported_, ElementsAre(fileError("/drive/speed: no such part")));
}

TEST_F(StoredValuesTest, AreNotThoseOfAFileOrASimulation) {
  {
    StoredTree tree;
    StoredValues values = valuesOf(tree);
    store(values, tree.label, "kept");
    fed_.insert(&tree.speed);
    store(values, tree.speed, "7");
    values.finish();
    EXPECT_FALSE(fileHas("speed"));
  }
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  fed_.insert(&tree.label);
  ASSERT_FALSE(values.restore());
  EXPECT_EQ(tree.label.value(), "two words");
  EXPECT_THAT(reported_, ElementsAre(fileError("/drive/label: the tree does not hold the value")));
}

TEST_F(StoredValuesTest, SetADamagedFileAside) {
  for (const char* const damaged : {"", "{\"state\": 1,", "\xff"}) {
    static_cast<void>(directory_.write("state.json", damaged));
    StoredTree tree;
    StoredValues values = valuesOf(tree);
    ASSERT_FALSE(values.restore());
    ASSERT_EQ(reported_.size(), 1U);
    EXPECT_THAT(reported_[0],
                HasSubstr(fileError("damaged, renamed to " + file_ + ".damaged: no JSON at byte")));
    EXPECT_EQ(directory_.read("state.json.damaged"), damaged);
    EXPECT_FALSE(std::filesystem::exists(file_));
    store(values, tree.speed, "7");
    values.finish();
    EXPECT_TRUE(fileHas("speed"));
    reported_.clear();
  }
}

TEST_F(StoredValuesTest, DoNotReplaceADamagedFileThatCannotBeSetAside) {
  static_cast<void>(directory_.write("state.json", "damaged"));
  std::filesystem::create_directory(file_ + ".damaged");
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  ASSERT_FALSE(values.restore());
  EXPECT_EQ(reported_.size(), 2U);
  store(values, tree.speed, "7");
  values.finish();
  EXPECT_EQ(reported_.size(), 3U);
  EXPECT_EQ(directory_.read("state.json"), "damaged");
  std::filesystem::remove(file_ + ".damaged");
  values.finish();
  EXPECT_TRUE(fileHas("speed"));
  EXPECT_EQ(directory_.read("state.json.damaged"), "damaged");
}

TEST_F(StoredValuesTest, AreTriedAgainAtTheNextStoreAfterAnErrorThatIsReportedOnce) {
  file_ = directory_.file("missing/state.json");
  StoredTree tree;
  StoredValues values = valuesOf(tree);
  ASSERT_FALSE(values.restore());
  const std::string line =
      "stored values are not saved: " + file_ + ".new: No such file or directory";
  Clock::time_point now = Clock::now();
  for (const char* const text : {"1", "2", "2"}) {
    store(values, tree.speed, text);
    now += std::chrono::minutes(1);
    values.tick(now);
    EXPECT_FALSE(values.nextDeadline()) << "no polling";
    EXPECT_THAT(reported_, ElementsAre(line));
  }
  std::filesystem::create_directory(directory_.file("missing"));
  store(values, tree.speed, "2");
  values.tick(now + std::chrono::minutes(1));
  EXPECT_THAT(directory_.read("missing/state.json"), HasSubstr("\"value\":2}"));
  std::filesystem::remove_all(directory_.file("missing"));
  store(values, tree.speed, "3");
  values.tick(now + std::chrono::minutes(2));
  EXPECT_THAT(reported_, ElementsAre(line, line)) << "a new error";
  values.finish();
  EXPECT_THAT(reported_, ElementsAre(line, line, line)) << "the last chance";
}

TEST_F(StoredValuesTest, RefuseWhatIsNoFileOfTheirUser) {
  StoredTree tree;
  const auto refusal = [&] {
    StoredValues values = valuesOf(tree);
    const auto error = values.restore();
    std::filesystem::remove(file_);
    return error ? error->text : "";
  };
  const std::string expected = "expected a regular file, got ";
  std::filesystem::create_directory(file_);
  EXPECT_EQ(refusal(), fileError(expected + "a directory"));
  std::filesystem::create_symlink(directory_.write("other", "x"), file_);
  EXPECT_EQ(refusal(), fileError(expected + "a symbolic link"));
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(refusal(), fileError(expected + "a named pipe"));
  if (::geteuid() == 0) {
    static_cast<void>(directory_.write("state.json", "x"));
    ASSERT_EQ(::chown(file_.c_str(), 12345, 12345), 0);
    EXPECT_EQ(refusal(), fileError("belongs to another user"));
  }
}

}  // namespace
}  // namespace modelsrvd
