#include "authentication.hpp"

#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <unordered_map>

#include "credentials.hpp"

namespace jxqm {

namespace {

// A lookup reads the name-service configuration and files each time: a
// quarter of what a short local session costs the queue manager. Names
// are kept for a while, as a name-service cache keeps them, and the table
// never holds more than a machine's worth of users.
constexpr auto kNameLife = std::chrono::seconds(10);
constexpr size_t kMostNames = 1024;

struct KnownName {
  std::string name;
  std::chrono::steady_clock::time_point since;
};

std::mutex g_namesMu;
std::unordered_map<uid_t, KnownName> g_names;

std::string lookUpName(uid_t uid) {
  struct passwd pw, *res = nullptr;
  char buf[4096];
  if (getpwuid_r(uid, &pw, buf, sizeof buf, &res) == 0 && res) return res->pw_name;
  return "uid" + std::to_string(uid);
}

}  // namespace

std::string userName(uid_t uid) {
  const auto now = std::chrono::steady_clock::now();
  std::lock_guard<std::mutex> lock(g_namesMu);
  auto known = g_names.find(uid);
  if (known != g_names.end() && now - known->second.since < kNameLife) return known->second.name;
  if (g_names.size() >= kMostNames) g_names.clear();
  KnownName &entry = g_names[uid];
  entry = {lookUpName(uid), now};
  return entry.name;
}

Login beginLogin(Store &store, const PeerAddress &peer, const jxqp::HelloRequest &hello) {
  Login login;
  if (peer.tcp) {
    login.needsPassword = true;
    login.user = std::string(hello.user);
    login.password = std::string(hello.password);
    const Lookup found = login.user.empty()
                             ? Lookup::Missing
                             : store.findUser(login.user, login.hash, login.authority);
    // A user with no password (one authorised only locally) is no TCP user.
    login.known = found == Lookup::Found && !login.hash.empty();
    if (!login.known) login.hash = dummyPasswordHash();
    if (found == Lookup::Failed) login.storeError = store.lastError();
  } else {
    login.user = userName(peer.uid);
    login.known = true;
    if (peer.uid == geteuid()) {
      login.authority = kAuthAdmin;
    } else {
      const Lookup found = store.findUser(login.user, login.hash, login.authority);
      if (found != Lookup::Found) login.authority = kAuthNone;
      if (found == Lookup::Failed) login.storeError = store.lastError();
    }
  }
  // A store that cannot say who the user is refuses the login; no password
  // check would change that.
  if (!login.storeError.empty()) login.needsPassword = false;
  return login;
}

int32_t finishLogin(const Login &login, bool matched, Identity &who, std::string &why) {
  if (!login.storeError.empty()) {
    why = "cannot look up user '" + login.user + "': " + login.storeError;
    return JXRC_RESOURCE_PROBLEM;
  }
  if (login.needsPassword && (!login.known || !matched)) {
    why = "refused user '" + login.user + "': bad user or password";
    return JXRC_NOT_AUTHORIZED;
  }
  if (login.authority < kAuthConnect) {
    why = "user '" + login.user + "' not authorised to connect";
    return JXRC_NOT_AUTHORIZED;
  }
  who.user = login.user;
  who.authority = login.authority;
  return JXRC_NONE;
}

int32_t authenticate(Store &store, const PeerAddress &peer, const jxqp::HelloRequest &hello,
                     Identity &who, std::string &why) {
  Login login = beginLogin(store, peer, hello);
  const bool matched = login.needsPassword && verifyPassword(login.password, login.hash);
  return finishLogin(login, matched, who, why);
}

}  // namespace jxqm
