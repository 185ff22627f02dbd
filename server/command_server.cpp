#include "command_server.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "events.hpp"
#include "qm_paths.hpp"
#include "qmgr_files.hpp"
#include "session.hpp"

namespace jxqm {

namespace {

constexpr int64_t kRetryGetMs = 1000;  // after a get of the command queue failed
constexpr int64_t kStallPollMs = 10;   // while a reply-to queue is full
constexpr int64_t kStallMs = 30000;    // then the command's other replies are dropped
// Replies a command keeps ahead of its reader: it goes at the reader's pace,
// and the loop's CPU is the other connections' meanwhile. More than one
// read-ahead's worth, so that the next ones are ready when it comes back.
constexpr int32_t kReplyWindow = 2 * jxqp::kMaxAheadCount;
constexpr const char *kApplName = "jxqmgr command server";
// No command takes more values in one list (the attribute lists are the
// longest); a request with a longer one is malformed.
constexpr int32_t kMostListValues = 1024;
// Far more than any command needs (every attribute with the longest values
// fits in a few KiB): a larger message is refused before it is read, so a
// hostile one cannot keep the loop busy.
constexpr size_t kMaxRequestLength = 64 * 1024;

AdminResult failure(int32_t reason) {
  return {JXCC_FAILED, reason, 0};
}

bool isAdminFormat(const JXMD &md) {
  return std::memcmp(md.Format, JXFMT_ADMIN, JX_FORMAT_LENGTH) == 0;
}

// The object a refused command named, for the authority event.
std::string namedObject(const std::vector<PcfParameter> &given) {
  for (const PcfParameter &p : given)
    if ((p.selector == JXCA_Q_NAME || p.selector == JXSEL_FROM_QUEUE_NAME) && !p.texts.empty())
      return p.texts[0];
  return {};
}

}  // namespace

// ---- one request ----

CommandRun::CommandRun(QueueManager &qm, PcfCodec &codec, const Identity &who, const JXMD &md,
                       std::string_view data)
    : qm_(qm), codec_(codec), who_(who) {
  PcfHeader header;
  std::vector<PcfParameter> given;
  const bool pcf = isAdminFormat(md) && md.Encoding == JXENC_NATIVE &&
                   data.size() <= kMaxRequestLength &&
                   PcfCodec::listsWithin(data, kMostListValues) &&
                   codec_.decode(data, header, given) && header.type == JXPCF_TYPE_COMMAND;
  if (!pcf) {
    refuse(failure(JXRCCF_MSG_MALFORMED));
    return;
  }
  command_ = header.command;
  row_ = findCommand(command_);
  if (!row_) {
    refuse(failure(JXRCCF_COMMAND_UNKNOWN));
    return;
  }
  if (who_.authority < row_->authority) {
    qm_.events().notAuthorised(who_, namedObject(given), row_->name);
    refuse(failure(JXRC_NOT_AUTHORIZED));
    return;
  }
  if (AdminResult r = checkParameters(*row_, given, input_); !r.ok()) {
    refuse(r);
    return;
  }
  CommandContext c(qm_, who_, input_);
  if (!row_->run) {
    if (AdminResult r = row_->select(c, objects_); !r.ok()) refuse(r);
    return;
  }
  row_->run(c);
  ready_ = std::move(c.replies);
  if (row_->configEvent && !ready_.empty() && ready_[0].compCode == JXCC_OK)
    qm_.events().configuration(row_->configEvent, input_.text(row_->eventName), who_);
}

void CommandRun::refuse(const AdminResult &r) {
  CommandContext c(qm_, who_, input_);
  c.answer(r);
  ready_ = std::move(c.replies);
  objects_.clear();
}

bool CommandRun::step(const Sink &sink) {
  if (done_) return false;
  for (CommandReply &r : ready_) emit(std::move(r), sink);
  ready_.clear();
  const auto until = std::chrono::steady_clock::now() + kStepTime;
  for (bool first = true;
       next_ < objects_.size() && (first || std::chrono::steady_clock::now() < until);
       first = false) {
    CommandContext c(qm_, who_, input_);
    if (!row_->each(c, objects_[next_++])) continue;
    for (CommandReply &r : c.replies) emit(std::move(r), sink);
  }
  if (next_ < objects_.size()) return true;
  finish(sink);
  return false;
}

// Objects that went while the command ran have no reply; when none is
// left, the command answers as if none had matched.
void CommandRun::abandon() {
  ready_.clear();
  objects_.clear();
  held_.reset();
  done_ = true;
}

void CommandRun::finish(const Sink &sink) {
  if (!held_ && sequence_ == 0) held_ = CommandReply{JXCC_FAILED, JXRC_UNKNOWN_OBJECT_NAME, {}};
  send(*held_, true, sink);
  held_.reset();
  done_ = true;
}

void CommandRun::emit(CommandReply &&reply, const Sink &sink) {
  if (held_) send(*held_, false, sink);
  held_ = std::move(reply);
}

void CommandRun::send(const CommandReply &reply, bool last, const Sink &sink) {
  PcfHeader header;
  header.type = JXPCF_TYPE_RESPONSE;
  header.command = command_;
  header.sequence = ++sequence_;
  header.control = last ? JXPCF_CONTROL_LAST : 0;
  header.compCode = reply.compCode;
  header.reason = reply.reason;
  std::string bytes;
  if (int32_t rc = codec_.encode(header, reply.values, bytes)) {
    qm_.log("command " + std::to_string(command_) + ": reply " + std::to_string(sequence_) +
            " not encoded: reason " + std::to_string(rc));
    return;
  }
  sink(std::move(bytes));
}

// ---- the server ----

CommandServer::CommandServer(QueueManager &qm) : qm_(qm) {}

CommandServer::~CommandServer() {
  if (session_) qm_.endSession(session_->id());
}

bool CommandServer::start() {
  QueueManager::SessionInfo info{qm_.identity(), JXTRANSPORT_LOCAL, static_cast<uint32_t>(getpid()),
                                 kApplName};
  session_ = &qm_.startSession(std::move(info), this);
  jxqp::OpenRequest open;
  open.options = JXOO_INPUT_SHARED | JXOO_FAIL_IF_QUIESCING;
  open.obj.objectType = JXOT_Q;
  jxqp::setField(open.obj.objectName, JX_Q_NAME_LENGTH, kCommandQueue);
  jxqp::OpenReply reply = session_->open(open);
  if (reply.cc != JXCC_OK) {
    qm_.log("command server: cannot open " + std::string(kCommandQueue) + ": reason " +
            std::to_string(reply.rc));
    qm_.endSession(session_->id());
    session_ = nullptr;
    return false;
  }
  hobj_ = reply.hobj;
  askForRequest();
  return true;
}

void CommandServer::askForRequest() {
  if (!session_ || asking_ || arrived_) return;
  jxqp::GetRequest get;
  get.hobj = hobj_;
  get.options = JXGMO_WAIT | JXGMO_NO_SYNCPOINT | JXGMO_ACCEPT_TRUNCATED_MSG;
  get.waitInterval = JXWI_UNLIMITED;
  get.bufferLength = JX_MAX_MSG_LENGTH;
  asking_ = true;
  if (std::optional<GetResult> now = session_->get(get)) getAnswered(std::move(*now));
}

void CommandServer::getAnswered(GetResult &&result) {
  asking_ = false;
  if (result.reply.cc == JXCC_FAILED) {
    qm_.log("command server: get from " + std::string(kCommandQueue) + " failed: reason " +
            std::to_string(result.reply.rc));
    retryAtMs_ = QueueManager::nowMs() + kRetryGetMs;
    return;
  }
  // Called from within another session's call: the request waits for the
  // loop's next turn.
  arrived_ = std::move(result);
}

void CommandServer::ended() {
  qm_.log("command server: its connection was stopped; it ends");
  session_ = nullptr;
  asking_ = false;
}

void CommandServer::takeRequest(GetResult &&request) {
  requestMd_ = request.reply.md;
  dropped_ = 0;
  stalledSinceMs_ = -1;
  run_ = std::make_unique<CommandRun>(qm_, codec_, Identity{request.putter, request.authority},
                                      requestMd_, request.data);
}

int64_t CommandServer::turn(int64_t nowMs) {
  if (!run_ && arrived_) {
    GetResult request = std::move(*arrived_);
    arrived_.reset();
    takeRequest(std::move(request));
  }
  if (run_) {
    // Replies wait in the outbox while their queue is full: its reader is
    // behind, and the command goes on as it reads. One that stops reading
    // for kStallMs loses the rest of the command's replies.
    bool progress = putReplies();
    bool paced = false;
    if (outbox_.empty() && !run_->done()) {
      paced = readerBehind(progress);
      if (!paced) {
        run_->step([this](std::string &&reply) { outbox_.push_back(std::move(reply)); });
        progress |= putReplies();
      }
    }
    if (progress) stalledSinceMs_ = -1;
    if (!outbox_.empty() || paced) {
      if (stalledSinceMs_ < 0) stalledSinceMs_ = nowMs;
      if (nowMs - stalledSinceMs_ < kStallMs) return nowMs + kStallPollMs;
      dropped_ += outbox_.size();
      outbox_.clear();
      run_->abandon();
    }
    if (!run_->done()) return 0;
    if (dropped_)
      qm_.log("command " + std::to_string(run_->command()) + ": " + std::to_string(dropped_) +
              " replies to " + replyQueue() + " were dropped");
    run_.reset();
  }
  if (retryAtMs_ >= 0 && nowMs >= retryAtMs_) {
    retryAtMs_ = -1;
    askForRequest();
  } else if (retryAtMs_ < 0 && !arrived_) {
    askForRequest();
  }
  if (arrived_) return 0;
  return retryAtMs_;
}

// Whether kReplyWindow replies wait on the reply-to queue; `took` becomes
// true when its reader took some since the last look.
bool CommandServer::readerBehind(bool &took) {
  QueuePtr q = qm_.findQueue(replyQueue());
  if (!q) return false;
  took = took || q->stats.gets != readerGets_;
  readerGets_ = q->stats.gets;
  return q->depth() >= kReplyWindow;
}

std::string CommandServer::replyQueue() const {
  return jxqp::fieldString(requestMd_.ReplyToQ, JX_Q_NAME_LENGTH);
}

// Puts the outbox's replies in order until one meets a full queue; the
// others that cannot be put are dropped. Whether any went.
bool CommandServer::putReplies() {
  const std::string replyQ = replyQueue();
  const std::string replyQMgr = jxqp::fieldString(requestMd_.ReplyToQMgr, JX_Q_MGR_NAME_LENGTH);
  bool progress = false;
  while (!outbox_.empty()) {
    if (replyQ.empty()) {  // a command sent as a datagram
      outbox_.clear();
      break;
    }
    JXMD md = JXMD_DEFAULT;
    md.MsgType = JXMT_REPLY;
    std::memcpy(md.Format, JXFMT_ADMIN, JX_FORMAT_LENGTH);
    std::memcpy(md.CorrelId, requestMd_.MsgId, JX_CORREL_ID_LENGTH);
    md.Persistence = requestMd_.Persistence;
    md.CodedCharSetId = requestMd_.CodedCharSetId;
    AdminResult r = !replyQMgr.empty() && replyQMgr != qm_.name()
                        ? failure(JXRC_UNKNOWN_REMOTE_Q_MGR)
                        : Administration(qm_).putMessage(replyQ, md, outbox_.front());
    if (r.rc == JXRC_Q_FULL) break;
    if (!r.ok() && dropped_++ == 0)
      qm_.log("command " + std::to_string(run_->command()) + ": reply to " + replyQ +
              " dropped: reason " + std::to_string(r.rc));
    progress = true;
    outbox_.pop_front();
  }
  return progress;
}

}  // namespace jxqm
