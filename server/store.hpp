// The queue manager's durable state in one SQLite database (WAL): queue
// definitions, persistent messages, users and their authorities.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "attributes.hpp"

namespace jxqm {

// A queue's definition: its name and stored attributes.
struct QueueDef {
  std::string name;
  QueueSettings settings;
};

struct StoredMessage {
  int64_t id = 0;
  std::string queue;
  uint64_t seq = 0;
  std::string md;  // the descriptor in its wire encoding
  std::string data;
  int64_t expiresMs = 0;  // 0: never
  std::string putter;     // who put it, in full
  int32_t authority = 0;  // and with what authority
};

enum Authority : int32_t { kAuthNone = 0, kAuthConnect = 1, kAuthAdmin = 2 };

// What a lookup found: a read that failed is not an answer.
enum class Lookup { Found, Missing, Failed };

// Faults the store makes on purpose, so that tests can reach every failure
// path: jxqmgr and jxqm read one from JX_STORE_FAULT when they start.
//   write:N  the Nth write statement fails as an I/O error would
//   commit:N the Nth commit fails (the transaction is rolled back)
//   full:N   after N write statements the disk is full: every statement
//            that adds data fails with SQLITE_FULL, removals go on
//   read:N   the Nth read (a lookup or a load) fails as an I/O error would
struct StoreFault {
  enum class Kind { None, Write, Commit, Full, Read };
  Kind kind = Kind::None;
  int64_t n = 0;
  // False when `text` is not one of the forms above.
  static bool parse(std::string_view text, StoreFault &out);
  // The fault JX_STORE_FAULT names (none when it is not set); false, with
  // the reason, when it is set to no form above.
  static bool fromEnvironment(StoreFault &out, std::string &error);
};

// Room kept on the store's filesystem beside the database. When the disk
// fills it is given back, so that gets can still delete (their commits
// append to the log) and a checkpoint can move the log into the database.
inline constexpr int64_t kStoreReserveBytes = 4 << 20;

class Store {
 public:
  Store() = default;
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;
  ~Store() { (void)close(); }

  // Opens (creating when asked) the database and its schema.
  bool open(const std::string &path, bool create, std::string &err);
  // False when SQLite could not close the database cleanly.
  bool close();
  const std::string &lastError() const { return err_; }

  // Keeps the reserve at `path` (jxqmgr only). An old reserve is released
  // at once so that opening and recovery have room; refillReserve takes it
  // again once the database is open.
  void reserveAt(std::string path);
  // False when there is no room for it: the store is full until there is.
  bool refillReserve();
  // Reads, writes and commits are counted from here.
  void inject(const StoreFault &fault) {
    fault_ = fault;
    reads_ = writes_ = commits_ = 0;
  }
  // The disk was full at the last attempt to add data: statements that add
  // data are refused until room comes back (checked at most once a second).
  bool full() const { return full_; }

  bool begin();
  bool commit();
  bool rollback();
  // Whether a transaction is open (SQLite may have rolled one back itself
  // after an I/O error or a full disk).
  bool inTransaction() const;
  // A savepoint lets a change made of several statements fail as a whole
  // inside the turn's transaction.
  bool savepoint();
  bool release();
  bool rollbackToSavepoint();
  // Releases the savepoint when ok, else rolls back to it; returns ok.
  bool finishSavepoint(bool ok);

  // Queue definitions: a column for each stored queue attribute.
  bool loadQueues(std::vector<QueueDef> &out);
  bool saveQueue(const QueueDef &q);
  bool deleteQueue(std::string_view name);  // with its messages
  bool deleteMessages(std::string_view queue);
  // The queue manager's own settings: a key for each stored attribute.
  bool loadSettings(QMgrSettings &out);
  bool saveSettings(const QMgrSettings &s);

  bool loadMessages(const std::function<void(StoredMessage &&)> &each);
  // The row's identifier, 0 on failure.
  int64_t insertMessage(std::string_view queue, uint64_t seq, const std::vector<uint8_t> &md,
                        std::string_view data, int64_t expiresMs, std::string_view putter,
                        int32_t authority);
  bool deleteMessage(int64_t id);

  bool setUser(std::string_view name, const std::string *hash, int32_t authority);
  // The hash is empty when none is set (Failed: lastError says why).
  Lookup findUser(std::string_view name, std::string &hash, int32_t &authority);
  // Found: removed; Missing: there was no such user.
  Lookup deleteUser(std::string_view name);
  bool listUsers(std::vector<std::pair<std::string, int32_t>> &out);

  bool setMeta(std::string_view key, std::string_view value);
  // `value` is empty when the key is not set; false when the read failed.
  bool meta(std::string_view key, std::string &value);

 private:
  bool exec(const char *sql);
  // Every write statement passes here first: counts it for the fault
  // switch and refuses additions while the disk is full. `adds`: the
  // statement may need more room.
  bool admitWrite(bool adds);
  // Every read passes here first: counts it for the fault switch.
  bool admitRead();
  bool refuse(int code, const char *why);
  bool roomToSpare() const;
  bool step(sqlite3_stmt *s);
  // Adds the columns an older database lacks ("name declaration" each).
  bool addMissingColumns(const char *table, const std::vector<std::string> &columns);
  sqlite3_stmt *prepare(int slot, const char *sql);
  bool fail();

  sqlite3 *db_ = nullptr;
  std::string err_;
  std::vector<sqlite3_stmt *> stmts_;
  StoreFault fault_;
  int64_t reads_ = 0, writes_ = 0, commits_ = 0;
  bool full_ = false;
  std::string reservePath_;
  int64_t nextRoomCheckMs_ = 0;
};

}  // namespace jxqm
