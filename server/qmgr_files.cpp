#include "qmgr_files.hpp"

#include <fcntl.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>
#include <jx/jxqm.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>

#include "qm_paths.hpp"

namespace jxqm {

namespace {

bool makeDir(const std::string &path, std::string &err) {
  if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return true;
  err = "cannot create " + path + ": " + std::strerror(errno);
  return false;
}

QueueDef local(const char *name, const char *desc) {
  QueueDef q;
  q.name = name;
  q.settings.setText(*findAttribute(Object::Queue, JXCA_Q_DESC), desc);
  return q;
}

}  // namespace

bool validQueueName(const std::string &name) {
  if (name.empty() || name.size() > JX_Q_NAME_LENGTH) return false;
  for (char c : name) {
    bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
              c == '.' || c == '_' || c == '/' || c == '%';
    if (!ok) return false;
  }
  return true;
}

bool createQueueManager(const std::string &name, std::string &err) {
  if (!jxqp::validQMgrName(name)) {
    err = "invalid queue manager name '" + name + "' (1 to 48 of A-Z a-z 0-9 . _ %)";
    return false;
  }
  std::string root = xcsDataRoot();
  if (!makeDir(root, err) || !makeDir(root + "/" + jxqp::kQMgrsFolder, err)) return false;
  std::string dir = jxqp::qmgrDir(name);
  if (mkdir(dir.c_str(), 0700) != 0) {
    err = errno == EEXIST ? "queue manager " + name + " already exists"
                          : "cannot create " + dir + ": " + std::strerror(errno);
    return false;
  }
  Store st;
  if (!st.open(dir + "/" + jxqp::kDbFile, true, err)) return false;
  QueueDef model = local(kDefaultModelQueue, "default model for temporary dynamic queues");
  model.settings.set<JXIA_Q_TYPE>(JXQT_MODEL);
  model.settings.set<JXIA_DEFINITION_TYPE>(JXQDT_TEMPORARY_DYNAMIC);
  const QueueDef defs[] = {
      local("SYSTEM.DEFAULT.LOCAL.QUEUE", "default local queue"),
      model,
      local(kCommandQueue, "administration command queue"),
      local(JXQ_QMGR_EVENT, "queue manager events"),
      local(JXQ_PERFM_EVENT, "performance events"),
      local(JXQ_CONFIG_EVENT, "configuration events"),
      local("SYSTEM.ADMIN.COMMAND.EVENT", "command events"),
      local("SYSTEM.DEAD.LETTER.QUEUE", "undeliverable messages"),
  };
  bool ok = st.begin();
  for (const auto &q : defs) ok = ok && st.saveQueue(q);
  ok = ok && st.setMeta("name", name) && st.setMeta("created", std::to_string(time(nullptr))) &&
       st.commit();
  if (!ok) err = "cannot initialise database: " + st.lastError();
  return ok;
}

bool queueManagerRunning(const std::string &dir, long &pid) {
  pid = 0;
  int fd = open((dir + "/" + jxqp::kLockFile).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool running = flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(fd);
  if (running) {
    std::ifstream in(dir + "/" + jxqp::kPidFile);
    in >> pid;
  }
  return running;
}

}  // namespace jxqm
