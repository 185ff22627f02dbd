// The queue manager's durable state in one SQLite database (WAL): queue
// definitions, persistent messages, users and their authorities.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace jxqm {

struct QueueDef {
  std::string name;
  int32_t qtype = 1;    // JXQT_*
  int32_t defType = 1;  // JXQDT_*
  int32_t maxDepth = 5000;
  int32_t maxMsgLength = 4 * 1024 * 1024;
  int32_t inhibitGet = 0;
  int32_t inhibitPut = 0;
  int32_t defPersistence = 0;
  int32_t defPriority = 0;
  std::string description;
};

struct StoredMessage {
  int64_t id = 0;
  std::string queue;
  uint64_t seq = 0;
  std::string md;  // the descriptor in its wire encoding
  std::string data;
  int64_t expiresMs = 0;  // 0: never
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

  bool loadQueues(std::vector<QueueDef> &out);
  bool saveQueue(const QueueDef &q);
  bool deleteQueue(std::string_view name);  // with its messages

  bool loadMessages(const std::function<void(StoredMessage &&)> &each);
  int64_t insertMessage(std::string_view queue, uint64_t seq, const std::vector<uint8_t> &md,
                        std::string_view data, int64_t expiresMs);  // 0 on failure
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
  sqlite3_stmt *prepare(int slot, const char *sql);
  bool fail();

  sqlite3 *db_ = nullptr;
  std::string err_;
  std::vector<sqlite3_stmt *> stmts_;
};

}  // namespace jxqm
