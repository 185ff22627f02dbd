// Defaults of the queue-manager records, byte by byte at their offsets, as C
// code gets them from the init functions.
#include <gtest/gtest.h>
#include <jx/jxqm.h>

#include <cstring>
#include <string>

extern "C" void qmtestCDefaults(JXMD *md, JXPMO *pmo, JXOD *od, JXGMO *gmo, JXCNO *cno, JXBO *bo);

namespace {

int32_t intAt(const void *rec, size_t offset) {
  int32_t v;
  std::memcpy(&v, static_cast<const char *>(rec) + offset, 4);
  return v;
}

std::string bytesAt(const void *rec, size_t offset, size_t n) {
  return std::string(static_cast<const char *>(rec) + offset, n);
}

TEST(Records, DefaultsSitAtTheirOffsets) {
  JXMD md;
  JXPMO pmo;
  JXOD od;
  JXGMO gmo;
  JXCNO cno;
  JXBO bo;
  std::memset(&md, 0x55, sizeof md);
  std::memset(&od, 0x55, sizeof od);
  std::memset(&gmo, 0x55, sizeof gmo);
  std::memset(&cno, 0x55, sizeof cno);
  qmtestCDefaults(&md, &pmo, &od, &gmo, &cno, &bo);

  EXPECT_EQ(bytesAt(&md, 0, 4), "MD  ");
  EXPECT_EQ(intAt(&md, 4), 1);
  EXPECT_EQ(intAt(&md, 12), 8);
  EXPECT_EQ(intAt(&md, 16), -1);
  EXPECT_EQ(intAt(&md, 24), 546);
  EXPECT_EQ(intAt(&md, 28), 0);
  EXPECT_EQ(bytesAt(&md, 32, 8), "        ");
  EXPECT_EQ(intAt(&md, 40), -1);
  EXPECT_EQ(intAt(&md, 44), 2);
  EXPECT_EQ(bytesAt(&md, 48, 276), std::string(276, '\0')) << "ids, reply-to and identity zero";
  EXPECT_EQ(bytesAt(&md, 324, 24), std::string(24, '\0'));
  EXPECT_EQ(intAt(&md, 348), 1);
  EXPECT_EQ(intAt(&md, 352), 0);
  EXPECT_EQ(intAt(&md, 356), 0);
  EXPECT_EQ(intAt(&md, 360), -1);

  EXPECT_EQ(bytesAt(&pmo, 0, 4), "PMO ");
  EXPECT_EQ(intAt(&pmo, 4), 1);
  EXPECT_EQ(intAt(&pmo, 8), 0);
  EXPECT_EQ(intAt(&pmo, 12), -1);
  EXPECT_EQ(bytesAt(&pmo, 16, 136), std::string(136, '\0'));

  EXPECT_EQ(bytesAt(&od, 0, 4), "OD  ");
  EXPECT_EQ(intAt(&od, 4), 1);
  EXPECT_EQ(intAt(&od, 8), 1);
  EXPECT_EQ(bytesAt(&od, 12, 96), std::string(96, '\0'));
  EXPECT_EQ(bytesAt(&od, 108, 48), "AJX.*" + std::string(43, '\0'));
  EXPECT_EQ(bytesAt(&od, 156, 180), std::string(180, '\0'));

  EXPECT_EQ(bytesAt(&gmo, 0, 4), "GMO ");
  EXPECT_EQ(intAt(&gmo, 4), 1);
  EXPECT_EQ(intAt(&gmo, 8), 0);
  EXPECT_EQ(intAt(&gmo, 12), 0);
  EXPECT_EQ(bytesAt(&gmo, 16, 56), std::string(56, '\0'));
  EXPECT_EQ(intAt(&gmo, 72), 3);
  EXPECT_EQ(bytesAt(&gmo, 76, 4), "    ");
  EXPECT_EQ(bytesAt(&gmo, 80, 16), std::string(16, '\0'));
  EXPECT_EQ(intAt(&gmo, 96), -1);

  EXPECT_EQ(bytesAt(&cno, 0, 4), "CNO ");
  EXPECT_EQ(intAt(&cno, 4), 2);
  EXPECT_EQ(bytesAt(&cno, 8, JXCNO_LENGTH_2 - 8), std::string(JXCNO_LENGTH_2 - 8, '\0'))
      << "options, connection, user, password and the TLS trust fields zero";
  EXPECT_EQ(bytesAt(&bo, 0, 4), "BO  ");
}

}  // namespace
