// The queue manager's in-memory state and the handling of every request.
//
// One thread runs everything. Requests that change durable state add their
// database work to the transaction of the current loop turn; their replies
// are held until that transaction commits, so a put returns only once it is
// durable, and all clients served in one turn share one commit.
#pragma once

#include <jx/jxqm.h>
#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "qm_protocol.hpp"
#include "store.hpp"

namespace jxqm {

struct Message {
  JXMD md{};
  std::string data;
  int64_t expiresMs = 0;  // 0: never
  int64_t dbId = 0;       // row of a stored persistent message
  uint32_t lockedBy = 0;  // connection whose unit of work holds it
  bool persistent = false;
};

struct Queue {
  QueueDef def;
  bool temporary = false;
  uint32_t owner = 0;  // creating connection of a temporary dynamic queue
  bool deleted = false;
  std::map<uint64_t, Message> msgs;  // by arrival sequence
  int32_t openInput = 0, openOutput = 0, exclusiveInput = 0;
  std::list<uint32_t> waiters;  // connections blocked in a get, oldest first
};
using QueuePtr = std::shared_ptr<Queue>;

struct Handle {
  QueuePtr q;
  int32_t options = 0;
};

struct GetArgs {
  int32_t hobj = 0, options = 0, waitInterval = 0, matchOptions = 0, bufferLength = 0;
  uint8_t msgId[24] = {}, correlId[24] = {};
  int64_t deadlineMs = -1;  // -1: no limit
};

struct Conn {
  uint32_t id = 0;
  int fd = -1;
  bool tcp = false;
  uid_t uid = 0;
  int64_t acceptedMs = 0;
  std::string peer;  // for the log
  std::string user;
  int32_t authority = kAuthNone;
  bool hello = false;
  bool closeAfterWrite = false;
  bool dead = false;
  bool touched = false;  // listed in QueueManager::touched()
  jxqp::Bytes in;
  jxqp::Bytes out;
  size_t outOff = 0;
  bool watchingOut = false;  // EPOLLOUT registered
  std::map<int32_t, Handle> handles;
  int32_t nextHobj = 1;
  bool uowActive = false;
  std::vector<std::pair<QueuePtr, uint64_t>> uowPuts, uowGets;
  std::optional<GetArgs> pendingGet;
  std::vector<QueuePtr> temps;
};

class QueueManager {
 public:
  QueueManager(std::string name, Store &store);

  // Loads definitions and persistent messages; false (with a log line) on failure.
  bool load();

  Conn &addConn(int fd, bool tcp, uid_t uid, std::string peer);
  Conn *conn(uint32_t id);
  std::vector<uint32_t> connIds() const;

  // A turn looks only at the connections that had events or were given
  // replies, never at every connection: most of them are idle.
  // touch() lists a connection for the write phase; touched() is that list,
  // which grows when a reply is queued.
  void touch(Conn &c);
  std::vector<uint32_t> &touched() { return touched_; }
  // Connections that received input or whose blocked get was answered, so
  // that frames may wait in their input; taking the list empties it.
  void markRunnable(uint32_t id) { runnable_.push_back(id); }
  std::vector<uint32_t> takeRunnable();
  // Whether a listed connection can go on at once; drops the other entries.
  bool anyRunnable();

  // Handles every complete frame in the connection's input that it may
  // handle now. False when the connection must be dropped.
  bool processInput(Conn &c);
  // Whether complete frames wait in the input of an unblocked connection.
  bool hasRunnableInput(const Conn &c) const;
  // Ends a connection: backs out its unit of work, closes its handles and
  // deletes its temporary dynamic queues. The caller closes the socket.
  void dropConn(uint32_t id);
  // Answers blocked gets whose wait has run out; returns the next deadline
  // (-1 when none).
  int64_t expireWaits(int64_t nowMs);
  // Commits the turn's transaction and releases the replies held for it.
  void endTurn();
  // Whether the turn has durable work waiting for endTurn's commit.
  bool commitPending() const { return txnOpen_; }

  // Replies are queued on the connection; the loop writes them.
  void send(Conn &c, uint8_t op, jxqp::Writer &w);

  static int64_t nowMs();

 private:
  using Writer = jxqp::Writer;
  void handle(Conn &c, const jxqp::Request &r);
  void doHello(Conn &c, const jxqp::Request &r);
  void doOpen(Conn &c, const jxqp::Request &r);
  void doClose(Conn &c, const jxqp::Request &r);
  void doPut(Conn &c, const jxqp::Request &r, bool put1);
  void doGet(Conn &c, const jxqp::Request &r);
  void doInq(Conn &c, const jxqp::Request &r);
  void doSet(Conn &c, const jxqp::Request &r);
  void doCommit(Conn &c, uint8_t op);
  void doBackout(Conn &c, uint8_t op);
  void doBegin(Conn &c, const jxqp::Request &r);
  void doDisc(Conn &c);

  void reply(Conn &c, uint8_t op, Writer &w);
  void replyCode(Conn &c, uint8_t op, int32_t cc, int32_t rc);

  // Open: returns a reason; on success fills q.
  int32_t resolveOpen(Conn &c, const jxqp::ObjectRef &o, int32_t options, QueuePtr &q);
  int32_t checkOpenOptions(int32_t options) const;
  void countOpen(const QueuePtr &q, int32_t options, int delta);

  // Put into q; fills md (message identifier, put date and time).
  int32_t putMessage(Conn &c, const QueuePtr &q, int32_t options, JXMD &md, std::string_view data);
  // One attempt at a get; false when the caller must wait.
  bool tryGet(Conn &c, const GetArgs &a, Writer &w);
  void serveWaiters(const QueuePtr &q);
  // Ends a blocked get that is being answered.
  void unblock(Conn &c);
  void removeMessage(Queue &q, std::map<uint64_t, Message>::iterator it);

  void commitUow(Conn &c);
  void backoutUow(Conn &c);
  void deleteQueue(const QueuePtr &q);

  bool dbWork();  // starts the turn's transaction if needed
  void genId(uint8_t out[24]);
  std::string uniqueQueueName(const std::string &prefix);
  void log(const std::string &line);

  std::string name_;
  char name48_[48] = {};
  Store &store_;
  bool txnOpen_ = false;
  std::unordered_map<std::string, QueuePtr> queues_;
  std::unordered_map<uint32_t, std::unique_ptr<Conn>> conns_;
  std::vector<uint32_t> touched_, runnable_;
  std::set<std::pair<int64_t, uint32_t>> timedWaits_;  // blocked gets by deadline
  uint32_t nextConnId_ = 1;
  uint64_t nextSeq_ = 1;
  uint64_t idCounter_ = 0;
  uint8_t idPrefix_[16] = {};
};

}  // namespace jxqm
