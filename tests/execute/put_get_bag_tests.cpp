// jxPutBag and jxGetBag on a queue the test opened: every refusal in its
// order with nothing put or taken, the retries of a long message under the
// caller's identifiers, and messages discarded without a bag.
#include "messaging_support.hpp"

namespace {

const JXMD kReadOnlyMd = JXMD_DEFAULT;

class PutGetBag : public MessagingTest {
 protected:
  void SetUp() override {
    MessagingTest::SetUp();
    hobj = open(kBagQueue, JXOO_OUTPUT | JXOO_INPUT_SHARED);
    memcpy(md.Format, JXFMT_PCF, sizeof md.Format);
  }
  Outcome get(JXHBAG bag, void *msgdesc, void *getmsgopts) {
    return call(jxGetBag, hconn_, hobj, msgdesc, getmsgopts, bag);
  }
  // Puts bytes with a format, encoding and correlation byte of the test's choosing.
  void putRaw(const Msg &m, const char *format, int32_t encoding = JXENC_NATIVE,
              uint8_t correl = 0) {
    JXMD d = JXMD_DEFAULT;
    memcpy(d.Format, format, sizeof d.Format);
    d.Encoding = encoding;
    d.CorrelId[0] = correl;
    QmCallLog::Pause pause;
    EXPECT_EQ(qmtest::put(hconn_, hobj, std::string(m.data.begin(), m.data.end()), &d), 0);
  }

  int32_t hobj = 0;
  JXMD md = JXMD_DEFAULT;
  JXGMO gmo = JXGMO_DEFAULT;
  JXPMO pmo = JXPMO_DEFAULT;
  ApiBag bag;
};

TEST_F(PutGetBag, PutRefusalsInTheirOrderPutNothing) {
  JXMD encoding = md, format = md;
  encoding.Encoding = 273;
  memset(encoding.Format, ' ', 8);
  memset(format.Format, ' ', 8);
  const struct {
    JXHBAG bag;
    const void *md;
    int32_t reason;
  } cases[] = {
      {JXHB_NONE, nullptr, JXRC_BAD_HANDLE}, {bag.h, nullptr, JXRC_MD_ERROR},
      {bag.h, &kReadOnlyMd, JXRC_MD_ERROR},  {bag.h, &encoding, JXRC_BAD_ENCODING},
      {bag.h, &format, JXRC_BAD_FORMAT},
  };
  for (const auto &c : cases)
    EXPECT_EQ(call(jxPutBag, hconn_, hobj, const_cast<void *>(c.md), &pmo, c.bag),
              failed(c.reason));
  EXPECT_EQ(depth(kBagQueue), 0);
}

TEST_F(PutGetBag, PutSendsTheBagsCommandUnderTheCallersDescriptor) {
  bag.set(JXSYS_COMMAND, JXCMD_INQUIRE_QUEUE).add(5, 6);
  ASSERT_EQ(call(jxPutBag, hconn_, hobj, &md, &pmo, bag.h), kOk);
  QmCallLog::Pause pause;
  const qmtest::Got g = qmtest::get(hconn_, hobj);
  EXPECT_EQ(g.md.MsgType, JXMT_DATAGRAM);
  EXPECT_EQ(std::string(g.md.Format, 8), JXFMT_PCF);
  const Msg m = Msg().header(JXPCF_TYPE_USER, JXCMD_INQUIRE_QUEUE, 1).integer(5, 6);
  EXPECT_EQ(g.data, std::string(m.data.begin(), m.data.end()));
}

TEST_F(PutGetBag, GetRefusalsInTheirOrderTakeNothingAndLeaveTheBag) {
  putRaw(Msg().header(JXPCF_TYPE_USER, 0, 0), JXFMT_PCF);
  bag.add(5, 6);
  const std::vector<std::string> before = contents(bag.h);
  // A reply bag of an executed command is a system bag.
  Responder r(qm()->name(), kRequestQueue, [](const qmtest::Got &) { return Replies{reply(1)}; });
  ApiBag request(JXBAG_ADMIN), response;
  request.add(JXCA_Q_NAME, "QONE");
  ASSERT_EQ(call(jxExecute, hconn_, 13, JXHB_NONE, request.h, response.h,
                 open(kRequestQueue, JXOO_OUTPUT), 0),
            kOk);
  JXHBAG systemBag = JXHB_NONE;
  call(jxInquireBag, response.h, JXSEL_REPLY_BAG, 0, &systemBag);
  JXMD convert = md;
  convert.Encoding = 273;
  JXGMO converting = gmo, truncating = gmo;
  converting.Options |= JXGMO_CONVERT;
  truncating.Options |= JXGMO_ACCEPT_TRUNCATED_MSG;
  const struct {
    JXHBAG bag;
    void *md, *gmo;
    int32_t reason;
  } cases[] = {
      {1, nullptr, nullptr, JXRC_BAD_HANDLE},
      {systemBag, nullptr, nullptr, JXRC_SYSTEM_BAG_READ_ONLY},
      {bag.h, nullptr, nullptr, JXRC_MD_ERROR},
      {bag.h, &md, nullptr, JXRC_GMO_ERROR},
      {bag.h, &convert, &converting, JXRC_BAD_ENCODING},
      {JXHB_NONE, &md, &truncating, JXRC_OPTIONS_ERROR},
  };
  for (const auto &c : cases) EXPECT_EQ(get(c.bag, c.md, c.gmo), failed(c.reason));
  EXPECT_EQ(depth(kBagQueue), 1);
  EXPECT_EQ(contents(bag.h), before);
}

TEST_F(PutGetBag, WrongFormatOrEncodingAfterTheGetRemovesTheMessageOnly) {
  bag.add(5, 6);
  const std::vector<std::string> before = contents(bag.h);
  putRaw(Msg().header(JXPCF_TYPE_USER, 0, 0), JXFMT_STRING);
  putRaw(Msg().header(JXPCF_TYPE_USER, 0, 0), JXFMT_ADMIN, 273);
  EXPECT_EQ(get(bag.h, &md, &gmo), failed(JXRC_BAD_FORMAT));
  md = JXMD_DEFAULT;
  EXPECT_EQ(get(bag.h, &md, &gmo), failed(JXRC_BAD_ENCODING));
  EXPECT_EQ(depth(kBagQueue), 0);
  EXPECT_EQ(contents(bag.h), before);
}

TEST_F(PutGetBag, LongMessageReadWithOneRetryUnderTheCallersIdentifiers) {
  const std::string text(9944, 't');  // 36 + 20 + 9944: 10000 bytes
  putRaw(Msg().header(JXPCF_TYPE_USER, 0, 0), JXFMT_PCF, JXENC_NATIVE, 1);
  putRaw(Msg().header(JXPCF_TYPE_USER, 0, 1).string(2001, text, 437), JXFMT_PCF, JXENC_NATIVE, 2);
  md.CorrelId[0] = 2;
  QmCallLog log;
  ASSERT_EQ(get(bag.h, &md, &gmo), kOk);
  const auto gets = log.of(QmCall::Get);
  ASSERT_EQ(gets.size(), 2u);
  EXPECT_EQ(gets[0].length, 4096);
  EXPECT_EQ(gets[0].rc, JXRC_TRUNCATED_MSG_FAILED);
  EXPECT_EQ(gets[1].length, 10000);
  for (const auto &g : gets) {
    EXPECT_EQ(g.md.CorrelId[0], 2);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(g.md.MsgId), 24), std::string(24, 0));
  }
  EXPECT_EQ(stringOf(bag.h, 2001), text);
  EXPECT_EQ(depth(kBagQueue), 1);
}

TEST_F(PutGetBag, DiscardingRemovesAnyMessageAndKeepsTheCallersOptions) {
  // A long message, and a zero-length one in no PCF format: neither is read.
  putRaw(Msg().fill(10000, 'x'), JXFMT_PCF);
  putRaw(Msg(), JXFMT_NONE);
  gmo.Options = JXGMO_NO_SYNCPOINT;
  for (int i = 0; i < 2; ++i) {
    QmCallLog log;
    EXPECT_EQ(get(JXHB_NONE, &md, &gmo), kOk);
    EXPECT_EQ(gmo.Options, JXGMO_NO_SYNCPOINT);
    ASSERT_EQ(log.kinds(), std::vector<int>{QmCall::Get});
    EXPECT_EQ(log.calls[0].length, 0);
    EXPECT_EQ(log.calls[0].gmo.Options, JXGMO_NO_SYNCPOINT | JXGMO_ACCEPT_TRUNCATED_MSG);
    EXPECT_EQ(log.calls[0].dataLength, i ? 0 : 10000);
    md = JXMD_DEFAULT;
  }
  EXPECT_EQ(depth(kBagQueue), 0);
}

}  // namespace
