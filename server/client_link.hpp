// A client's connection: its transport, the frames in and out, the hello
// that authenticates it, and the session its requests run in. Each request
// op is a row of one table (client_link.cpp): whether it may come before
// the hello, what authority it needs, and how it is served.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "authentication.hpp"
#include "held_replies.hpp"
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
  // Close once the output is written: a refused hello, a disconnect, or a
  // connection an administrator stopped.
  bool closing() const { return closing_; }

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
  bool touched = false;      // on the owner's list of links to write

  // Peer
  void getAnswered(GetResult &&result) override;
  void ended() override;

 private:
  friend struct LinkOps;
  template <class Reply>
  void reply(jxqp::Op op, const Reply &r);
  void log(const std::string &what) const;

  QueueManager &qm_;
  LinkOwner *owner_;
  uint32_t id_;
  PeerAddress peer_;
  std::unique_ptr<Transport> transport_;
  Session *session_ = nullptr;
  bool closing_ = false;
  std::string chars_;  // an inquire reply's characters until it is written
  HeldReplies held_;
};

}  // namespace jxqm
