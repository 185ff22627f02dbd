// PCF messages of the command server and the events, read and written with
// the administration library's own codec (jxBufferToBag, jxBagToBuffer):
// the system has one codec, and the queue manager's messages are exactly
// what a client's bags read.
#pragma once

#include <jx/jxai.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "attributes.hpp"

namespace jxqm {

struct PcfHeader {
  int32_t type = JXPCF_TYPE_RESPONSE;
  int32_t command = 0;
  int32_t sequence = JXPCF_SEQUENCE_FIRST;
  int32_t control = JXPCF_CONTROL_LAST;
  int32_t compCode = JXCC_OK;
  int32_t reason = JXRC_NONE;
};

// One parameter structure of a message as it came: a single value or a
// list of values, of one selector. Strings lose their trailing blanks.
struct PcfParameter {
  int32_t selector = 0;
  bool integer = true;
  bool list = false;
  std::vector<int32_t> numbers;
  std::vector<std::string> texts;
};

class PcfCodec {
 public:
  PcfCodec();
  ~PcfCodec();
  PcfCodec(const PcfCodec &) = delete;
  PcfCodec &operator=(const PcfCodec &) = delete;

  // Reads a whole message; false when it is no well-formed PCF message.
  bool decode(std::string_view bytes, PcfHeader &header, std::vector<PcfParameter> &parameters);
  // Whether no list of the message counts more than `most` values. A list
  // of empty strings may count any number in a few bytes, and reading it
  // adds every one: a request is checked before it is read.
  static bool listsWithin(std::string_view bytes, int32_t most);
  // Writes a message: integer selectors (up to JXSEL_INT_LAST) as integers,
  // the others as strings; a selector given more than once becomes a list.
  // A reason (0 when written).
  int32_t encode(const PcfHeader &header, const AttrList &parameters, std::string &out);

 private:
  static bool ready(JXHBAG &bag, int32_t options, JXLONG &rc);

  JXHBAG reader_ = JXHB_NONE;
  JXHBAG writer_ = JXHB_NONE;
};

}  // namespace jxqm
