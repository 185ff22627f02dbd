// The verbs of jxadmin, one row each: what words they take and what they run.
#pragma once

#include <string>
#include <vector>

#include "command_line.hpp"

namespace jxadmin {

// Runs the verb the command line names; returns the exit status.
int runVerb(const CommandLine &line);

// Builds the parameters of --WORD VALUE options for an object's settable
// attributes; false with a message for a word or value that does not fit.
bool attributeParams(const CommandLine &line, const char *object, std::vector<Item> &params,
                     std::string &error);

}  // namespace jxadmin
