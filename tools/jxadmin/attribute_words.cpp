#include "attribute_words.hpp"

#include <jx/jxqm.h>

#include <iterator>

namespace jxadmin {
namespace {

#define JXADMIN_WORD_ROW(sel, header, word, object, length, min, max, def, settable) \
  {sel, header, word, object, length, min, max, settable != 0},
const AttributeWord kWords[] = {JXQM_ATTRIBUTE_MAP(JXADMIN_WORD_ROW)};
#undef JXADMIN_WORD_ROW

}  // namespace

const AttributeWord *bySelector(int32_t selector, std::string_view object) {
  const AttributeWord *any = nullptr;
  for (const AttributeWord &w : kWords) {
    if (w.selector != selector) continue;
    if (object == w.object) return &w;
    if (!any) any = &w;
  }
  return any;
}

const AttributeWord *byWord(std::string_view word, std::string_view object) {
  for (const AttributeWord &w : kWords)
    if (word == w.word && object == w.object) return &w;
  return nullptr;
}

std::string wordOf(int32_t selector, std::string_view object) {
  const AttributeWord *w = bySelector(selector, object);
  return w ? w->word : std::to_string(selector);
}

}  // namespace jxadmin
