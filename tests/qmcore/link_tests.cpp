// A client's connection fed by hand: the request table's order (hello
// first), the authority each request needs, a connection that an
// administrator stops, and the frame limits of its intake.
#include "client_link.hpp"
#include "core_fixture.hpp"
#include "credentials.hpp"
#include "peer_limits.hpp"

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
    return {.command = JXCMD_CREATE_QUEUE,
            .name = name,
            .toName = {},
            .queueType = JXQT_LOCAL,
            .attributes = {}};
  }
  uint32_t links_ = 0;
};

TEST_F(Links, HelloComesFirstAndAdministrationIsForAdministrators) {
  auto early = link(false);
  send(*early, Op::Open, jxqp::OpenRequest{});
  EXPECT_FALSE(early->processInput()) << "a request before the hello ends the connection";

  auto user = link(true);
  const jxqp::HelloRequest hello{.user = "bob", .password = "pw", .applName = {}};
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
  jxqp::OpenRequest open{.options = JXOO_OUTPUT, .obj = {.objectType = JXOT_Q}};
  jxqp::setField(open.obj.objectName, JX_Q_NAME_LENGTH, "Q1");
  send(*l, Op::Open, open);
  send(*l, Op::Put, jxqp::PutRequest{.hobj = 1, .options = JXPMO_SYNCPOINT, .data = "uncommitted"});
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

jxqp::Bytes frameOf(jxqp::Op op, size_t payload) {
  jxqp::Writer w;
  jxqp::Bytes f = jxqp::frame(static_cast<uint8_t>(op), w);
  for (int i = 0; i < 4; ++i) f[8 + i] = static_cast<uint8_t>(payload >> (8 * i));
  f.resize(f.size() + payload, 0);
  return f;
}

TEST_F(Links, FramesBeforeTheHelloAreSmallAndBadHeadersEndTheLink) {
  const struct {
    const char *what;
    jxqp::Bytes bytes;
    bool kept;
  } cases[] = {
      {"a frame of the limit", frameOf(jxqp::Op::Hello, jxqm::PeerLimits::kHelloFrameMax), true},
      {"a byte more", frameOf(jxqp::Op::Hello, jxqm::PeerLimits::kHelloFrameMax + 1), false},
      {"a bad header", jxqp::Bytes(jxqp::kHeaderSize, 'x'), false},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    auto l = link(false);
    // Byte by byte: the limits hold however the bytes arrive.
    bool kept = true;
    for (size_t i = 0; i < c.bytes.size() && kept; ++i) kept = l->receive(&c.bytes[i], 1, 1);
    EXPECT_EQ(kept, c.kept);
    if (kept) {
      EXPECT_EQ(l->frameStartedMs(), 0) << "no frame left part-way";
    }
  }
  // A frame part-way says when it began.
  auto l = link(false);
  const jxqp::Bytes f = frameOf(jxqp::Op::Hello, 100);
  ASSERT_TRUE(l->receive(f.data(), 50, 1234));
  EXPECT_EQ(l->frameStartedMs(), 1234);
  EXPECT_TRUE(l->takeFrameStarted());
  EXPECT_FALSE(l->takeFrameStarted());
}

}  // namespace
