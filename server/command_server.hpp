// The command server: a reader of SYSTEM.ADMIN.COMMAND.QUEUE inside the
// queue manager, holding a session of its own like any other reader. It
// takes one request at a time and answers on the request's reply-to queue.
//
// The queue manager serves every connection from one thread, so a command
// over many objects runs in slices of a bounded time a loop turn, and other
// connections' work goes on in between.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command_table.hpp"
#include "pcf_codec.hpp"
#include "queue_manager.hpp"

namespace jxqm {

// One request from its decoding to its last reply. Replies come out
// encoded, numbered 1, 2, 3 ... with control 1 on the last only; one is
// held back until the next (or the end) shows whether it is the last.
class CommandRun {
 public:
  using Sink = std::function<void(std::string &&reply)>;
  // How long one step of a per-object command answers objects (at least
  // one): about what another connection's request waits behind it.
  static constexpr std::chrono::microseconds kStepTime{10};

  // Checks and, for a command that answers once, runs the request (a
  // message put by `who`); a request that is no command answers 4007.
  CommandRun(QueueManager &qm, PcfCodec &codec, const Identity &who, const JXMD &md,
             std::string_view data);
  // Answers objects for kStepTime; false once the last reply is out.
  bool step(const Sink &sink);
  bool done() const { return done_; }
  // Ends the command without its other replies.
  void abandon();
  int32_t command() const { return command_; }

 private:
  void finish(const Sink &sink);
  void emit(CommandReply &&reply, const Sink &sink);
  void send(const CommandReply &reply, bool last, const Sink &sink);
  void refuse(const AdminResult &r);
  void run(const std::vector<PcfParameter> &given);

  QueueManager &qm_;
  PcfCodec &codec_;
  Identity who_;
  int32_t command_ = 0;
  const CommandRow *row_ = nullptr;
  CommandInput input_;
  std::vector<CommandReply> ready_;  // replies of a command that answers once
  std::vector<std::string> objects_;
  size_t next_ = 0;
  std::optional<CommandReply> held_;
  int32_t sequence_ = 0;
  bool done_ = false;
};

class CommandServer final : public Peer {
 public:
  explicit CommandServer(QueueManager &qm);
  ~CommandServer();
  CommandServer(const CommandServer &) = delete;
  CommandServer &operator=(const CommandServer &) = delete;

  // Opens the command queue and waits for requests; false (logged) when
  // the queue cannot be opened.
  bool start();
  // Runs the work of one loop turn. Returns when the server wants its next
  // turn: 0 at once, a time in milliseconds, or -1 when it waits for a
  // request.
  int64_t turn(int64_t nowMs);
  bool running() const { return session_ != nullptr; }

  // Peer
  void getAnswered(GetResult &&result) override;
  void ended() override;

 private:
  void askForRequest();
  void takeRequest(GetResult &&request);
  bool putReplies();
  bool readerBehind(bool &took);
  std::string replyQueue() const;

  QueueManager &qm_;
  PcfCodec codec_;
  Session *session_ = nullptr;
  int32_t hobj_ = 0;
  bool asking_ = false;
  std::optional<GetResult> arrived_;
  std::unique_ptr<CommandRun> run_;
  JXMD requestMd_{};
  int64_t retryAtMs_ = -1;          // a failed get is tried again then
  std::deque<std::string> outbox_;  // replies of the current step not yet put
  int64_t stalledSinceMs_ = -1;     // since when the reply-to queue has been full
  size_t dropped_ = 0;              // replies of the current request that were not put
  int64_t readerGets_ = 0;          // the reply-to queue's gets at the last look
};

}  // namespace jxqm
