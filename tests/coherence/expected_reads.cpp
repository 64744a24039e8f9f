#include "tests/coherence/expected_reads.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace coherence {

namespace {

using namespace ModelSrv;

void expectNoPart(Client& client, const Chain& chain) {
  std::vector<unsigned short> ids;
  EXPECT_EQ(client.childIds(chain, ids), ModelRes_NoSuchPart);
  std::string text;
  EXPECT_EQ(client.save(chain, text), ModelRes_NoSuchPart);
}

void expectChildIds(Client& client, const TreeModel& tree, const Chain& chain) {
  std::vector<unsigned short> ids;
  ASSERT_EQ(client.childIds(chain, ids), ModelRes_Success);
  EXPECT_EQ(ids, tree.children(chain));
}

void expectChildNames(Client& client, const TreeModel& tree, const Chain& chain) {
  std::vector<std::string> names;
  ASSERT_EQ(client.childNames(chain, names), ModelRes_Success);
  std::vector<std::string> expected;
  for (const ModelPartId id : tree.children(chain)) {
    Chain child = chain;
    child.push_back(id);
    expected.push_back(tree.at(child).name);
  }
  EXPECT_EQ(names, expected);
}

void expectElementSum(Client& client, const Chain& chain, const PartModel& part) {
  unsigned short sum = 99;
  ASSERT_EQ(client.elementSum(chain, sum), ModelRes_Success);
  EXPECT_EQ(sum, part.isArray ? part.values.size() : 0);
}

void expectElementNames(Client& client, const Chain& chain, const PartModel& part) {
  std::vector<std::string> names;
  ASSERT_EQ(client.elementNames(chain, names), ModelRes_Success);
  EXPECT_EQ(names, part.elementNames);
}

void expectValue(Client& client, const Chain& chain, const PartModel& part) {
  std::string text;
  const ModelRes result = client.save(chain, text);
  if (part.isNode) {
    EXPECT_EQ(result, ModelRes_NoValue);
    return;
  }
  EXPECT_EQ(result, ModelRes_Success);
  EXPECT_EQ(text, part.text());
}

void expectElement(Client& client, const Chain& chain, const PartModel& part,
                   ModelPartIndex index) {
  std::string text;
  const ModelRes result = client.save(chain, text, index);
  if (part.isArray && index < part.values.size()) {
    EXPECT_EQ(result, ModelRes_Success);
    EXPECT_EQ(text, part.values[index]);
  } else {
    EXPECT_EQ(result, part.isNode ? ModelRes_NoValue : ModelRes_NoSuchIndex);
  }
}

}  // namespace

void expectRead(Client& client, const TreeModel& tree, const Chain& chain, Read read,
                ModelPartIndex index) {
  SCOPED_TRACE(textOf(chain) + " read " + std::to_string(static_cast<int>(read)));
  if (!tree.contains(chain)) {
    expectNoPart(client, chain);
    return;
  }
  const PartModel& part = tree.at(chain);
  switch (read) {
    case Read::childIds:
      return expectChildIds(client, tree, chain);
    case Read::childNames:
      return expectChildNames(client, tree, chain);
    case Read::elementSum:
      return expectElementSum(client, chain, part);
    case Read::elementNames:
      return expectElementNames(client, chain, part);
    case Read::value:
      return expectValue(client, chain, part);
    case Read::element:
      return expectElement(client, chain, part, index);
  }
}

}  // namespace coherence
