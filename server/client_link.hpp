// A client's connection: its transport, the frames in and out, the hello
// that authenticates it, and the session its requests run in. Each request
// op is a row of one table (client_link.cpp): whether it may come before
// the hello, what authority it needs, and how it is served.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "authentication.hpp"
#include "held_replies.hpp"
#include "peer_limits.hpp"
#include "qm_protocol.hpp"
#include "queue_manager.hpp"
#include "transport.hpp"

namespace jxqm {

class ClientLink;

// Who runs the links: writes their output and runs their input.
class LinkOwner {
 public:
  // The link has output to write.
  virtual void touched(ClientLink &link) = 0;
  // Frames waiting in the link's input may be handled now.
  virtual void runnable(ClientLink &link) = 0;
  // Checks a TCP peer's password away from the loop; the verdict comes
  // back through the link's passwordChecked.
  virtual void checkPassword(ClientLink &link, std::string password, std::string hash) = 0;
  // A line about the link for the log, which the owner may hold back.
  virtual void logAbout(const ClientLink &link, const std::string &line) = 0;
  // What all links' buffers may hold together (null: no limit).
  virtual BufferBudget *budget() = 0;

 protected:
  ~LinkOwner() = default;
};

class ClientLink final : public Peer {
 public:
  // owner and transport may be null (a link fed by hand, as the fuzz
  // target does).
  ClientLink(QueueManager &qm, LinkOwner *owner, uint32_t id, PeerAddress peer,
             std::unique_ptr<Transport> transport);
  // Ends the session: its unit of work is backed out.
  ~ClientLink();
  ClientLink(const ClientLink &) = delete;
  ClientLink &operator=(const ClientLink &) = delete;

  uint32_t id() const { return id_; }
  const PeerAddress &peer() const { return peer_; }
  Transport *transport() const { return transport_.get(); }
  bool greeted() const { return session_ != nullptr; }
  // The hello waits for the password's verdict.
  bool authenticating() const { return login_ != nullptr; }
  // Close once the output is written: a refused hello, a disconnect, or a
  // connection an administrator stopped.
  bool closing() const { return closing_; }

  // Takes bytes read from the peer into the input, frame by frame: a frame
  // before the hello is at most PeerLimits::kHelloFrameMax bytes, and a
  // frame's whole length is taken from the budget when its header arrives.
  // False (logged) when the link must be ended.
  bool receive(const uint8_t *data, size_t length, int64_t nowMs);
  // When the frame being received began (0: none is part-way).
  int64_t frameStartedMs() const { return frameStartMs_; }
  // Whether a frame began since the last call.
  bool takeFrameStarted() { return std::exchange(frameStarted_, false); }
  // The output has been written: its memory goes back.
  void outputWritten();
  // The password's verdict for the hello that waits.
  void passwordChecked(bool matched);

  // Handles every complete frame of the input that may be handled now.
  // False when the link must be dropped (a malformed frame).
  bool processInput();
  // Whether complete frames wait in the input and may be handled now.
  bool hasRunnableInput() const;
  // Whether the session is blocked in a get.
  bool waiting() const;
  // How much of the output may be written now: replies that wait for a
  // commit stay until it ends.
  size_t writable() const { return held_.writable(out.size()); }
  // The commit of `turn` ended; its replies were held until now.
  void settle(uint64_t turn, bool committed) {
    held_.settle(out, turn, committed, JXRC_RESOURCE_PROBLEM);
  }

  // Buffers the event loop fills and drains.
  jxqp::Bytes in;
  jxqp::Bytes out;
  size_t outOff = 0;
  bool watchingOut = false;  // the loop waits for room to write
  int64_t outSinceMs = 0;    // since when output waits for the peer (0: none)
  bool touched = false;      // on the owner's list of links to write

  // Peer
  void getAnswered(GetResult &&result) override;
  void ended() override;

 private:
  friend struct LinkOps;
  struct PendingLogin {
    Login login;
    uint32_t pid = 0;
    std::string applName;
  };
  template <class Reply>
  void reply(jxqp::Op op, const Reply &r);
  void log(const std::string &what) const;
  // Answers the hello: a session, or a refusal and the end of the link.
  void finishHello(const Login &login, bool matched, uint32_t pid, std::string applName);
  bool outputBacklogged() const;

  QueueManager &qm_;
  LinkOwner *owner_;
  uint32_t id_;
  PeerAddress peer_;
  std::unique_ptr<Transport> transport_;
  Session *session_ = nullptr;
  bool closing_ = false;
  std::string chars_;  // an inquire reply's characters until it is written
  HeldReplies held_;
  std::unique_ptr<PendingLogin> login_;
  BufferBudget *budget_ = nullptr;
  size_t frameAt_ = 0;    // where in `in` the frame being received begins
  size_t frameNeed_ = 0;  // its whole length once its header is in (0: not yet)
  int64_t frameStartMs_ = 0;
  bool frameStarted_ = false;
  size_t inCharged_ = 0, outCharged_ = 0;  // bytes taken from the budget
};

}  // namespace jxqm
