#include "gateway/viewer/page_cache.h"

#include <gtest/gtest.h>

#include "gateway/wire/limits.h"
#include "gateway/wire/shape.h"

namespace {

using modelgate::PageCache;

std::string pageOf(int number) {
  std::string page = std::to_string(number);
  page.resize(modelgate::maxPage, 'x');
  return page;
}

TEST(PageCache, HasWhatWasAdded) {
  PageCache cache;
  const std::string hash = modelgate::pageHash("page");
  EXPECT_EQ(cache.find(hash), nullptr);
  cache.add(hash, "page");
  cache.add(hash, "page");
  ASSERT_NE(cache.find(hash), nullptr);
  EXPECT_EQ(*cache.find(hash), "page");
  EXPECT_EQ(cache.bytes(), hash.size() + 4);
}

TEST(PageCache, DropsThePagesThatWereNotUsedForTheLongestTime) {
  PageCache cache;
  const std::string used = modelgate::pageHash(pageOf(0));
  const std::string unused = modelgate::pageHash(pageOf(1));
  for (int i = 0; i < 1'000; ++i) {
    const std::string page = pageOf(i);
    cache.add(modelgate::pageHash(page), page);
    EXPECT_NE(cache.find(used), nullptr);
    EXPECT_LE(cache.bytes(), PageCache::maxBytes);
  }
  EXPECT_EQ(*cache.find(used), pageOf(0));
  EXPECT_EQ(cache.find(unused), nullptr);
  EXPECT_GT(cache.bytes(), PageCache::maxBytes - 2 * modelgate::maxPage);
}

}  // namespace
