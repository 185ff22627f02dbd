#include "held_replies.hpp"

#include <algorithm>

namespace jxqm {

namespace {

// A frame answering `op` with a failure, in the reply record of that op.
void appendFailure(jxqp::Bytes &out, jxqp::Op op, int32_t reason) {
  using namespace jxqp;
  Writer w;
  switch (op) {
    case Op::Open:
      encode(w, failedReply<OpenReply>(reason));
      break;
    case Op::Put:
    case Op::Put1:
      encode(w, failedReply<PutReply>(reason));
      break;
    case Op::Get:
      encode(w, failedReply<GetReply>(reason));
      break;
    case Op::Admin:
      encode(w, failedReply<AdminReply>(reason));
      break;
    case Op::Hello:
      encode(w, failedReply<HelloReply>(reason));
      break;
    case Op::Inq:
      encode(w, failedReply<InqReply>(reason));
      break;
    case Op::Close:
    case Op::Set:
    case Op::Commit:
    case Op::Backout:
    case Op::Begin:
    case Op::Disc:
      encode(w, failedReply<CodeReply>(reason));
      break;
  }
  appendFrame(out, replyOp(op), w);
}

size_t frameSize(const jxqp::Bytes &out, size_t offset) {
  jxqp::FrameHeader h;
  // The output holds only frames this side encoded.
  (void)jxqp::decodeHeader(out.data() + offset, h);
  return jxqp::kHeaderSize + h.length;
}

}  // namespace

void HeldReplies::settle(jxqp::Bytes &out, uint64_t turn, bool committed, int32_t reason) {
  auto first =
      std::find_if(held_.begin(), held_.end(), [&](const Held &h) { return h.turn == turn; });
  if (first == held_.end()) return;
  if (committed) {
    held_.erase(std::remove_if(first, held_.end(), [&](const Held &h) { return h.turn == turn; }),
                held_.end());
    return;
  }
  // Rebuild the output from the first of the turn's replies: the failures
  // differ in size from the replies they stand for, so later replies move.
  jxqp::Bytes rebuilt(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(first->offset));
  std::vector<Held> kept(held_.begin(), first);
  auto next = first;
  for (size_t at = first->offset; at < out.size();) {
    const size_t size = frameSize(out, at);
    if (next != held_.end() && next->offset == at) {
      if (next->turn == turn) {
        appendFailure(rebuilt, next->op, reason);
      } else {
        kept.push_back({rebuilt.size(), next->op, next->turn});
        rebuilt.insert(rebuilt.end(), out.begin() + static_cast<std::ptrdiff_t>(at),
                       out.begin() + static_cast<std::ptrdiff_t>(at + size));
      }
      ++next;
    } else {
      rebuilt.insert(rebuilt.end(), out.begin() + static_cast<std::ptrdiff_t>(at),
                     out.begin() + static_cast<std::ptrdiff_t>(at + size));
    }
    at += size;
  }
  out.swap(rebuilt);
  held_.swap(kept);
}

}  // namespace jxqm
