// The words attributes go by in jxadmin: table headers, JSON keys and
// --WORD options, all read from the generated attribute registry.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace jxadmin {

struct AttributeWord {
  int32_t selector;
  const char *header;  // JXIA_CURRENT_Q_DEPTH
  const char *word;    // current-depth
  const char *object;  // queue, qmgr, connection, event
  int32_t length;      // 0 for an integer
  int32_t min, max;
  bool settable;
};

// The row of a selector for an object, else the first row of the selector
// (events carry queue, queue-manager and connection attributes alike).
const AttributeWord *bySelector(int32_t selector, std::string_view object);
// The row an option word names for an object.
const AttributeWord *byWord(std::string_view word, std::string_view object);
// The word of a selector; the number itself for a selector outside the table.
std::string wordOf(int32_t selector, std::string_view object);

}  // namespace jxadmin
