#include "store.hpp"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>

namespace jxqm {

namespace {

// The queues table has a column for each stored queue attribute; columns
// that an older database lacks are added with their defaults when it opens.
constexpr const char *kSchema = R"(
CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS queues(name TEXT PRIMARY KEY);
CREATE TABLE IF NOT EXISTS messages(
  id INTEGER PRIMARY KEY, queue TEXT NOT NULL, seq INTEGER NOT NULL, md BLOB NOT NULL,
  data BLOB NOT NULL, expires INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS messages_by_queue ON messages(queue);
CREATE TABLE IF NOT EXISTS users(
  name TEXT PRIMARY KEY, hash TEXT, authority INTEGER NOT NULL);
)";

const std::vector<const Attribute *> &queueColumns() {
  static const std::vector<const Attribute *> rows = [] {
    std::vector<const Attribute *> stored;
    for (const Attribute *a : attributesOf(Object::Queue))
      if (a->stored()) stored.push_back(a);
    return stored;
  }();
  return rows;
}

std::vector<std::string> queueColumnDeclarations() {
  std::vector<std::string> out;
  for (const Attribute *a : queueColumns())
    out.push_back(std::string(a->column) +
                  (a->integer() ? " INTEGER NOT NULL DEFAULT " + std::to_string(a->fallback)
                                : " TEXT NOT NULL DEFAULT ''"));
  return out;
}

// Who put a message, kept beside it so that a restart does not forget.
const std::vector<std::string> kMessageColumns = {"putter TEXT NOT NULL DEFAULT ''",
                                                  "authority INTEGER NOT NULL DEFAULT 0"};

enum Slot {
  kBegin,
  kCommit,
  kRollback,
  kSaveQueue,
  kDeleteQueue,
  kDeleteQueueMsgs,
  kInsertMsg,
  kDeleteMsg,
  kSavepoint,
  kRelease,
  kRollbackTo,
  kSlotCount
};

// How long a full store waits before it looks for room again.
constexpr int64_t kRoomCheckMs = 1000;

int bindText(sqlite3_stmt *s, int i, std::string_view v) {
  return sqlite3_bind_text(s, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
}

int64_t steadyMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string column(sqlite3_stmt *s, int i) {
  auto p = static_cast<const char *>(sqlite3_column_blob(s, i));
  return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(s, i))) : std::string();
}

}  // namespace

bool StoreFault::parse(std::string_view text, StoreFault &out) {
  static constexpr std::pair<std::string_view, Kind> kKinds[] = {{"write:", Kind::Write},
                                                                 {"commit:", Kind::Commit},
                                                                 {"full:", Kind::Full},
                                                                 {"read:", Kind::Read}};
  for (const auto &[prefix, kind] : kKinds) {
    if (!text.starts_with(prefix)) continue;
    const std::string_view number = text.substr(prefix.size());
    int64_t n = 0;
    auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), n);
    // full:0 is a disk full from the start; the others count from 1.
    if (ec != std::errc() || end != number.data() + number.size() ||
        n < (kind == Kind::Full ? 0 : 1))
      return false;
    out = {kind, n};
    return true;
  }
  return false;
}

bool StoreFault::fromEnvironment(StoreFault &out, std::string &error) {
  const char *text = getenv("JX_STORE_FAULT");
  if (!text || parse(text, out)) return true;
  error = std::string("JX_STORE_FAULT is write:N, commit:N, full:N or read:N, not '") + text + "'";
  return false;
}

bool Store::open(const std::string &path, bool create, std::string &err) {
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
  if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
    err = db_ ? sqlite3_errmsg(db_) : "cannot open database";
    close();
    return false;
  }
  if (sqlite3_busy_timeout(db_, 5000) != SQLITE_OK) {
    err = sqlite3_errmsg(db_);
    close();
    return false;
  }
  // FULL makes every commit durable once it returns, also in WAL mode.
  if (!exec("PRAGMA journal_mode=WAL") || !exec("PRAGMA synchronous=FULL") || !exec(kSchema) ||
      !addMissingColumns("queues", queueColumnDeclarations()) ||
      !addMissingColumns("messages", kMessageColumns)) {
    err = err_;
    close();
    return false;
  }
  stmts_.assign(kSlotCount, nullptr);
  return true;
}

bool Store::close() {
  // finalize repeats the last step's error, which its caller has had.
  for (auto s : stmts_) sqlite3_finalize(s);
  stmts_.clear();
  const bool ok = !db_ || sqlite3_close(db_) == SQLITE_OK;
  db_ = nullptr;
  return ok;
}

bool Store::fail() {
  return refuse(sqlite3_errcode(db_), sqlite3_errmsg(db_));
}

bool Store::refuse(int code, const char *why) {
  err_ = why;
  if (code == SQLITE_FULL && !full_) {
    full_ = true;
    nextRoomCheckMs_ = steadyMs() + kRoomCheckMs;
    // The reserve's room is what lets removals and the checkpoint go on. A
    // reserve already gone (never made, or released before) is no failure.
    if (!reservePath_.empty()) unlink(reservePath_.c_str());
  }
  return false;
}

void Store::reserveAt(std::string path) {
  reservePath_ = std::move(path);
  unlink(reservePath_.c_str());
}

bool Store::refillReserve() {
  if (reservePath_.empty()) return true;
  int fd = ::open(reservePath_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const bool ok = posix_fallocate(fd, 0, kStoreReserveBytes) == 0;
  ::close(fd);
  if (!ok) {
    unlink(reservePath_.c_str());  // a part of it would only take room
    full_ = true;
    nextRoomCheckMs_ = steadyMs() + kRoomCheckMs;
  }
  return ok;
}

// Room back means room for the reserve and as much again: taking the
// reserve back only to fill the disk with the next commit would give the
// log no room to delete.
bool Store::roomToSpare() const {
  struct statvfs fs {};
  if (reservePath_.empty()) return true;
  const std::string folder = reservePath_.find('/') == std::string::npos
                                 ? std::string(".")
                                 : reservePath_.substr(0, reservePath_.rfind('/'));
  return statvfs(folder.c_str(), &fs) == 0 &&
         static_cast<int64_t>(fs.f_bavail) * static_cast<int64_t>(fs.f_frsize) >=
             2 * kStoreReserveBytes;
}

bool Store::admitWrite(bool adds) {
  ++writes_;
  if (fault_.kind == StoreFault::Kind::Write && writes_ == fault_.n)
    return refuse(SQLITE_IOERR, "disk I/O error (injected)");
  if (!adds) return true;
  if (fault_.kind == StoreFault::Kind::Full && writes_ > fault_.n)
    return refuse(SQLITE_FULL, "database or disk is full (injected)");
  if (full_) {
    const int64_t now = steadyMs();
    if (now < nextRoomCheckMs_ || !roomToSpare() || !refillReserve()) {
      nextRoomCheckMs_ = std::max(nextRoomCheckMs_, now + kRoomCheckMs);
      return refuse(SQLITE_FULL, "database or disk is full");
    }
    full_ = false;
  }
  return true;
}

bool Store::admitRead() {
  ++reads_;
  if (fault_.kind == StoreFault::Kind::Read && reads_ == fault_.n)
    return refuse(SQLITE_IOERR, "disk I/O error reading (injected)");
  return true;
}

bool Store::exec(const char *sql) {
  char *msg = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &msg) != SQLITE_OK) {
    err_ = msg ? msg : "sqlite error";
    sqlite3_free(msg);
    return false;
  }
  return true;
}

bool Store::addMissingColumns(const char *table, const std::vector<std::string> &columns) {
  sqlite3_stmt *s = nullptr;
  std::string info = std::string("PRAGMA table_info(") + table + ")";
  if (sqlite3_prepare_v2(db_, info.c_str(), -1, &s, nullptr) != SQLITE_OK) return fail();
  std::vector<std::string> have;
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) have.push_back(column(s, 1));
  sqlite3_finalize(s);
  if (rc != SQLITE_DONE) return fail();
  for (const std::string &c : columns) {
    std::string name = c.substr(0, c.find(' '));
    if (std::find(have.begin(), have.end(), name) != have.end()) continue;
    std::string alter = std::string("ALTER TABLE ") + table + " ADD COLUMN " + c;
    if (!exec(alter.c_str())) return false;
  }
  return true;
}

sqlite3_stmt *Store::prepare(int slot, const char *sql) {
  sqlite3_stmt *&s = stmts_[static_cast<size_t>(slot)];
  if (!s && sqlite3_prepare_v2(db_, sql, -1, &s, nullptr) != SQLITE_OK) {
    fail();
    s = nullptr;
    return nullptr;
  }
  // reset repeats the last step's error, which its caller has had.
  sqlite3_reset(s);
  if (sqlite3_clear_bindings(s) != SQLITE_OK) {
    fail();
    return nullptr;
  }
  return s;
}

namespace {
bool stepDone(sqlite3_stmt *s) {
  return s && sqlite3_step(s) == SQLITE_DONE;
}
}  // namespace

bool Store::begin() {
  return stepDone(prepare(kBegin, "BEGIN IMMEDIATE")) || fail();
}

bool Store::commit() {
  ++commits_;
  if (fault_.kind == StoreFault::Kind::Commit && commits_ == fault_.n)
    return refuse(SQLITE_IOERR, "disk I/O error at commit (injected)");
  if (!stepDone(prepare(kCommit, "COMMIT"))) return fail();
  // A full disk leaves no room for the log to grow: move it into the
  // database now so that the next commits reuse it from its start. A
  // checkpoint that cannot finish leaves the log as it was, which only
  // keeps the log's old size.
  if (full_) sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  return true;
}

bool Store::rollback() {
  return !inTransaction() || stepDone(prepare(kRollback, "ROLLBACK")) || fail();
}

bool Store::inTransaction() const {
  return db_ && !sqlite3_get_autocommit(db_);
}

bool Store::savepoint() {
  return stepDone(prepare(kSavepoint, "SAVEPOINT work")) || fail();
}

bool Store::release() {
  return stepDone(prepare(kRelease, "RELEASE work")) || fail();
}

bool Store::rollbackToSavepoint() {
  // Rolling back to a savepoint keeps it: releasing it ends it.
  return (stepDone(prepare(kRollbackTo, "ROLLBACK TO work")) || fail()) && release();
}

bool Store::loadQueues(std::vector<QueueDef> &out) {
  const std::vector<const Attribute *> &columns = queueColumns();
  std::string sql = "SELECT name";
  for (const Attribute *a : columns) sql += std::string(", ") + a->column;
  sql += " FROM queues ORDER BY name";
  sqlite3_stmt *s = nullptr;
  if (!admitRead()) return false;
  if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) return fail();
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
    QueueDef q;
    q.name = column(s, 0);
    for (size_t i = 0; i < columns.size(); ++i) {
      const int at = static_cast<int>(i) + 1;
      if (columns[i]->integer())
        q.settings.setNumber(*columns[i], sqlite3_column_int(s, at));
      else
        q.settings.setText(*columns[i], column(s, at));
    }
    out.push_back(std::move(q));
  }
  sqlite3_finalize(s);
  return rc == SQLITE_DONE || fail();
}

bool Store::saveQueue(const QueueDef &q) {
  static const std::string sql = [] {
    std::string names = "name", values = "?1";
    int n = 1;
    for (const Attribute *a : queueColumns()) {
      names += std::string(", ") + a->column;
      values += ",?" + std::to_string(++n);
    }
    return "INSERT OR REPLACE INTO queues(" + names + ") VALUES(" + values + ")";
  }();
  if (!admitWrite(true)) return false;
  sqlite3_stmt *s = prepare(kSaveQueue, sql.c_str());
  if (!s) return false;
  int rc = bindText(s, 1, q.name);
  int at = 1;
  for (const Attribute *a : queueColumns()) {
    if (a->integer())
      rc |= sqlite3_bind_int(s, ++at, q.settings.number(*a));
    else
      rc |= bindText(s, ++at, q.settings.text(*a));
  }
  return (rc == SQLITE_OK && stepDone(s)) || fail();
}

bool Store::deleteMessages(std::string_view queue) {
  if (!admitWrite(false)) return false;
  sqlite3_stmt *s = prepare(kDeleteQueueMsgs, "DELETE FROM messages WHERE queue=?1");
  if (!s) return false;
  return (bindText(s, 1, queue) == SQLITE_OK && stepDone(s)) || fail();
}

bool Store::deleteQueue(std::string_view name) {
  if (!savepoint()) return false;
  bool ok = deleteMessages(name) && admitWrite(false);
  sqlite3_stmt *s = ok ? prepare(kDeleteQueue, "DELETE FROM queues WHERE name=?1") : nullptr;
  ok = s && ((bindText(s, 1, name) == SQLITE_OK && stepDone(s)) || fail());
  return finishSavepoint(ok);
}

bool Store::finishSavepoint(bool ok) {
  if (ok) return release();
  // The first failure is the one to report.
  const std::string why = err_;
  rollbackToSavepoint();
  err_ = why;
  return false;
}

bool Store::loadSettings(QMgrSettings &out) {
  if (!admitRead()) return false;
  for (const Attribute *a : attributesOf(Object::QMgr)) {
    if (!a->stored()) continue;
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db_, "SELECT value FROM meta WHERE key=?1", -1, &s, nullptr) !=
        SQLITE_OK)
      return fail();
    int rc = bindText(s, 1, a->column);
    if (rc == SQLITE_OK) rc = sqlite3_step(s);
    if (rc == SQLITE_ROW) {
      if (a->integer())
        out.setNumber(*a, sqlite3_column_int(s, 0));
      else
        out.setText(*a, column(s, 0));
    }
    sqlite3_finalize(s);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return fail();
  }
  return true;
}

bool Store::saveSettings(const QMgrSettings &settings) {
  if (!savepoint()) return false;
  bool ok = true;
  for (const Attribute *a : attributesOf(Object::QMgr)) {
    if (!ok || !a->stored()) continue;
    const std::string value =
        a->integer() ? std::to_string(settings.number(*a)) : settings.text(*a);
    ok = setMeta(a->column, value);
  }
  return finishSavepoint(ok);
}

bool Store::loadMessages(const std::function<void(StoredMessage &&)> &each) {
  sqlite3_stmt *s = nullptr;
  if (!admitRead()) return false;
  if (sqlite3_prepare_v2(
          db_,
          "SELECT id, queue, seq, md, data, expires, putter, authority FROM messages "
          "ORDER BY seq",
          -1, &s, nullptr) != SQLITE_OK)
    return fail();
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
    StoredMessage m;
    m.id = sqlite3_column_int64(s, 0);
    m.queue = column(s, 1);
    m.seq = static_cast<uint64_t>(sqlite3_column_int64(s, 2));
    m.md = column(s, 3);
    m.data = column(s, 4);
    m.expiresMs = sqlite3_column_int64(s, 5);
    m.putter = column(s, 6);
    m.authority = sqlite3_column_int(s, 7);
    each(std::move(m));
  }
  sqlite3_finalize(s);
  return rc == SQLITE_DONE || fail();
}

int64_t Store::insertMessage(std::string_view queue, uint64_t seq, const std::vector<uint8_t> &md,
                             std::string_view data, int64_t expiresMs, std::string_view putter,
                             int32_t authority) {
  if (!admitWrite(true)) return 0;
  sqlite3_stmt *s =
      prepare(kInsertMsg,
              "INSERT INTO messages(queue, seq, md, data, expires, putter, authority) "
              "VALUES(?1,?2,?3,?4,?5,?6,?7)");
  if (!s) return 0;
  int rc = bindText(s, 1, queue);
  rc |= sqlite3_bind_int64(s, 2, static_cast<sqlite3_int64>(seq));
  rc |= sqlite3_bind_blob(s, 3, md.data(), static_cast<int>(md.size()), SQLITE_STATIC);
  rc |= sqlite3_bind_blob(s, 4, data.data(), static_cast<int>(data.size()), SQLITE_STATIC);
  rc |= sqlite3_bind_int64(s, 5, expiresMs);
  rc |= bindText(s, 6, putter);
  rc |= sqlite3_bind_int(s, 7, authority);
  if (rc != SQLITE_OK || !stepDone(s)) {
    fail();
    return 0;
  }
  return sqlite3_last_insert_rowid(db_);
}

bool Store::deleteMessage(int64_t id) {
  if (!admitWrite(false)) return false;
  sqlite3_stmt *s = prepare(kDeleteMsg, "DELETE FROM messages WHERE id=?1");
  if (!s) return false;
  return (sqlite3_bind_int64(s, 1, id) == SQLITE_OK && stepDone(s)) || fail();
}

bool Store::setUser(std::string_view name, const std::string *hash, int32_t authority) {
  sqlite3_stmt *s = nullptr;
  const char *sql = hash ? "INSERT INTO users VALUES(?1,?2,?3) ON CONFLICT(name) DO UPDATE "
                           "SET hash=?2, authority=?3"
                         : "INSERT INTO users VALUES(?1,NULL,?3) ON CONFLICT(name) DO UPDATE "
                           "SET authority=?3";
  if (!admitWrite(true)) return false;
  if (sqlite3_prepare_v2(db_, sql, -1, &s, nullptr) != SQLITE_OK) return fail();
  int rc = bindText(s, 1, name);
  if (hash) rc |= bindText(s, 2, *hash);
  rc |= sqlite3_bind_int(s, 3, authority);
  bool ok = rc == SQLITE_OK && stepDone(s);
  sqlite3_finalize(s);
  return ok || fail();
}

Lookup Store::findUser(std::string_view name, std::string &hash, int32_t &authority) {
  sqlite3_stmt *s = nullptr;
  if (!admitRead()) return Lookup::Failed;
  if (sqlite3_prepare_v2(db_, "SELECT hash, authority FROM users WHERE name=?1", -1, &s, nullptr) !=
      SQLITE_OK) {
    fail();
    return Lookup::Failed;
  }
  int rc = bindText(s, 1, name);
  if (rc == SQLITE_OK) rc = sqlite3_step(s);
  if (rc == SQLITE_ROW) {
    hash = column(s, 0);
    authority = sqlite3_column_int(s, 1);
  }
  sqlite3_finalize(s);
  if (rc == SQLITE_ROW) return Lookup::Found;
  if (rc == SQLITE_DONE) return Lookup::Missing;
  fail();
  return Lookup::Failed;
}

Lookup Store::deleteUser(std::string_view name) {
  sqlite3_stmt *s = nullptr;
  if (!admitWrite(false)) return Lookup::Failed;
  if (sqlite3_prepare_v2(db_, "DELETE FROM users WHERE name=?1", -1, &s, nullptr) != SQLITE_OK) {
    fail();
    return Lookup::Failed;
  }
  const bool done = bindText(s, 1, name) == SQLITE_OK && stepDone(s);
  const bool removed = done && sqlite3_changes(db_) == 1;
  if (!done) fail();
  sqlite3_finalize(s);
  return !done ? Lookup::Failed : removed ? Lookup::Found : Lookup::Missing;
}

bool Store::listUsers(std::vector<std::pair<std::string, int32_t>> &out) {
  sqlite3_stmt *s = nullptr;
  if (!admitRead()) return false;
  if (sqlite3_prepare_v2(db_, "SELECT name, authority FROM users ORDER BY name", -1, &s, nullptr) !=
      SQLITE_OK)
    return fail();
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW)
    out.emplace_back(column(s, 0), sqlite3_column_int(s, 1));
  sqlite3_finalize(s);
  return rc == SQLITE_DONE || fail();
}

bool Store::setMeta(std::string_view key, std::string_view value) {
  sqlite3_stmt *s = nullptr;
  if (!admitWrite(true)) return false;
  if (sqlite3_prepare_v2(db_, "INSERT OR REPLACE INTO meta VALUES(?1,?2)", -1, &s, nullptr) !=
      SQLITE_OK)
    return fail();
  bool ok = (bindText(s, 1, key) | bindText(s, 2, value)) == SQLITE_OK && stepDone(s);
  sqlite3_finalize(s);
  return ok || fail();
}

bool Store::meta(std::string_view key, std::string &value) {
  sqlite3_stmt *s = nullptr;
  value.clear();
  if (!admitRead()) return false;
  if (sqlite3_prepare_v2(db_, "SELECT value FROM meta WHERE key=?1", -1, &s, nullptr) != SQLITE_OK)
    return fail();
  int rc = bindText(s, 1, key);
  if (rc == SQLITE_OK) rc = sqlite3_step(s);
  if (rc == SQLITE_ROW) value = column(s, 0);
  sqlite3_finalize(s);
  return rc == SQLITE_ROW || rc == SQLITE_DONE || fail();
}

}  // namespace jxqm
