// Who a new connection is: TCP peers by user and password against the
// queue manager's credential store, local peers by their operating-system
// user (the queue manager's owner is an administrator).
#pragma once

#include <sys/types.h>

#include <string>

#include "qm_protocol.hpp"
#include "queue_manager.hpp"
#include "store.hpp"

namespace jxqm {

// What the transport knows of a peer.
struct PeerAddress {
  bool tcp = false;
  uid_t uid = static_cast<uid_t>(-1);  // local peers
  std::string description;             // for the log
};

// The name of an operating-system user ("uid1234" when it has none).
std::string userName(uid_t uid);

// A reason: 0 with `who` filled in, or JXRC_NOT_AUTHORIZED (with `why` for
// the log).
int32_t authenticate(Store &store, const PeerAddress &peer, const jxqp::HelloRequest &hello,
                     Identity &who, std::string &why);

}  // namespace jxqm
