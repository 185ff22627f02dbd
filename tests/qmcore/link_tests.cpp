// A client's connection fed by hand: the request table's order (hello
// first), the authority each request needs, and a connection that an
// administrator stops.
#include "client_link.hpp"
#include "core_fixture.hpp"
#include "credentials.hpp"

namespace {

using coretest::Core;
using jxqp::Op;

class Links : public Core {
 protected:
  void SetUp() override {
    Core::SetUp();
    create("Q1");
    const std::string hash = jxqm::hashPassword("pw");
    ASSERT_TRUE(store_.setUser("bob", &hash, jxqm::kAuthConnect));
  }
  std::unique_ptr<jxqm::ClientLink> link(bool tcp) {
    return std::make_unique<jxqm::ClientLink>(
        *qm_, nullptr, ++links_, jxqm::PeerAddress{tcp, geteuid(), "test", "test"}, nullptr);
  }
  template <class Request>
  static void send(jxqm::ClientLink &l, Op op, const Request &r) {
    jxqp::Writer w;
    jxqp::encode(w, r);
    jxqp::appendFrame(l.in, static_cast<uint8_t>(op), w);
  }
  // The last reply the link wrote, decoded as `Reply`.
  template <class Reply>
  static Reply lastReply(jxqm::ClientLink &l) {
    size_t at = 0, last = 0;
    jxqp::FrameHeader h;
    while (at < l.out.size()) {
      EXPECT_EQ(jxqp::decodeHeader(l.out.data() + at, h), jxqp::HeaderStatus::Ok);
      last = at;
      at += jxqp::kHeaderSize + h.length;
    }
    jxqp::decodeHeader(l.out.data() + last, h);
    Reply r;
    EXPECT_TRUE(jxqp::decode(l.out.data() + last + jxqp::kHeaderSize, h.length, r));
    return r;
  }
  static jxqp::AdminRequest createQueue(const char *name) {
    jxqp::AdminRequest r;
    r.command = JXCMD_CREATE_QUEUE;
    r.name = name;
    r.queueType = JXQT_LOCAL;
    return r;
  }
  uint32_t links_ = 0;
};

TEST_F(Links, HelloComesFirstAndAdministrationIsForAdministrators) {
  auto early = link(false);
  send(*early, Op::Open, jxqp::OpenRequest{});
  EXPECT_FALSE(early->processInput()) << "a request before the hello ends the connection";

  auto user = link(true);
  jxqp::HelloRequest hello;
  hello.user = "bob";
  hello.password = "pw";
  send(*user, Op::Hello, hello);
  send(*user, Op::Admin, createQueue("BY.BOB"));
  ASSERT_TRUE(user->processInput());
  EXPECT_EQ(lastReply<jxqp::AdminReply>(*user).rc, JXRC_NOT_AUTHORIZED);
  EXPECT_EQ(qm_->findQueue("BY.BOB"), nullptr);
  send(*user, Op::Hello, hello);
  EXPECT_FALSE(user->processInput()) << "a second hello";

  auto owner = link(false);
  send(*owner, Op::Hello, jxqp::HelloRequest{});
  send(*owner, Op::Admin, createQueue("BY.OWNER"));
  jxqp::AdminRequest unknown = createQueue("X");
  unknown.command = JXCMD_INQUIRE_QUEUE;
  send(*owner, Op::Admin, unknown);
  ASSERT_TRUE(owner->processInput());
  EXPECT_NE(qm_->findQueue("BY.OWNER"), nullptr);
  EXPECT_EQ(lastReply<jxqp::AdminReply>(*owner).rc, JXRCCF_COMMAND_UNKNOWN);
  jxqp::Writer w;
  jxqp::appendFrame(owner->in, jxqp::kLastOp + 1, w);
  EXPECT_FALSE(owner->processInput()) << "an op no row serves";
}

TEST_F(Links, AStoppedConnectionClosesAndBacksOut) {
  auto l = link(false);
  send(*l, Op::Hello, jxqp::HelloRequest{});
  jxqp::OpenRequest open;
  open.options = JXOO_OUTPUT;
  open.obj.objectType = JXOT_Q;
  jxqp::setField(open.obj.objectName, JX_Q_NAME_LENGTH, "Q1");
  send(*l, Op::Open, open);
  jxqp::PutRequest put;
  put.hobj = 1;
  put.options = JXPMO_SYNCPOINT;
  put.data = "uncommitted";
  send(*l, Op::Put, put);
  ASSERT_TRUE(l->processInput());
  ASSERT_EQ(lastReply<jxqp::PutReply>(*l).rc, JXRC_NONE);
  EXPECT_EQ(attribute("Q1", JXIA_CURRENT_Q_DEPTH).number, 1);
  std::vector<jxqm::AttrList> list = admin_->connections();
  ASSERT_EQ(list.size(), 1u);
  ASSERT_TRUE(admin_->stopConnection(list[0][0].text).ok());
  EXPECT_TRUE(l->closing());
  EXPECT_FALSE(l->greeted());
  EXPECT_EQ(attribute("Q1", JXIA_CURRENT_Q_DEPTH).number, 0) << "backed out";
  send(*l, Op::Commit, jxqp::EmptyRequest{});
  const size_t written = l->out.size();
  ASSERT_TRUE(l->processInput());
  EXPECT_EQ(l->out.size(), written) << "nothing more is served";
}

}  // namespace
