#include "password_checker.hpp"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include "credentials.hpp"
#include "queue_manager.hpp"

namespace jxqm {

PasswordChecker::PasswordChecker() {
  fd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (fd_ < 0) {
    why_ = std::string("eventfd: ") + std::strerror(errno);
    return;
  }
  // The worker must not take the stop signal meant for the loop's signalfd:
  // it starts with every signal blocked.
  sigset_t all, old;
  sigfillset(&all);
  int rc = pthread_sigmask(SIG_SETMASK, &all, &old);
  if (rc != 0) {
    why_ = std::string("pthread_sigmask: ") + std::strerror(rc);
    return;
  }
  try {
    worker_ = std::thread([this] { work(); });
  } catch (const std::system_error &e) {
    why_ = std::string("cannot start the password worker: ") + e.what();
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

PasswordChecker::~PasswordChecker() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stop_ = true;
  }
  wake_.notify_all();
  if (worker_.joinable()) worker_.join();
  if (fd_ >= 0) close(fd_);
}

void PasswordChecker::submit(uint32_t link, std::string password, std::string hash,
                             int64_t notBeforeMs) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    due_.emplace(notBeforeMs, Job{link, std::move(password), std::move(hash)});
  }
  wake_.notify_one();
}

void PasswordChecker::cancel(uint32_t link) {
  std::lock_guard<std::mutex> lock(mu_);
  std::erase_if(due_, [&](const auto &j) { return j.second.link == link; });
  std::erase_if(verdicts_, [&](const Verdict &v) { return v.link == link; });
}

std::vector<PasswordChecker::Verdict> PasswordChecker::take() {
  uint64_t count;
  // Nothing to read is no failure: the verdicts are under the lock anyway.
  if (read(fd_, &count, sizeof count) < 0 && errno != EAGAIN) {
    std::lock_guard<std::mutex> lock(mu_);
    error_ = std::string("eventfd read: ") + std::strerror(errno);
  }
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<Verdict> out;
  out.swap(verdicts_);
  return out;
}

size_t PasswordChecker::outstanding() const {
  std::lock_guard<std::mutex> lock(mu_);
  return due_.size() + running_ + verdicts_.size();
}

std::string PasswordChecker::takeError() {
  std::lock_guard<std::mutex> lock(mu_);
  std::string e;
  e.swap(error_);
  return e;
}

void PasswordChecker::work() {
  // The first unknown user's check must cost what any other does: the
  // stand-in hash is made before any check is taken.
  dummyPasswordHash();
  std::unique_lock<std::mutex> lock(mu_);
  for (;;) {
    if (stop_) return;
    if (due_.empty()) {
      wake_.wait(lock);
      continue;
    }
    int64_t when = due_.begin()->first;
    int64_t now = QueueManager::nowMs();
    if (when > now) {
      wake_.wait_for(lock, std::chrono::milliseconds(when - now));
      continue;
    }
    Job job = std::move(due_.begin()->second);
    due_.erase(due_.begin());
    ++running_;
    lock.unlock();
    bool matched = verifyPassword(job.password, job.hash);
    lock.lock();
    --running_;
    verdicts_.push_back({job.link, matched});
    const uint64_t one = 1;
    // EAGAIN: the counter is full, so the loop is woken anyway.
    if (write(fd_, &one, sizeof one) < 0 && errno != EAGAIN)
      error_ = std::string("eventfd write: ") + std::strerror(errno);
  }
}

}  // namespace jxqm
