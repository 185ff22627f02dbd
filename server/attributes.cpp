#include "attributes.hpp"

#include <ctime>

namespace jxqm {

const Attribute *findAttribute(Object object, int32_t selector) {
  size_t row = rowOf(object, selector);
  return row < kAttributeCount ? &kAttributes[row] : nullptr;
}

const Attribute *findAttribute(Object object, std::string_view word) {
  for (const Attribute &a : kAttributes)
    if (a.object == object && word == a.word) return &a;
  return nullptr;
}

std::vector<const Attribute *> attributesOf(Object object) {
  std::vector<const Attribute *> rows;
  for (const Attribute &a : kAttributes)
    if (a.object == object) rows.push_back(&a);
  return rows;
}

Refusal checkValue(const Attribute *a, const AttrValue &v, bool creating) {
  if (!a) return Refusal::Unknown;
  if (a->access == Access::Status || (a->access == Access::Fixed && !creating))
    return Refusal::NotSettable;
  if (a->integer() ? v.number < a->min || v.number > a->max
                   : v.text.size() > static_cast<size_t>(a->length))
    return Refusal::OutOfRange;
  return Refusal::None;
}

template <Object O>
Refusal applyValues(Settings<O> &settings, const AttrList &values, bool creating, int32_t &failed) {
  for (const AttrValue &v : values) {
    Refusal r = checkValue(findAttribute(O, v.selector), v, creating);
    if (r != Refusal::None) {
      failed = v.selector;
      return r;
    }
  }
  for (const AttrValue &v : values) {
    const Attribute *a = findAttribute(O, v.selector);
    if (a->integer())
      settings.setNumber(*a, v.number);
    else
      settings.setText(*a, v.text);
  }
  return Refusal::None;
}
template Refusal applyValues(QueueSettings &, const AttrList &, bool, int32_t &);
template Refusal applyValues(QMgrSettings &, const AttrList &, bool, int32_t &);

namespace {
std::string localStamp(int64_t ms, const char *format, size_t length) {
  if (ms <= 0) return std::string(length, ' ');
  time_t t = static_cast<time_t>(ms / 1000);
  struct tm tmv;
  localtime_r(&t, &tmv);
  char buf[32];
  strftime(buf, sizeof buf, format, &tmv);
  return std::string(buf, length);
}
}  // namespace

std::string dateText(int64_t ms) {
  return localStamp(ms, "%Y-%m-%d", JX_DATE_LENGTH);
}

std::string timeText(int64_t ms) {
  return localStamp(ms, "%H.%M.%S", JX_TIME_LENGTH);
}

}  // namespace jxqm
