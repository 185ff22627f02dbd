#include "read_ahead.hpp"

#include <cstring>

namespace jxiz {

namespace {

// What a get may ask for and still be answered from the buffer; any other
// option goes to the queue manager, which checks it.
constexpr int32_t kPlainOptions = JXGMO_WAIT | JXGMO_NO_SYNCPOINT | JXGMO_ACCEPT_TRUNCATED_MSG |
                                  JXGMO_FAIL_IF_QUIESCING | JXGMO_CONVERT;
constexpr int32_t kMatchOptions = JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID;

template <size_t N>
bool sameMatch(bool kept, const uint8_t (&keptId)[N], bool asked, const void *askedId) {
  return kept == asked && (!kept || std::memcmp(keptId, askedId, N) == 0);
}

}  // namespace

void ReadAhead::keep(const jxqp::GetRequest &request, const jxqp::GetReply &reply) {
  matchMsg_ = jxqp::selectsBy(request.matchOptions, JXMO_MATCH_MSG_ID, request.msgId);
  matchCorrel_ = jxqp::selectsBy(request.matchOptions, JXMO_MATCH_CORREL_ID, request.correlId);
  std::memcpy(msgId_, request.msgId, sizeof msgId_);
  std::memcpy(correlId_, request.correlId, sizeof correlId_);
  std::memcpy(resolvedQName_, reply.resolvedQName, sizeof resolvedQName_);
  for (const jxqp::AheadMessage &m : reply.ahead) messages_.push_back({m.md, std::string(m.data)});
}

bool ReadAhead::answers(const JXGMO &gmo, const JXMD &match) const {
  if (messages_.empty() || (gmo.Options & ~kPlainOptions) || (gmo.MatchOptions & ~kMatchOptions) ||
      ((gmo.Options & JXGMO_WAIT) && gmo.WaitInterval < JXWI_UNLIMITED))
    return false;
  const bool msg = jxqp::selectsBy(gmo.MatchOptions, JXMO_MATCH_MSG_ID, match.MsgId);
  const bool correl = jxqp::selectsBy(gmo.MatchOptions, JXMO_MATCH_CORREL_ID, match.CorrelId);
  return sameMatch(matchMsg_, msgId_, msg, match.MsgId) &&
         sameMatch(matchCorrel_, correlId_, correl, match.CorrelId);
}

jxqp::GetReply ReadAhead::next(const JXGMO &gmo, int32_t bufferLength) {
  jxqp::GetReply out;
  const size_t length = messages_.front().data.size();
  const jxqp::GetFit fit = jxqp::getFit(length, bufferLength, gmo.Options);
  out.cc = fit.cc;
  out.rc = fit.rc;
  out.dataLength = static_cast<int32_t>(length);
  std::memcpy(out.resolvedQName, resolvedQName_, sizeof out.resolvedQName);
  if (!fit.stays) {
    last_ = std::move(messages_.front());
    messages_.pop_front();
    ++taken_;
  }
  const Held &m = fit.stays ? messages_.front() : last_;
  out.md = m.md;
  out.data = std::string_view(m.data).substr(0, fit.returned);
  return out;
}

int32_t ReadAhead::giveUp() {
  const int32_t taken = taken_;
  messages_.clear();
  taken_ = 0;
  return taken;
}

}  // namespace jxiz
