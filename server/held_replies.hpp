// The replies of a connection that wait for a turn's commit. They sit in
// the connection's output like any other, but are not written until the
// commit ends; when it fails each becomes a failure of its own call, so
// that no client hears of durable work that was lost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qm_protocol.hpp"

namespace jxqm {

class HeldReplies {
 public:
  // The reply to `op` starting at `offset` of the output waits for the
  // commit of `turn`.
  void hold(size_t offset, jxqp::Op op, uint64_t turn) { held_.push_back({offset, op, turn}); }
  // How much of the output may be written: up to the first held reply.
  size_t writable(size_t size) const { return held_.empty() ? size : held_.front().offset; }
  // The commit of `turn` ended. Its replies go as they are, or each becomes
  // a failure with `reason`.
  void settle(jxqp::Bytes &out, uint64_t turn, bool committed, int32_t reason);

 private:
  struct Held {
    size_t offset;
    jxqp::Op op;
    uint64_t turn;
  };
  std::vector<Held> held_;  // in output order
};

}  // namespace jxqm
