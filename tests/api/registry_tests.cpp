// The reason and attribute registries as a program sees them through the
// installed headers: lookups, and the rules every row must keep.
#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <jx/jxqm.h>

#include <set>
#include <string>
#include <utility>

namespace {

struct Reason {
  int32_t number;
  const char *name, *words;
};
#define JX_TEST_REASON(number, name, words) {number, name, words},
constexpr Reason kReasons[] = {JX_REASON_MAP(JX_TEST_REASON)};

struct Attribute {
  int32_t selector;
  const char *name, *word, *object;
  int32_t length, min, max, fallback;
  bool settable;
};
#define JX_TEST_ATTRIBUTE(sel, name, word, object, length, min, max, fallback, settable) \
  {sel, name, word, object, length, min, max, fallback, settable != 0},
constexpr Attribute kAttributes[] = {JXQM_ATTRIBUTE_MAP(JX_TEST_ATTRIBUTE)};

TEST(Registry, ReasonsAreNamedOnceWithWordsByNumber) {
  int32_t last = -1;
  for (const Reason &r : kReasons) {
    EXPECT_GT(r.number, last) << r.name << ": out of order or named twice";
    last = r.number;
    EXPECT_STRNE(r.words, "") << r.name;
    EXPECT_STREQ(jxReasonWords(r.number), r.words);
    EXPECT_STREQ(jxReasonName(r.number), r.name);
  }
  EXPECT_STREQ(jxReasonWords(JXRC_NO_MSG_AVAILABLE), "no message available");
  EXPECT_STREQ(jxReasonName(JXRCCF_PARM_VALUE), "JXRCCF_PARM_VALUE");
  EXPECT_EQ(jxReasonWords(1), nullptr);
  EXPECT_EQ(jxReasonName(4999), nullptr);
}

TEST(Registry, AttributesFitTheirSelectorRangesAndWords) {
  std::set<std::pair<std::string, std::string>> words;
  std::set<std::pair<std::string, int32_t>> selectors;
  for (const Attribute &a : kAttributes) {
    SCOPED_TRACE(a.name);
    if (a.length == 0) {
      EXPECT_TRUE(a.selector >= JXIA_FIRST && a.selector <= JXIA_LAST);
    } else {
      EXPECT_TRUE(a.selector >= JXCA_FIRST && a.selector <= JXCA_LAST);
    }
    EXPECT_TRUE(words.insert({a.object, a.word}).second) << "word used twice";
    EXPECT_TRUE(selectors.insert({a.object, a.selector}).second) << "selector used twice";
    if (a.settable && a.length == 0) {
      EXPECT_LE(a.min, a.fallback);
      EXPECT_LE(a.fallback, a.max);
    }
  }
  EXPECT_EQ(JXIA_MAX_Q_DEPTH, 15) << "numbers that programs already use stay";
  EXPECT_EQ(JXCA_Q_MGR_DESC, 2014);
}

}  // namespace
