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
  // What limits are counted by: the host of a TCP peer, the user of a local one.
  std::string key;
};

// The name of an operating-system user ("uid1234" when it has none).
std::string userName(uid_t uid);

// A login in two halves: what the credential store says, at once, and the
// verdict on the password, which is slow by design and is reached away
// from the event loop. A user the store does not know is checked against
// a stand-in hash, so that the answer takes as long as for one it knows.
struct Login {
  bool needsPassword = false;  // TCP: `password` is to be checked against `hash`
  bool known = false;
  std::string user, password, hash;
  int32_t authority = kAuthNone;
  std::string storeError;  // the credential store could not be read: 2102
};
Login beginLogin(Store &store, const PeerAddress &peer, const jxqp::HelloRequest &hello);
// A reason: 0 with `who` filled in, or JXRC_NOT_AUTHORIZED or
// JXRC_RESOURCE_PROBLEM (with `why` for the log). `matched` is the password's verdict (ignored when
// none was needed).
int32_t finishLogin(const Login &login, bool matched, Identity &who, std::string &why);
// Both halves at once, for a link that no event loop runs.
int32_t authenticate(Store &store, const PeerAddress &peer, const jxqp::HelloRequest &hello,
                     Identity &who, std::string &why);

}  // namespace jxqm
