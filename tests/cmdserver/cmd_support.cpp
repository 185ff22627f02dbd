#include "cmd_support.hpp"

#include <cstring>

namespace cmdtest {

namespace {

struct Bag {
  explicit Bag(int32_t options = 0) { call(jxCreateBag, options, &h); }
  ~Bag() { call(jxDeleteBag, &h); }
  JXHBAG h = JXHB_NONE;
};

std::string trimmed(std::string s) {
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
  return s;
}

}  // namespace

Reply readBag(JXHBAG bag) {
  Reply r;
  const std::pair<int32_t, int32_t *> header[] = {{JXSYS_COMP_CODE, &r.cc},
                                                  {JXSYS_REASON, &r.rc},
                                                  {JXSYS_COMMAND, &r.command},
                                                  {JXSYS_SEQUENCE, &r.sequence},
                                                  {JXSYS_CONTROL, &r.control}};
  for (auto [selector, to] : header) call(jxInquireInteger, bag, selector, JXIDX_ONLY, to);
  int32_t selector, type;
  for (int32_t i = 0; call(jxInquireItemInfo, bag, JXSEL_USER, i, &selector, &type) == kOk; ++i) {
    if (type == JXITEM_INTEGER) {
      int32_t v = 0;
      call(jxInquireInteger, bag, JXSEL_USER, i, &v);
      r.ints[selector].push_back(v);
    } else {
      std::string s(4096, '\0');
      int32_t length = 0;
      call(jxInquireString, bag, JXSEL_USER, i, int32_t(s.size()), s.data(), &length,
           static_cast<int32_t *>(nullptr));
      s.resize(size_t(std::min<int32_t>(length, int32_t(s.size()))));
      r.texts[selector].push_back(trimmed(s));
    }
  }
  return r;
}

Reply readMessage(const std::string &data) {
  Bag bag;
  EXPECT_EQ(call(jxBufferToBag, JXHB_NONE, int32_t(data.size()), data.data(), bag.h), kOk);
  return readBag(bag.h);
}

Executed execute(int32_t hconn, int32_t command, const Items &items, int32_t replyq) {
  Bag request(JXBAG_ADMIN), response;
  for (const Item &i : items) {
    if (const int32_t *v = std::get_if<int32_t>(&i.value))
      EXPECT_EQ(call(jxAddInteger, request.h, i.selector, *v), kOk) << i.selector;
    else {
      const std::string &s = std::get<std::string>(i.value);
      EXPECT_EQ(call(jxAddString, request.h, i.selector, int32_t(s.size()), s.data()), kOk);
    }
  }
  Bag options;
  call(jxAddInteger, options.h, JXSEL_WAIT_INTERVAL, 10000);
  Executed e;
  e.outcome = call(jxExecute, hconn, command, options.h, request.h, response.h, int32_t(0), replyq);
  int32_t n = 0;
  call(jxCountItems, response.h, JXSEL_REPLY_BAG, &n);
  for (int32_t i = 0; i < n; ++i) {
    JXHBAG nested = JXHB_NONE;
    call(jxInquireBag, response.h, JXSEL_REPLY_BAG, i, &nested);
    e.replies.push_back(readBag(nested));
  }
  return e;
}

std::vector<Reply> takeEvents(int32_t hconn, const char *queue) {
  std::vector<Reply> out;
  const int32_t hobj = qmtest::openQueue(hconn, queue, JXOO_INPUT_SHARED);
  for (;;) {
    Bag bag;
    JXMD md = JXMD_DEFAULT;
    JXGMO gmo = JXGMO_DEFAULT;
    gmo.Options = JXGMO_NO_SYNCPOINT;
    if (call(jxGetBag, hconn, hobj, static_cast<void *>(&md), static_cast<void *>(&gmo), bag.h) !=
        kOk)
      break;
    EXPECT_EQ(std::string(md.Format, JX_FORMAT_LENGTH), JXFMT_EVENT);
    EXPECT_EQ(md.MsgType, JXMT_DATAGRAM);
    EXPECT_EQ(md.Persistence, JXPER_NOT_PERSISTENT);
    out.push_back(readBag(bag.h));
  }
  int32_t cc, rc, h = hobj;
  zstJXCLOSE(hconn, &h, JXCO_NONE, &cc, &rc);
  return out;
}

std::string putRaw(int32_t hconn, const pcftest::Msg &m, const char *format, int32_t encoding,
                   const char *replyTo, int32_t persistence, int32_t expiry) {
  JXOD od = JXOD_DEFAULT;
  qmtest::setName(od.ObjectName, JXQ_ADMIN_COMMAND);
  JXMD md = JXMD_DEFAULT;
  md.MsgType = JXMT_REQUEST;
  std::memcpy(md.Format, format, JX_FORMAT_LENGTH);
  md.Encoding = encoding;
  md.Persistence = persistence;
  md.Expiry = expiry;
  qmtest::setName(md.ReplyToQ, replyTo);
  JXPMO pmo = JXPMO_DEFAULT;
  pmo.Options = JXPMO_NO_SYNCPOINT;
  int32_t cc = -1, rc = -1;
  zstJXPUT1(hconn, &od, &md, &pmo, m.size(), const_cast<uint8_t *>(m.data.data()), &cc, &rc);
  EXPECT_EQ(rc, JXRC_NONE);
  return std::string(reinterpret_cast<const char *>(md.MsgId), JX_MSG_ID_LENGTH);
}

void CommandTest::SetUpTestSuite() {
  if (qmtest::serverAvailable())
    qm() = std::make_unique<qmtest::QueueManagerProcess>(std::vector<std::string>{"RQ"});
}

Reply CommandTest::ok(int32_t command, const Items &items) {
  Executed e = run(command, items);
  EXPECT_EQ(e.outcome, kOk) << "command " << command;
  EXPECT_EQ(e.replies.size(), 1u) << "command " << command;
  return e.replies.empty() ? Reply{} : e.replies[0];
}

}  // namespace cmdtest
