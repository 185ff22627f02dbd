// jxpcf: prints a PCF message (a file, or standard input) as its header
// fields and its items, one per line. A malformed message gives a message
// with the reason and the offset where reading stopped, and exit status 1.
#include <errno.h>
#include <jx/jxai.h>
#include <stdio.h>
#include <string.h>

#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitMalformed = 1;
constexpr int kExitUsage = 2;
constexpr size_t kCountOffset = 32;  // parameter count in the header
constexpr size_t kLengthOffset = 4;  // structure length in every structure

using Bytes = std::vector<uint8_t>;

int32_t field(const Bytes &m, size_t offset) {
  int32_t v;
  memcpy(&v, m.data() + offset, sizeof v);
  return v;
}

// The words of a reason from the registry of every reason.
const char *reasonText(int32_t reason) {
  const char *words = jxReasonWords(reason);
  return words ? words : "unknown reason";
}

class Bag {
 public:
  Bag() {
    int32_t cc, rc;
    jxCreateBag(0, &handle, &cc, &rc);
  }
  ~Bag() {
    int32_t cc, rc;
    jxDeleteBag(&handle, &cc, &rc);
  }
  Bag(const Bag &) = delete;
  Bag &operator=(const Bag &) = delete;
  // Reads a message; the reason, 0 on success.
  int32_t read(const Bytes &m) {
    int32_t cc, rc;
    jxBufferToBag(JXHB_NONE, static_cast<int32_t>(m.size()), m.data(), handle, &cc, &rc);
    return rc;
  }
  JXHBAG handle = JXHB_NONE;
};

// Whether the first `count` structures of the message read cleanly.
bool prefixReads(Bytes m, int32_t count) {
  memcpy(m.data() + kCountOffset, &count, sizeof count);
  Bag bag;
  return bag.read(m) == JXRC_NONE;
}

// Where reading stopped: the header (0) or the first structure that fails.
// Reading is sequential, so the structures that read cleanly form a prefix.
size_t failingOffset(const Bytes &m) {
  if (m.size() < JXPCF_HEADER_LENGTH || field(m, kCountOffset) < 0 || !prefixReads(m, 0)) {
    return 0;
  }
  int32_t good = 0, bad = field(m, kCountOffset);
  while (bad - good > 1) {
    const int32_t mid = good + (bad - good) / 2;
    (prefixReads(m, mid) ? good : bad) = mid;
  }
  size_t offset = JXPCF_HEADER_LENGTH;
  for (int32_t k = 0; k < good; ++k)
    offset += static_cast<size_t>(field(m, offset + kLengthOffset));
  return offset;
}

std::string quoted(const char *bytes, int32_t length) {
  std::string out = "\"";
  for (int32_t i = 0; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(bytes[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
    } else {
      char hex[8];
      snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    }
  }
  return out + "\"";
}

int32_t integerItem(JXHBAG bag, int32_t selector, int32_t index) {
  int32_t value = 0, cc, rc;
  jxInquireInteger(bag, selector, index, &value, &cc, &rc);
  return value;
}

void print(const Bag &bag, const Bytes &m) {
  const JXHBAG h = bag.handle;
  printf("Type            %d\n", integerItem(h, JXSYS_MSG_TYPE, JXIDX_ONLY));
  printf("Command         %d\n", integerItem(h, JXSYS_COMMAND, JXIDX_ONLY));
  printf("MsgSeqNumber    %d\n", integerItem(h, JXSYS_SEQUENCE, JXIDX_ONLY));
  printf("Control         %d\n", integerItem(h, JXSYS_CONTROL, JXIDX_ONLY));
  printf("CompCode        %d\n", integerItem(h, JXSYS_COMP_CODE, JXIDX_ONLY));
  printf("Reason          %d\n", integerItem(h, JXSYS_REASON, JXIDX_ONLY));
  printf("ParameterCount  %d\n", field(m, kCountOffset));

  int32_t count = 0, cc, rc;
  jxCountItems(h, JXSEL_USER, &count, &cc, &rc);
  std::vector<char> text(m.size());
  for (int32_t i = 0; i < count; ++i) {
    int32_t selector = 0, type = 0;
    jxInquireItemInfo(h, JXSEL_USER, i, &selector, &type, &cc, &rc);
    if (type == JXITEM_INTEGER) {
      printf("%-8d integer %d\n", selector, integerItem(h, JXSEL_USER, i));
    } else {
      int32_t length = 0, ccsid = 0;
      jxInquireString(h, JXSEL_USER, i, static_cast<int32_t>(text.size()), text.data(), &length,
                      &ccsid, &cc, &rc);
      printf("%-8d string  ccsid %d length %d %s\n", selector, ccsid, length,
             quoted(text.data(), length).c_str());
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc > 2 || (argc == 2 && (!strcmp(argv[1], "-h") || !strcmp(argv[1], "--help")))) {
    fprintf(stderr, "usage: jxpcf [FILE|-]\nPrints a PCF message as its header and items.\n");
    return kExitUsage;
  }
  const bool fromStdin = argc < 2 || !strcmp(argv[1], "-");
  Bytes message;
  if (fromStdin) {
    message.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    std::ifstream in(argv[1], std::ios::binary);
    if (!in) {
      fprintf(stderr, "jxpcf: cannot open %s: %s\n", argv[1], strerror(errno));
      return kExitUsage;
    }
    message.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  if (message.size() > INT32_MAX) {
    fprintf(stderr, "jxpcf: message of %zu bytes is too long\n", message.size());
    return kExitUsage;
  }

  Bag bag;
  const int32_t reason = bag.read(message);
  if (reason != JXRC_NONE) {
    fprintf(stderr, "jxpcf: malformed message: reason %d (%s) at offset %zu of %zu bytes\n", reason,
            reasonText(reason), failingOffset(message), message.size());
    return kExitMalformed;
  }
  print(bag, message);
  return kExitOk;
}
