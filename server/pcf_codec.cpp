#include "pcf_codec.hpp"

#include <cstring>
#include <map>

namespace jxqm {

namespace {

// Where the header and each parameter structure keep the words the shape
// of a message is read from; the values themselves come from the bag.
constexpr size_t kHeaderLengthAt = 4, kParameterCountAt = 32;
constexpr size_t kStrucTypeAt = 0, kStrucLengthAt = 4, kStrucSelectorAt = 8;
constexpr size_t kIntListCountAt = 12, kStrListCountAt = 16;
constexpr int32_t kFirstStringRead = 256;

int32_t word(std::string_view bytes, size_t at) {
  int32_t v = 0;
  std::memcpy(&v, bytes.data() + at, sizeof v);
  return v;
}

std::string trimmed(std::string s) {
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
  return s;
}

}  // namespace

PcfCodec::PcfCodec() = default;

// The bags are made at their first use: a queue manager that never
// answers a command nor puts an event (jxqm's own) never loads them.
bool PcfCodec::ready(JXHBAG &bag, int32_t options, JXLONG &rc) {
  JXLONG cc = JXCC_OK;
  if (bag == JXHB_NONE) jxCreateBag(options, &bag, &cc, &rc);
  if (cc != JXCC_OK) bag = JXHB_NONE;
  return cc == JXCC_OK;
}

PcfCodec::~PcfCodec() {
  JXLONG cc, rc;
  if (reader_ != JXHB_NONE) jxDeleteBag(&reader_, &cc, &rc);
  if (writer_ != JXHB_NONE) jxDeleteBag(&writer_, &cc, &rc);
}

// Walks the structures as far as their words lie inside the message; what
// lies beyond is the reader's to refuse.
bool PcfCodec::listsWithin(std::string_view bytes, int32_t most) {
  if (bytes.size() < JXPCF_HEADER_LENGTH || word(bytes, kHeaderLengthAt) != JXPCF_HEADER_LENGTH)
    return true;
  size_t at = JXPCF_HEADER_LENGTH;
  const int32_t count = word(bytes, kParameterCountAt);
  for (int32_t k = 0; k < count && at + JXPCF_STRING_LIST_FIXED <= bytes.size(); ++k) {
    const int32_t type = word(bytes, at + kStrucTypeAt);
    const int32_t values = type == JXPCF_TYPE_INTEGER_LIST  ? word(bytes, at + kIntListCountAt)
                           : type == JXPCF_TYPE_STRING_LIST ? word(bytes, at + kStrListCountAt)
                                                            : 1;
    if (values > most) return false;
    const int32_t length = word(bytes, at + kStrucLengthAt);
    if (length <= 0) return true;
    at += static_cast<size_t>(length);
  }
  return true;
}

bool PcfCodec::decode(std::string_view bytes, PcfHeader &header,
                      std::vector<PcfParameter> &parameters) {
  parameters.clear();
  JXLONG cc = JXCC_FAILED, rc = 0;
  if (bytes.size() > static_cast<size_t>(INT32_MAX) || !ready(reader_, 0, rc)) return false;
  jxBufferToBag(JXHB_NONE, static_cast<JXLONG>(bytes.size()), bytes.data(), reader_, &cc, &rc);
  if (cc != JXCC_OK) return false;
  const std::pair<int32_t, int32_t *> fields[] = {
      {JXSYS_MSG_TYPE, &header.type},      {JXSYS_COMMAND, &header.command},
      {JXSYS_SEQUENCE, &header.sequence},  {JXSYS_CONTROL, &header.control},
      {JXSYS_COMP_CODE, &header.compCode}, {JXSYS_REASON, &header.reason}};
  for (const auto &[selector, to] : fields) {
    jxInquireInteger(reader_, selector, JXIDX_ONLY, to, &cc, &rc);
    if (cc != JXCC_OK) return false;
  }
  // The reader accepted every structure, so their words lie inside the
  // message; they tell single values from lists, which the bag does not.
  std::map<int32_t, int32_t> taken;  // values of each selector read so far
  size_t at = static_cast<size_t>(word(bytes, kHeaderLengthAt));
  const int32_t count = word(bytes, kParameterCountAt);
  for (int32_t k = 0; k < count; ++k) {
    PcfParameter p;
    const int32_t type = word(bytes, at + kStrucTypeAt);
    p.selector = word(bytes, at + kStrucSelectorAt);
    p.integer = type == JXPCF_TYPE_INTEGER || type == JXPCF_TYPE_INTEGER_LIST;
    p.list = type == JXPCF_TYPE_INTEGER_LIST || type == JXPCF_TYPE_STRING_LIST;
    const int32_t values = type == JXPCF_TYPE_INTEGER_LIST  ? word(bytes, at + kIntListCountAt)
                           : type == JXPCF_TYPE_STRING_LIST ? word(bytes, at + kStrListCountAt)
                                                            : 1;
    int32_t &index = taken[p.selector];
    for (int32_t v = 0; v < values; ++v, ++index) {
      if (p.integer) {
        int32_t n = 0;
        jxInquireInteger(reader_, p.selector, index, &n, &cc, &rc);
        if (cc != JXCC_OK) return false;
        p.numbers.push_back(n);
        continue;
      }
      std::string s(kFirstStringRead, ' ');
      JXLONG length = 0, ccsid = 0;
      jxInquireString(reader_, p.selector, index, static_cast<JXLONG>(s.size()), s.data(), &length,
                      &ccsid, &cc, &rc);
      if (cc != JXCC_OK && rc == JXRC_STRING_TRUNCATED) {
        s.assign(static_cast<size_t>(length), ' ');
        jxInquireString(reader_, p.selector, index, length, s.data(), &length, &ccsid, &cc, &rc);
      }
      if (cc != JXCC_OK) return false;
      s.resize(static_cast<size_t>(length));
      p.texts.push_back(trimmed(std::move(s)));
    }
    parameters.push_back(std::move(p));
    at += static_cast<size_t>(word(bytes, at + kStrucLengthAt));
  }
  return true;
}

int32_t PcfCodec::encode(const PcfHeader &header, const AttrList &parameters, std::string &out) {
  JXLONG cc = JXCC_OK, rc = JXRC_NONE;
  if (!ready(writer_, JXBAG_LIST_FORM, rc)) return rc;
  jxClearBag(writer_, &cc, &rc);
  const std::pair<int32_t, int32_t> fields[] = {
      {JXSYS_MSG_TYPE, header.type},      {JXSYS_COMMAND, header.command},
      {JXSYS_SEQUENCE, header.sequence},  {JXSYS_CONTROL, header.control},
      {JXSYS_COMP_CODE, header.compCode}, {JXSYS_REASON, header.reason}};
  for (const auto &[selector, value] : fields)
    if (cc == JXCC_OK) jxSetInteger(writer_, selector, JXIDX_ONLY, value, &cc, &rc);
  for (const AttrValue &v : parameters) {
    if (cc != JXCC_OK) break;
    if (v.selector <= JXSEL_INT_LAST)
      jxAddInteger(writer_, v.selector, v.number, &cc, &rc);
    else
      jxAddString(writer_, v.selector, static_cast<JXLONG>(v.text.size()), v.text.data(), &cc, &rc);
  }
  if (cc != JXCC_OK) return rc;
  if (out.size() < JXPCF_HEADER_LENGTH) out.resize(4096);
  JXLONG length = 0;
  jxBagToBuffer(JXHB_NONE, writer_, static_cast<JXLONG>(out.size()), out.data(), &length, &cc, &rc);
  if (cc != JXCC_OK && rc == JXRC_BUFFER_LENGTH_ERROR && length > static_cast<JXLONG>(out.size())) {
    out.resize(static_cast<size_t>(length));
    jxBagToBuffer(JXHB_NONE, writer_, length, out.data(), &length, &cc, &rc);
  }
  if (cc != JXCC_OK) return rc;
  out.resize(static_cast<size_t>(length));
  return JXRC_NONE;
}

}  // namespace jxqm
