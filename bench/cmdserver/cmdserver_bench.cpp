// The command server against the floors it is judged by, in one run:
//   InquireOneExecute  jxExecute of INQUIRE_QUEUE for one queue, every
//                      attribute, through a running queue manager
//   InquireOneDirect   the same request through the same queue-manager
//                      calls made directly, with a request written once
//   InquireOneServer   the command server's own part of it, in this process
//                      on an in-memory queue manager: the request read, the
//                      queue inquired, the reply written
//   InquireAll/N       jxExecute of INQUIRE_QUEUE for a generic name that
//                      matches N queues (items: queues)
//   PutGetIdle         another client's 100-byte put and get
//   PutGetBeside       the same while another process repeats the
//                      10,000-queue inquiry. A process, as another
//                      application would be: a thread of this one would
//                      share its address space, and the faults and TLB
//                      shootdowns of filling and freeing 10,000 reply bags
//                      would land on the measured client's thread.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <jx/jxai.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "administration.hpp"
#include "command_server.hpp"
#include "qm_paths.hpp"
#include "qmgr_fixture.hpp"
#include "queue_manager.hpp"
#include "store.hpp"

namespace {

constexpr int kQueues = 10000;
constexpr const char *kOneQueue = "B.0000";
constexpr const char *kThousand = "B.0*";  // B.0000 .. B.0999
constexpr const char *kAll = "B.*";
constexpr const char *kTrafficQueue = "TRAFFIC";
constexpr size_t kPayload = 100;
constexpr int32_t kReplyWaitMs = 60000;

std::string g_root;
const std::string g_qmgr = "CMDBENCHQM";

std::string queueName(int i) {
  char name[16];
  std::snprintf(name, sizeof name, "B.%04d", i);
  return name;
}

struct Connection {
  int32_t hconn = 0;
  bool open() {
    char name[JX_Q_MGR_NAME_LENGTH] = {};
    std::memcpy(name, g_qmgr.data(), g_qmgr.size());
    int32_t cc, rc;
    JXCONN(name, &hconn, &cc, &rc);
    return cc == JXCC_OK;
  }
  ~Connection() {
    int32_t cc, rc;
    if (hconn > 0) JXDISC(&hconn, &cc, &rc);
  }
};

// An inquiry of the queues a name matches, and the bag of its replies.
struct Inquiry {
  JXHBAG request = JXHB_NONE, response = JXHB_NONE;
  explicit Inquiry(const char *name) {
    int32_t cc, rc;
    jxCreateBag(JXBAG_ADMIN, &request, &cc, &rc);
    jxCreateBag(JXBAG_ADMIN, &response, &cc, &rc);
    jxAddString(request, JXCA_Q_NAME, static_cast<int32_t>(std::strlen(name)), name, &cc, &rc);
  }
  ~Inquiry() {
    int32_t cc, rc;
    for (JXHBAG *bag : {&request, &response})
      if (*bag != JXHB_NONE) jxDeleteBag(bag, &cc, &rc);
  }
  // The number of replies, or -1 when the command failed.
  int32_t execute(int32_t hconn) {
    int32_t cc, rc, replies = 0;
    jxExecute(hconn, JXCMD_INQUIRE_QUEUE, JXHB_NONE, request, response, 0, 0, &cc, &rc);
    if (cc != JXCC_OK) return -1;
    jxCountItems(response, JXSEL_REPLY_BAG, &replies, &cc, &rc);
    return replies;
  }
};

void InquireOneExecute(benchmark::State &state) {
  Connection c;
  Inquiry inquiry(kOneQueue);
  if (!c.open() || inquiry.execute(c.hconn) != 1) {
    state.SkipWithError("no reply to the inquiry");
    return;
  }
  for (auto _ : state)
    if (inquiry.execute(c.hconn) != 1) {
      state.SkipWithError("jxExecute failed");
      break;
    }
}

// An INQUIRE_QUEUE request for one queue, written with the queue manager's
// own codec.
std::string inquireRequest() {
  jxqm::PcfCodec codec;
  jxqm::PcfHeader header;
  header.type = JXPCF_TYPE_COMMAND;
  header.command = JXCMD_INQUIRE_QUEUE;
  std::string bytes;
  codec.encode(header, {{JXCA_Q_NAME, 0, kOneQueue}}, bytes);
  return bytes;
}

JXMD requestMd() {
  JXMD md = JXMD_DEFAULT;
  md.MsgType = JXMT_REQUEST;
  std::memcpy(md.Format, JXFMT_ADMIN, sizeof md.Format);
  return md;
}

// What jxExecute does at the least for one reply: the command queue opened
// and its readers inquired, a temporary reply queue, the put, the get, both
// closes.
bool directInquiry(int32_t hconn, std::string &request, std::vector<char> &buffer) {
  int32_t cc, rc, command, reply, readers = 0, selector = JXIA_OPEN_INPUT_COUNT, length;
  JXOD cod = JXOD_DEFAULT;
  std::strcpy(cod.ObjectName, JXQ_ADMIN_COMMAND);
  JXOPEN(hconn, &cod, JXOO_OUTPUT | JXOO_INQUIRE, &command, &cc, &rc);
  if (cc != JXCC_OK) return false;
  JXINQ(hconn, command, 1, &selector, 1, &readers, 0, nullptr, &cc, &rc);
  JXOD rod = JXOD_DEFAULT;
  std::strcpy(rod.ObjectName, JXQ_DEFAULT_MODEL);
  std::strcpy(rod.DynamicQName, JXQ_REPLY_TEMPLATE);
  JXOPEN(hconn, &rod, JXOO_INPUT_EXCLUSIVE, &reply, &cc, &rc);
  JXMD md = requestMd();
  std::memcpy(md.ReplyToQ, rod.ObjectName, sizeof md.ReplyToQ);
  JXPMO pmo = JXPMO_DEFAULT;
  pmo.Options = JXPMO_NO_SYNCPOINT;
  JXPUT(hconn, command, &md, &pmo, static_cast<int32_t>(request.size()), request.data(), &cc, &rc);
  JXMD rmd = JXMD_DEFAULT;
  std::memcpy(rmd.CorrelId, md.MsgId, sizeof rmd.CorrelId);
  JXGMO gmo = JXGMO_DEFAULT;
  gmo.Options = JXGMO_WAIT | JXGMO_NO_SYNCPOINT | JXGMO_CONVERT;
  gmo.WaitInterval = kReplyWaitMs;
  JXGET(hconn, reply, &rmd, &gmo, static_cast<int32_t>(buffer.size()), buffer.data(), &length, &cc,
        &rc);
  const bool ok = cc == JXCC_OK;
  JXCLOSE(hconn, &reply, JXCO_DELETE_PURGE, &cc, &rc);
  JXCLOSE(hconn, &command, JXCO_NONE, &cc, &rc);
  return ok;
}

void InquireOneDirect(benchmark::State &state) {
  Connection c;
  std::string request = inquireRequest();
  std::vector<char> buffer(64 * 1024);
  if (!c.open() || !directInquiry(c.hconn, request, buffer)) {
    state.SkipWithError("no reply to the inquiry");
    return;
  }
  for (auto _ : state)
    if (!directInquiry(c.hconn, request, buffer)) {
      state.SkipWithError("no reply");
      break;
    }
}

void InquireOneServer(benchmark::State &state) {
  jxqm::Store store;
  std::string err;
  if (!store.open(":memory:", true, err)) {
    state.SkipWithError("no in-memory store");
    return;
  }
  jxqm::QueueManager qm("BENCH", store);
  if (!qm.load() || !jxqm::Administration(qm).createQueue(kOneQueue, JXQT_LOCAL, {}, false).ok()) {
    state.SkipWithError("cannot set up the queue manager");
    return;
  }
  qm.endTurn();
  jxqm::PcfCodec codec;
  const std::string request = inquireRequest();
  const JXMD md = requestMd();
  const jxqm::Identity who{"bench", jxqm::kAuthConnect};
  size_t bytes = 0;
  for (auto _ : state) {
    jxqm::CommandRun run(qm, codec, who, md, request);
    while (run.step([&](std::string &&reply) { bytes += reply.size(); })) {
    }
  }
  benchmark::DoNotOptimize(bytes);
}

void InquireAll(benchmark::State &state) {
  const int64_t queues = state.range(0);
  Connection c;
  Inquiry inquiry(queues == kQueues ? kAll : kThousand);
  if (!c.open()) {
    state.SkipWithError("cannot connect to the queue manager");
    return;
  }
  for (auto _ : state)
    if (inquiry.execute(c.hconn) != queues) {
      state.SkipWithError("the inquiry did not answer every queue");
      break;
    }
  state.SetItemsProcessed(state.iterations() * queues);
}

void putGet(benchmark::State &state) {
  Connection c;
  int32_t cc, rc, hobj, length;
  if (!c.open()) {
    state.SkipWithError("cannot connect to the queue manager");
    return;
  }
  JXOD od = JXOD_DEFAULT;
  std::strcpy(od.ObjectName, kTrafficQueue);
  JXOPEN(c.hconn, &od, JXOO_OUTPUT | JXOO_INPUT_SHARED, &hobj, &cc, &rc);
  char payload[kPayload], buffer[kPayload];
  std::memset(payload, 'p', sizeof payload);
  for (auto _ : state) {
    JXMD md = JXMD_DEFAULT;
    JXPMO pmo = JXPMO_DEFAULT;
    pmo.Options = JXPMO_NO_SYNCPOINT;
    JXPUT(c.hconn, hobj, &md, &pmo, kPayload, payload, &cc, &rc);
    JXMD gmd = JXMD_DEFAULT;
    JXGMO gmo = JXGMO_DEFAULT;
    gmo.Options = JXGMO_NO_SYNCPOINT;
    JXGET(c.hconn, hobj, &gmd, &gmo, sizeof buffer, buffer, &length, &cc, &rc);
    if (cc != JXCC_OK) {
      state.SkipWithError("put/get failed");
      break;
    }
  }
}

void PutGetIdle(benchmark::State &state) {
  putGet(state);
}

constexpr const char *kInquirerFlag = "--inquirer";

// The inquiring process (this program with kInquirerFlag): one byte when
// connected, one after each inquiry, until its stop pipe closes; exit
// status 0 unless an inquiry failed.
int inquireUntilStopped(int stop, int report) {
  Connection c;
  Inquiry inquiry(kAll);
  const char byte = 1;
  if (!c.open() || write(report, &byte, 1) != 1) return 1;
  for (pollfd p{stop, POLLIN, 0}; poll(&p, 1, 0) == 0;) {
    if (inquiry.execute(c.hconn) != kQueues) return 2;
    if (write(report, &byte, 1) != 1) break;
  }
  return 0;
}

// Spawned, not forked: a fork would leave this process's pages to be
// copied on its first writes, inside the measurement.
pid_t spawnInquirer(int stop, int report) {
  const std::string stopFd = std::to_string(stop), reportFd = std::to_string(report);
  char *argv[] = {const_cast<char *>("cmdserver_bench"), const_cast<char *>(kInquirerFlag),
                  const_cast<char *>(stopFd.c_str()), const_cast<char *>(reportFd.c_str()),
                  nullptr};
  pid_t pid;
  return posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, environ) == 0 ? pid : -1;
}

// A pipe whose end `mine` stays in this process alone (close-on-exec).
bool pipeKeeping(int fds[2], int mine) {
  if (pipe(fds) != 0) return false;
  if (fcntl(fds[mine], F_SETFD, FD_CLOEXEC) == 0) return true;
  close(fds[0]);
  close(fds[1]);
  return false;
}

void PutGetBeside(benchmark::State &state) {
  int stop[2], report[2];
  if (!pipeKeeping(stop, 1)) {
    state.SkipWithError("no pipe");
    return;
  }
  if (!pipeKeeping(report, 0)) {
    close(stop[0]);
    close(stop[1]);
    state.SkipWithError("no pipe");
    return;
  }
  const pid_t inquirer = spawnInquirer(stop[0], report[1]);
  close(stop[0]);
  close(report[1]);
  char bytes[256];
  const bool connected = inquirer > 0 && read(report[0], bytes, 1) == 1;
  if (connected) putGet(state);
  close(stop[1]);
  int64_t inquiries = 0;
  for (ssize_t n; (n = read(report[0], bytes, sizeof bytes)) > 0;) inquiries += n;
  close(report[0]);
  int status = -1;
  if (inquirer > 0) waitpid(inquirer, &status, 0);
  if (!connected || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
    state.SkipWithError("the inquiring process failed");
  state.counters["inquiries"] = static_cast<double>(inquiries);
}

BENCHMARK(InquireOneExecute)->UseRealTime();
BENCHMARK(InquireOneDirect)->UseRealTime();
BENCHMARK(InquireOneServer);
BENCHMARK(InquireAll)->Arg(1000)->Arg(kQueues)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PutGetIdle)->UseRealTime();
BENCHMARK(PutGetBeside)->UseRealTime();

// The queues go in while the queue manager is stopped, in one transaction
// of its own core: ten thousand commands would each wait for a commit.
bool defineQueues() {
  jxqm::Store store;
  std::string err;
  if (!store.open(jxqp::qmgrDir(g_qmgr) + "/" + jxqp::kDbFile, false, err)) return false;
  jxqm::QueueManager qm(g_qmgr, store);
  if (!qm.load()) return false;
  jxqm::Administration admin(qm);
  bool ok = admin.createQueue(kTrafficQueue, JXQT_LOCAL, {}, false).ok();
  for (int i = 0; ok && i < kQueues; ++i)
    ok = admin.createQueue(queueName(i), JXQT_LOCAL, {}, false).ok();
  qm.endTurn();
  return ok;
}

bool setUp() {
  g_root = makeDataRoot();
  if (g_root.empty()) return false;
  const std::string jxqm = jxqmProgram();
  return runProgram({jxqm, "create", g_qmgr}) == 0 && defineQueues() &&
         runProgram({jxqm, "start", g_qmgr}) == 0;
}

void tearDown() {
  dropQueueManager(g_qmgr, g_root);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 4 && std::strcmp(argv[1], kInquirerFlag) == 0)
    return inquireUntilStopped(std::atoi(argv[2]), std::atoi(argv[3]));
  return benchmarkMain(argc, argv, "cmdserver_bench", setUp, tearDown);
}
