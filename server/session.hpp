// A session: one connection's view of the queue manager (its handles, its
// unit of work, a get that waits) and the queue-manager calls made through
// it. The calls take and give the protocol's records; a client's
// connection (client_link.hpp) decodes them off the wire, and a part of the
// queue manager that reads a queue itself can make them directly.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "queue_manager.hpp"

namespace jxqm {

class Session {
 public:
  Session(QueueManager &qm, uint32_t id, QueueManager::SessionInfo info, Peer *peer);
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  uint32_t id() const { return id_; }
  const Identity &who() const { return info_.who; }
  const QueueManager::SessionInfo &info() const { return info_; }
  Peer *peer() const { return peer_; }
  int64_t connectedMs() const { return connectedMs_; }
  // JX_CONNECTION_ID_LENGTH hexadecimal digits: the queue manager's start
  // and the session's number, so that no two connections share one.
  std::string connectionId() const;
  size_t handleCount() const { return handles_.size(); }

  // ---- the queue-manager calls ----
  jxqp::OpenReply open(const jxqp::OpenRequest &r);
  jxqp::CodeReply close(const jxqp::CloseRequest &r);
  jxqp::PutReply put(const jxqp::PutRequest &r);
  jxqp::PutReply put1(const jxqp::Put1Request &r);
  // The answer, or nothing when the get waits: the peer hears later.
  std::optional<GetResult> get(const jxqp::GetRequest &r);
  // The reply's characters are kept in `chars`.
  jxqp::InqReply inquire(const jxqp::InqRequest &r, std::string &chars);
  jxqp::CodeReply set(const jxqp::SetRequest &r);
  jxqp::CodeReply begin(const jxqp::BeginRequest &r);
  jxqp::CodeReply commit();
  jxqp::CodeReply backout();
  // An orderly end: completes the unit of work.
  jxqp::CodeReply disconnect();

  // ---- for the queue manager ----
  bool waiting() const { return pending_.has_value(); }
  // Tries the waiting get again; when it is answered the peer hears.
  void retryPendingGet();
  // Ends the waiting get with a failure, and the peer hears.
  void failPendingGet(int32_t reason);
  bool unitOfWorkFull() const;
  void holdPut(const QueuePtr &q, uint64_t seq);
  using Held = std::vector<std::pair<QueuePtr, uint64_t>>;
  const Held &uowPuts() const { return uowPuts_; }
  const Held &uowGets() const { return uowGets_; }
  void forgetUnitOfWork();
  // A handle given back, or taken away, when the turn's commit fails.
  void reopen(int32_t hobj, const QueuePtr &q, int32_t options);
  void forgetHandle(int32_t hobj);
  // Backs out, closes the handles and deletes the temporary dynamic queues:
  // the session's end.
  void release();

 private:
  struct Handle {
    QueuePtr q;  // null: the queue manager itself
    int32_t options = 0;
    std::vector<uint64_t> lent;  // messages its last get read ahead, in order
  };
  struct PendingGet {
    jxqp::GetRequest request;
    int64_t deadlineMs = -1;  // -1: no limit
  };

  // `made`: a dynamic queue was made for the open.
  int32_t resolveOpen(const jxqp::ObjectRef &o, int32_t options, QueuePtr &q, bool &qmgr,
                      bool &made);
  void countOpen(const QueuePtr &q, int32_t options, int delta);
  // One attempt at a get; false when the caller must wait.
  bool tryGet(const jxqp::GetRequest &a, GetResult &out);
  // The client took the first `taken` messages read ahead: they are got;
  // the others are the queue's again.
  void settleLent(Handle &h, int32_t taken);
  // Lends the messages after `from` that the get matches to its reply.
  void readAhead(Handle &h, const jxqp::GetRequest &a, std::map<uint64_t, Message>::iterator from,
                 size_t returned, GetResult &out);
  void unblock();

  QueueManager &qm_;
  uint32_t id_;
  QueueManager::SessionInfo info_;
  Peer *peer_;
  int64_t connectedMs_;
  std::map<int32_t, Handle> handles_;
  int32_t nextHobj_ = 1;
  bool uowActive_ = false;
  Held uowPuts_, uowGets_;
  std::optional<PendingGet> pending_;
  std::vector<QueuePtr> temps_;
};

}  // namespace jxqm
