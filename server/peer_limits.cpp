#include "peer_limits.hpp"

namespace jxqm {

namespace {

constexpr int64_t kMinuteMs = 60000;
// Failures are forgotten a minute after the last one.
constexpr int64_t kForgetFailuresMs = kMinuteMs;
// Beyond this many peers on record, the stale records go; a table of live
// ones that still overflows stops growing (the newest peers go unrecorded).
constexpr size_t kMaxRecords = 16384;
constexpr int kMaxDoublings = 30;

}  // namespace

void PeerLog::prune(int64_t nowMs) {
  std::erase_if(windows_, [&](const auto &w) {
    if (nowMs - w.second.startMs < kMinuteMs) return false;
    if (w.second.suppressed)
      write_(std::to_string(w.second.suppressed) + " more lines about peer " + w.first +
             " were suppressed");
    return true;
  });
}

void PeerLog::write(const std::string &peer, const std::string &line, int64_t nowMs) {
  if (linesPerMinute_ <= 0) return write_(line);
  auto it = windows_.find(peer);
  if (it == windows_.end()) {
    if (windows_.size() >= kMaxRecords) prune(nowMs);
    if (windows_.size() >= kMaxRecords) return;
    it = windows_.emplace(peer, Window{nowMs, 0, 0}).first;
  } else if (nowMs - it->second.startMs >= kMinuteMs) {
    if (it->second.suppressed)
      write_(std::to_string(it->second.suppressed) + " more lines about peer " + peer +
             " were suppressed");
    it->second = Window{nowMs, 0, 0};
  }
  Window &w = it->second;
  if (w.lines < linesPerMinute_) {
    ++w.lines;
    write_(line);
  } else if (w.suppressed++ == 0) {
    write_("peer " + peer + ": more than " + std::to_string(linesPerMinute_) +
           " lines this minute; the rest are suppressed");
  }
}

void LoginPenalties::prune(int64_t nowMs) {
  std::erase_if(failures_,
                [&](const auto &r) { return nowMs - r.second.lastMs >= kForgetFailuresMs; });
}

int64_t LoginPenalties::delayMs(const std::string &address, int64_t nowMs) {
  auto it = failures_.find(address);
  if (baseMs_ <= 0 || it == failures_.end()) return 0;
  const Record &r = it->second;
  if (nowMs - r.lastMs >= kForgetFailuresMs) {
    failures_.erase(it);
    return 0;
  }
  int64_t delay = baseMs_;
  for (int i = 1; i < r.count && i < kMaxDoublings && delay < PeerLimits::kLoginDelayMaxMs; ++i)
    delay *= 2;
  return delay < PeerLimits::kLoginDelayMaxMs ? delay : PeerLimits::kLoginDelayMaxMs;
}

void LoginPenalties::failed(const std::string &address, int64_t nowMs) {
  auto it = failures_.find(address);
  if (it == failures_.end()) {
    if (failures_.size() >= kMaxRecords) prune(nowMs);
    if (failures_.size() >= kMaxRecords) return;
    it = failures_.emplace(address, Record{}).first;
  } else if (nowMs - it->second.lastMs >= kForgetFailuresMs) {
    it->second.count = 0;
  }
  ++it->second.count;
  it->second.lastMs = nowMs;
}

}  // namespace jxqm
