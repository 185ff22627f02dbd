// How jxadmin shows what came back: aligned tables, one JSON document, and
// one line for every failure.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "admin_session.hpp"

namespace jxadmin {

// What a verb shows: the object its attributes belong to and the columns of
// its table (every attribute of the replies when empty).
struct View {
  std::string title;   // "show queues", the JSON document's "command"
  std::string object;  // queue, qmgr, connection
  std::vector<int32_t> columns;
};

// A string as a JSON string literal.
std::string jsonString(std::string_view s);
// One item's value as JSON (several values of a selector as an array).
void jsonObject(std::ostream &out, const Record &record, std::string_view object);

// One table for all queue managers (with a queue-manager column when there
// are several).
void printTable(std::ostream &out, const View &view, const std::vector<Outcome> &outcomes);
void printJson(std::ostream &out, const View &view, const std::vector<Outcome> &outcomes);
// "jxadmin: QM1: no such object (reason 2085)" for every failure.
void printFailures(std::ostream &err, const std::vector<Outcome> &outcomes,
                   std::string_view object);
// A line naming a reason in words and number.
std::string reasonText(int32_t reason);

// 0 every command succeeded, 1 some failed, 2 all failed.
int exitStatus(const std::vector<Outcome> &outcomes);

}  // namespace jxadmin
