// Defaults of the queue-manager records, byte by byte at their offsets, as C
// code gets them from the init functions.
#include <gtest/gtest.h>
#include <jx/jxqm.h>

#include <cstring>
#include <string>

extern "C" void qmtestCDefaults(JXMD *md, JXPMO *pmo, JXOD *od, JXGMO *gmo, JXCNO *cno, JXBO *bo);

namespace {

// A 32-bit field's bytes as this machine (little-endian) stores them.
std::string le(int32_t v) {
  return std::string(reinterpret_cast<const char *>(&v), 4);
}
std::string zeros(size_t n) {
  return std::string(n, '\0');
}

TEST(Records, DefaultsSitAtTheirOffsets) {
  JXMD md;
  JXPMO pmo;
  JXOD od;
  JXGMO gmo;
  JXCNO cno;
  JXBO bo;
  for (auto [rec, size] : {std::pair<void *, size_t>{&md, sizeof md},
                           {&pmo, sizeof pmo},
                           {&od, sizeof od},
                           {&gmo, sizeof gmo},
                           {&cno, sizeof cno},
                           {&bo, sizeof bo}})
    std::memset(rec, 0x55, size);
  qmtestCDefaults(&md, &pmo, &od, &gmo, &cno, &bo);
  const struct {
    const void *rec;
    size_t offset;
    std::string bytes;
  } rows[] = {
      {&md, 0, "MD  " + le(1)},
      {&md, 12, le(8) + le(-1)},
      {&md, 24, le(546) + le(0) + "        " + le(-1) + le(2)},
      {&md, 48, zeros(300)},  // ids, reply-to, identity and the group identifier
      {&md, 348, le(1) + le(0) + le(0) + le(-1)},
      {&pmo, 0, "PMO " + le(1) + le(0) + le(-1) + zeros(136)},
      {&od, 0, "OD  " + le(1) + le(1) + zeros(96) + "AJX.*" + zeros(43 + 180)},
      {&gmo, 0, "GMO " + le(1) + le(0) + le(0) + zeros(56) + le(3) + "    " + zeros(16) + le(-1)},
      // Options, connection, user, password and the TLS trust fields zero.
      {&cno, 0, "CNO " + le(2) + zeros(JXCNO_LENGTH_2 - 8)},
      {&bo, 0, "BO  "},
  };
  for (const auto &r : rows)
    EXPECT_EQ(std::string(static_cast<const char *>(r.rec) + r.offset, r.bytes.size()), r.bytes)
        << "at " << r.offset;
}

}  // namespace
