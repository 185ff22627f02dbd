#include "authentication.hpp"

#include <pwd.h>
#include <unistd.h>

#include "credentials.hpp"

namespace jxqm {

std::string userName(uid_t uid) {
  struct passwd pw, *res = nullptr;
  char buf[4096];
  if (getpwuid_r(uid, &pw, buf, sizeof buf, &res) == 0 && res) return res->pw_name;
  return "uid" + std::to_string(uid);
}

int32_t authenticate(Store &store, const PeerAddress &peer, const jxqp::HelloRequest &hello,
                     Identity &who, std::string &why) {
  std::string hash;
  int32_t authority = kAuthNone;
  if (peer.tcp) {
    std::string user(hello.user);
    if (user.empty() || !store.findUser(user, hash, authority) ||
        !verifyPassword(hello.password, hash)) {
      why = "refused user '" + user + "': bad user or password";
      return JXRC_NOT_AUTHORIZED;
    }
    who.user = user;
  } else {
    who.user = userName(peer.uid);
    if (peer.uid == geteuid()) {
      authority = kAuthAdmin;
    } else if (!store.findUser(who.user, hash, authority)) {
      authority = kAuthNone;
    }
  }
  if (authority < kAuthConnect) {
    why = "user '" + who.user + "' not authorised to connect";
    return JXRC_NOT_AUTHORIZED;
  }
  who.authority = authority;
  return JXRC_NONE;
}

}  // namespace jxqm
