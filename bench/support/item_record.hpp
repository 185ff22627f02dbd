// The baselines' element: the shape of a bag's item record, six 32-bit
// fields, so that a plain array moves the same bytes a bag does.
#pragma once

#include <stdint.h>

struct Record {
  char id[4];
  int32_t selector, type, value, length, ccsid;
};
static_assert(sizeof(Record) == 24);
