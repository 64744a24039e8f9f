#include "model/model_data_tree.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Counts its deletions.
class CountedTree : public CdirTree {
 public:
  explicit CountedTree(int& deleted) : deleted_(deleted) {}
  ~CountedTree() override { ++deleted_; }

 private:
  int& deleted_;
};

TEST(CdirTree, ClearsItsTextsItsPairOfWordsAndItsChildren) {
  int deleted = 0;
  CdirTree tree("name");
  tree.setSecondText("second");
  tree.setWord(7);
  tree.setWords({8, 9});
  tree.addChild(std::make_unique<CountedTree>(deleted));
  tree.clear();
  EXPECT_EQ(tree.name(), "");
  EXPECT_EQ(tree.secondText(), "");
  EXPECT_EQ(tree.word(), 7U);
  EXPECT_THAT(tree.words(), ElementsAre(0U, 0U));
  EXPECT_THAT(tree.children(), IsEmpty());
  EXPECT_EQ(deleted, 1);
}

TEST(ModelDataTree, ClearsItsLocationItsTextAndItsObjects) {
  int deleted = 0;
  ModelDataTree tree("root");
  tree.setText("text");
  tree.setLocation({{1}, {"a"}});
  tree.setDataWords({1, 2});
  tree.addObject(std::make_unique<CountedTree>(deleted));
  tree.clear();
  EXPECT_EQ(tree.name(), "root");
  EXPECT_EQ(tree.text(), "");
  EXPECT_EQ(tree.location(), NamedChain());
  EXPECT_THAT(tree.objects(), IsEmpty());
  EXPECT_THAT(tree.dataWords(), ElementsAre(1U, 2U));
  EXPECT_EQ(deleted, 1);
}

TEST(ModelDataTree, OwnsItsObjectsAndChildren) {
  int deleted = 0;
  {
    ModelDataTree tree("root");
    tree.addObject(std::make_unique<CountedTree>(deleted));
    tree.addChild(std::make_unique<CountedTree>(deleted));
  }
  EXPECT_EQ(deleted, 2);
}

}  // namespace
}  // namespace treescope
