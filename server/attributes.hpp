// The attribute table: every attribute of a queue, the queue manager and a
// connection, one row each, generated from tables/attributes.txt. Inquire,
// set, the administration calls, the store and jxqm all read it; adding an
// attribute is adding a row (and, for a status attribute, its value in
// QueueManager::statusValue).
#pragma once

#include <jx/jxqm.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace jxqm {

enum class Object : uint8_t { Queue, QMgr, Connection, Event };
// Settable: by JXSET and the change commands. Fixed: given when the object
// is made. Status: worked out by the queue manager, never stored.
enum class Access : uint8_t { Settable, Fixed, Status };

struct Attribute {
  int32_t selector;
  const char *name;  // header name, JXIA_MAX_Q_DEPTH
  const char *word;  // max-depth
  Object object;
  int32_t length;  // 0: an integer; else the characters of a string
  int32_t min, max, fallback;
  Access access;
  const char *column;  // store column (queue) or setting key (queue manager); null: not stored

  constexpr bool integer() const { return length == 0; }
  constexpr bool stored() const { return column != nullptr; }
};

inline constexpr Attribute kAttributes[] = {
#define JX_ATTRIBUTE_ROW(sel, name, word, object, length, min, max, fallback, access, column) \
  {sel, name, word, Object::object, length, min, max, fallback, Access::access, column},
#include "attribute_rows.inc"
#undef JX_ATTRIBUTE_ROW
};
inline constexpr size_t kAttributeCount = sizeof kAttributes / sizeof kAttributes[0];

// Where each stored attribute keeps its value among those of its object and
// kind (integers, strings); -1 for the others.
constexpr int slotOf(size_t row) {
  const Attribute &a = kAttributes[row];
  if (!a.stored()) return -1;
  int slot = 0;
  for (size_t i = 0; i < row; ++i)
    if (kAttributes[i].object == a.object && kAttributes[i].stored() &&
        kAttributes[i].integer() == a.integer())
      ++slot;
  return slot;
}
inline constexpr auto kSlots = [] {
  std::array<int, kAttributeCount> slots{};
  for (size_t row = 0; row < kAttributeCount; ++row) slots[row] = slotOf(row);
  return slots;
}();
constexpr size_t rowOf(Object object, int32_t selector) {
  for (size_t i = 0; i < kAttributeCount; ++i)
    if (kAttributes[i].object == object && kAttributes[i].selector == selector) return i;
  return kAttributeCount;
}
constexpr size_t storedCount(Object object, bool integer) {
  size_t n = 0;
  for (const Attribute &a : kAttributes)
    if (a.object == object && a.stored() && a.integer() == integer) ++n;
  return n;
}

// The row of an object's attribute by selector or word; null when none.
const Attribute *findAttribute(Object object, int32_t selector);
const Attribute *findAttribute(Object object, std::string_view word);
// The rows of one object, in table order.
std::vector<const Attribute *> attributesOf(Object object);

// The stored attributes of one object, each at its slot, starting at their
// defaults. get<JXIA_MAX_Q_DEPTH>() finds its slot when compiled.
template <Object O>
class Settings {
 public:
  Settings() {
    for (size_t row = 0; row < kAttributeCount; ++row)
      if (kAttributes[row].object == O && kAttributes[row].stored() && kAttributes[row].integer())
        ints_[static_cast<size_t>(slotOf(row))] = kAttributes[row].fallback;
  }
  template <int32_t S>
  int32_t get() const {
    return ints_[intSlot<S>()];
  }
  template <int32_t S>
  void set(int32_t v) {
    ints_[intSlot<S>()] = v;
  }
  template <int32_t S>
  const std::string &text() const {
    constexpr size_t row = rowOf(O, S);
    static_assert(row < kAttributeCount && !kAttributes[row].integer() && slotOf(row) >= 0);
    return texts_[static_cast<size_t>(slotOf(row))];
  }
  // By row, for the code that walks the table.
  int32_t number(const Attribute &a) const { return ints_[slot(a)]; }
  const std::string &text(const Attribute &a) const { return texts_[slot(a)]; }
  void setNumber(const Attribute &a, int32_t v) { ints_[slot(a)] = v; }
  void setText(const Attribute &a, std::string v) { texts_[slot(a)] = std::move(v); }

 private:
  template <int32_t S>
  static constexpr size_t intSlot() {
    constexpr size_t row = rowOf(O, S);
    static_assert(row < kAttributeCount && kAttributes[row].integer() && slotOf(row) >= 0,
                  "not a stored integer attribute of this object");
    return static_cast<size_t>(slotOf(row));
  }
  static size_t slot(const Attribute &a) {
    return static_cast<size_t>(kSlots[static_cast<size_t>(&a - kAttributes)]);
  }

  std::array<int32_t, storedCount(O, true)> ints_{};
  std::array<std::string, storedCount(O, false)> texts_{};
};
using QueueSettings = Settings<Object::Queue>;
using QMgrSettings = Settings<Object::QMgr>;

// An attribute's value as the administration calls pass it: `number` for
// an integer selector, `text` for a string one.
struct AttrValue {
  int32_t selector = 0;
  int32_t number = 0;
  std::string text;
};
using AttrList = std::vector<AttrValue>;

// Why a value may not be given to an attribute.
enum class Refusal : uint8_t { None, Unknown, NotSettable, OutOfRange };
// Whether `v` may be given to the attribute by a change (`creating`: also
// to a fixed attribute, when the object is made).
Refusal checkValue(const Attribute *a, const AttrValue &v, bool creating);
// Applies a list to settings, all or nothing; on a refusal, `failed` is the
// selector refused and the settings are as they were.
template <Object O>
Refusal applyValues(Settings<O> &settings, const AttrList &values, bool creating, int32_t &failed);

// "yyyy-mm-dd" and "hh.mm.ss", local time, of a time in milliseconds;
// blanks for 0 (never).
std::string dateText(int64_t ms);
std::string timeText(int64_t ms);

}  // namespace jxqm
