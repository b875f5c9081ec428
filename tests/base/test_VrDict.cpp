#include "base/VrDict.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

// An independent model of the dictionary's order: buckets as vectors with the chain head at the
// front, grown and relinked exactly as the rules say.
class DictOrderModel {
 public:
  void insert(const std::string& key) {
    ++count;
    if (count * 2 >= buckets.size()) grow();
    auto& chain = buckets[hash(key) & (buckets.size() - 1)];
    chain.insert(chain.begin(), key);
  }
  std::vector<std::string> order() const {
    std::vector<std::string> out;
    for (const auto& chain : buckets) out.insert(out.end(), chain.begin(), chain.end());
    return out;
  }

 private:
  static uint32_t hash(const std::string& key) {
    uint32_t h = 0;
    for (char c : key) h = h * 33u + static_cast<uint32_t>(static_cast<signed char>(c));
    return h;
  }
  void grow() {
    std::vector<std::vector<std::string>> fresh(buckets.empty() ? 16 : buckets.size() * 2);
    for (const auto& chain : buckets)
      for (const auto& key : chain) {
        auto& target = fresh[hash(key) & (fresh.size() - 1)];
        target.insert(target.begin(), key);
      }
    buckets.swap(fresh);
  }
  size_t count = 0;
  std::vector<std::vector<std::string>> buckets;
};

std::vector<std::string> dictOrder(const VrDict<int>& dict) {
  std::vector<std::string> out;
  for (auto it = dict.begin(); it != dict.end(); ++it) out.push_back(it.key());
  return out;
}

std::string keyFor(int i) {
  // Mixed lengths and a byte above 127, which hashes as a negative signed char.
  std::string key = "attr" + std::to_string(i * 7919 % 1000);
  if (i % 5 == 0) key += "\xe9";
  if (i % 3 == 0) key = "x" + key;
  return key + std::to_string(i);
}

}  // namespace

TEST(VrDict, IterationOrderMatchesModelAcrossGrowth) {
  for (int n : {0, 7, 8, 100}) {
    VrDict<int> dict;
    DictOrderModel model;
    for (int i = 0; i < n; ++i) {
      dict.insert(keyFor(i), i);
      model.insert(keyFor(i));
    }
    EXPECT_EQ(dict.size(), static_cast<uint32_t>(n));
    EXPECT_EQ(dictOrder(dict), model.order()) << "after " << n << " insertions";
    // A copy iterates in the same order.
    VrDict<int> copy(dict);
    EXPECT_EQ(dictOrder(copy), dictOrder(dict));
  }
}

TEST(VrDict, GrowthPointsAndHash) {
  VrDict<int> dict;
  EXPECT_EQ(dict.numBuckets(), 0u);
  dict["a"];
  EXPECT_EQ(dict.numBuckets(), 16u);
  for (int i = 0; i < 6; ++i) dict.insert("k" + std::to_string(i), i);
  EXPECT_EQ(dict.numBuckets(), 16u);  // 7 entries: 14 < 16
  dict.insert("k6", 6);               // 8 entries: 16 >= 16 grows
  EXPECT_EQ(dict.numBuckets(), 32u);
  // h = h * 33 + byte: "ab" = 97 * 33 + 98; a byte 0xFF counts as -1.
  EXPECT_EQ(VrDict<int>::hashKey("ab"), 97u * 33u + 98u);
  EXPECT_EQ(VrDict<int>::hashKey("\xff"), 0xFFFFFFFFu);
}

TEST(VrDict, FindInsertEraseAndDefaults) {
  VrDict<std::string> dict;
  EXPECT_EQ(dict.find("missing"), nullptr);
  EXPECT_FALSE(dict.erase("missing"));
  EXPECT_TRUE(dict.insert("one", "1").second);
  auto again = dict.insert("one", "other");
  EXPECT_FALSE(again.second);
  EXPECT_EQ(*again.first, "1");
  EXPECT_EQ(dict["two"], "");  // operator[] inserts a default value
  EXPECT_EQ(dict.size(), 2u);
  // Same hash bucket, different length or bytes, must not match.
  EXPECT_EQ(dict.find("on"), nullptr);
  EXPECT_EQ(dict.find("onE"), nullptr);
  EXPECT_TRUE(dict.erase("one"));
  EXPECT_FALSE(dict.contains("one"));
  EXPECT_TRUE(dict.contains("two"));
  dict.clear();
  EXPECT_TRUE(dict.empty());
  EXPECT_EQ(dict.begin(), dict.end());
}
