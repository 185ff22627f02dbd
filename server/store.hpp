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

class Store {
 public:
  Store() = default;
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;
  ~Store() { close(); }

  // Opens (creating when asked) the database and its schema.
  bool open(const std::string &path, bool create, std::string &err);
  void close();
  const std::string &lastError() const { return err_; }

  bool begin();
  bool commit();
  bool rollback();

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
  // false when the user is unknown; hash empty when none is set.
  bool findUser(std::string_view name, std::string &hash, int32_t &authority);
  bool deleteUser(std::string_view name);
  bool listUsers(std::vector<std::pair<std::string, int32_t>> &out);

  bool setMeta(std::string_view key, std::string_view value);
  std::string meta(std::string_view key);

 private:
  bool exec(const char *sql);
  // Adds the columns an older database lacks ("name declaration" each).
  bool addMissingColumns(const char *table, const std::vector<std::string> &columns);
  sqlite3_stmt *prepare(int slot, const char *sql);
  bool fail();

  sqlite3 *db_ = nullptr;
  std::string err_;
  std::vector<sqlite3_stmt *> stmts_;
};

}  // namespace jxqm
