// Messages a get reply carried beyond its own (read ahead), kept per object
// handle and handed out by the gets that follow, without a round trip.
//
// The queue manager lends them only off a temporary queue that the handle
// reads exclusively, and keeps them on the queue, hidden, until the
// handle's next get or close says how many were handed out (`taken`); the
// others become the queue's again. So a get that this buffer cannot answer
// exactly as the queue manager would (other options or match, or no
// message left) goes to the queue manager, after the buffer is given up.
#pragma once

#include <jx/jxqm.h>

#include <cstdint>
#include <deque>
#include <string>

#include "qm_protocol.hpp"

namespace jxiz {

// Bytes of further messages a get asks for.
inline constexpr int32_t kAheadBytes = jxqp::kMaxAheadBytes;

class ReadAhead {
 public:
  // Keeps what a get's reply read ahead, under the get's match.
  void keep(const jxqp::GetRequest &request, const jxqp::GetReply &reply);
  // Whether the next get with these options and match is answered here.
  bool answers(const JXGMO &gmo, const JXMD &match) const;
  // Answers such a get as the queue manager would: the first message, or
  // 2080 with its length when it does not fit and truncation is not
  // accepted (it then stays). The reply's data stays valid until the next call.
  jxqp::GetReply next(const JXGMO &gmo, int32_t bufferLength);
  // The count to report in the handle's next request; the buffer is empty after.
  int32_t giveUp();
  bool empty() const { return messages_.empty() && taken_ == 0; }

 private:
  struct Held {
    JXMD md;
    std::string data;
  };
  bool matchMsg_ = false, matchCorrel_ = false;
  uint8_t msgId_[JX_MSG_ID_LENGTH] = {};
  uint8_t correlId_[JX_CORREL_ID_LENGTH] = {};
  char resolvedQName_[JX_Q_NAME_LENGTH] = {};
  std::deque<Held> messages_;
  Held last_;  // the one handed out last
  int32_t taken_ = 0;
};

}  // namespace jxiz
