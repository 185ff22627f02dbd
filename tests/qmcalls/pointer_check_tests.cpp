// Every pointer a queue-manager call reads or writes is checked before it
// is touched: an unreadable page (PROT_NONE) or a read-only one where the
// call writes gives the argument's reason, and the call's other outputs
// are left as they were. The calls go through the public entries of the
// administration library, to a running queue manager.
#include <gtest/gtest.h>
#include <jx/jxqm.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

constexpr int32_t kUnset = -7;

// Two pages: the first unusable, the second read-only once filled.
class Pages {
 public:
  Pages() {
    size_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    base_ = static_cast<char *>(
        mmap(nullptr, 2 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  }
  ~Pages() { munmap(base_, 2 * size_); }
  void *none() const { return base_; }
  // A read-only copy of `n` bytes of `content`.
  template <class T>
  T *readOnly(const T &content) {
    char *p = base_ + size_;
    EXPECT_EQ(mprotect(p, size_, PROT_READ | PROT_WRITE), 0);
    std::memcpy(p, &content, sizeof content);
    EXPECT_EQ(mprotect(p, size_, PROT_READ), 0);
    return reinterpret_cast<T *>(p);
  }

 private:
  size_t size_ = 0;
  char *base_ = nullptr;
};

class PointerChecks : public ConnectedTest {
 protected:
  void SetUp() override {
    ConnectedTest::SetUp();
    if (IsSkipped()) return;
    hobj_ = openQueue(hconn_, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED | JXOO_INQUIRE | JXOO_SET);
    setName(od_.ObjectName, "Q1");
  }
  Pages pages_;
  int32_t hobj_ = 0;
  JXOD od_ = JXOD_DEFAULT;
  JXMD md_ = JXMD_DEFAULT;
  JXPMO pmo_ = JXPMO_DEFAULT;
  JXGMO gmo_ = JXGMO_DEFAULT;
  char buffer_[64] = "message";
  int32_t selectors_[1] = {JXIA_CURRENT_Q_DEPTH};
  int32_t ints_[1] = {0};
  char chars_[48] = {};
};

TEST_F(PointerChecks, EachArgumentGivesItsReason) {
  char qmgr[JX_Q_MGR_NAME_LENGTH] = {};
  setName(qmgr, qm_->name());
  int32_t handle = 0;
  const int32_t kUntouched = 4321;
  int32_t untouched = kUntouched;
  const int32_t *ro = pages_.readOnly(handle);
  void *none = pages_.none();
  auto *roInt = const_cast<int32_t *>(ro);
  auto *noneOd = static_cast<JXOD *>(none);
  auto *noneInts = static_cast<int32_t *>(none);
  auto *noneChars = static_cast<char *>(none);
  int32_t cc = -1, rc = -1;
  // Each row: the call with one argument made unusable, and its reason.
  struct Row {
    const char *what;
    int32_t reason;
    std::function<void()> call;
  };
  const Row rows[] = {
      {"JXCONN handle read-only", JXRC_HCONN_ERROR, [&] { JXCONN(qmgr, roInt, &cc, &rc); }},
      {"JXCONN name unreadable", JXRC_Q_MGR_NAME_ERROR,
       [&] { JXCONN(noneChars, &untouched, &cc, &rc); }},
      {"JXCONNX options unreadable", JXRC_CNO_ERROR,
       [&] { JXCONNX(qmgr, static_cast<JXCNO *>(none), &untouched, &cc, &rc); }},
      {"JXDISC handle read-only", JXRC_HCONN_ERROR, [&] { JXDISC(roInt, &cc, &rc); }},
      {"JXOPEN descriptor unreadable", JXRC_OD_ERROR,
       [&] { JXOPEN(hconn_, noneOd, JXOO_OUTPUT, &untouched, &cc, &rc); }},
      {"JXOPEN descriptor read-only", JXRC_OD_ERROR,
       [&] { JXOPEN(hconn_, pages_.readOnly(od_), JXOO_OUTPUT, &untouched, &cc, &rc); }},
      {"JXOPEN handle read-only", JXRC_HOBJ_ERROR,
       [&] { JXOPEN(hconn_, &od_, JXOO_OUTPUT, roInt, &cc, &rc); }},
      {"JXCLOSE handle read-only", JXRC_HOBJ_ERROR, [&] { JXCLOSE(hconn_, roInt, 0, &cc, &rc); }},
      {"JXPUT descriptor read-only", JXRC_MD_ERROR,
       [&] { JXPUT(hconn_, hobj_, pages_.readOnly(md_), &pmo_, 7, buffer_, &cc, &rc); }},
      {"JXPUT descriptor unreadable", JXRC_MD_ERROR,
       [&] { JXPUT(hconn_, hobj_, none, &pmo_, 7, buffer_, &cc, &rc); }},
      {"JXPUT options read-only", JXRC_PMO_ERROR,
       [&] { JXPUT(hconn_, hobj_, &md_, pages_.readOnly(pmo_), 7, buffer_, &cc, &rc); }},
      {"JXPUT buffer unreadable", JXRC_BUFFER_ERROR,
       [&] { JXPUT(hconn_, hobj_, &md_, &pmo_, 7, none, &cc, &rc); }},
      {"JXPUT1 descriptor unreadable", JXRC_OD_ERROR,
       [&] { JXPUT1(hconn_, noneOd, &md_, &pmo_, 7, buffer_, &cc, &rc); }},
      {"JXPUT1 buffer unreadable", JXRC_BUFFER_ERROR,
       [&] { JXPUT1(hconn_, &od_, &md_, &pmo_, 7, none, &cc, &rc); }},
      {"JXGET descriptor read-only", JXRC_MD_ERROR,
       [&] {
         JXGET(hconn_, hobj_, pages_.readOnly(md_), &gmo_, 64, buffer_, &untouched, &cc, &rc);
       }},
      {"JXGET options read-only", JXRC_GMO_ERROR,
       [&] {
         JXGET(hconn_, hobj_, &md_, pages_.readOnly(gmo_), 64, buffer_, &untouched, &cc, &rc);
       }},
      {"JXGET buffer read-only", JXRC_BUFFER_ERROR,
       [&] { JXGET(hconn_, hobj_, &md_, &gmo_, 64, roInt, &untouched, &cc, &rc); }},
      {"JXGET data length read-only", JXRC_DATA_LENGTH_ERROR,
       [&] { JXGET(hconn_, hobj_, &md_, &gmo_, 64, buffer_, roInt, &cc, &rc); }},
      {"JXINQ selectors unreadable", JXRC_SELECTOR_ERROR,
       [&] { JXINQ(hconn_, hobj_, 1, noneInts, 1, ints_, 0, nullptr, &cc, &rc); }},
      {"JXINQ integers read-only", JXRC_INT_ATTRS_ARRAY_ERROR,
       [&] { JXINQ(hconn_, hobj_, 1, selectors_, 1, roInt, 0, nullptr, &cc, &rc); }},
      {"JXINQ characters read-only", JXRC_CHAR_ATTR_LENGTH_ERROR,
       [&] {
         JXINQ(hconn_, hobj_, 1, selectors_, 1, ints_, 4, reinterpret_cast<char *>(roInt), &cc,
               &rc);
       }},
      {"JXSET integers unreadable", JXRC_INT_ATTRS_ARRAY_ERROR,
       [&] {
         int32_t inhibit[1] = {JXIA_INHIBIT_PUT};
         JXSET(hconn_, hobj_, 1, inhibit, 1, noneInts, 0, nullptr, &cc, &rc);
       }},
      {"JXSET characters unreadable", JXRC_CHAR_ATTR_LENGTH_ERROR,
       [&] { JXSET(hconn_, hobj_, 0, nullptr, 0, nullptr, 4, noneChars, &cc, &rc); }},
      {"JXBEGIN options unreadable", JXRC_OPTIONS_ERROR, [&] { JXBEGIN(hconn_, none, &cc, &rc); }},
  };
  for (const Row &r : rows) {
    SCOPED_TRACE(r.what);
    cc = rc = -1;
    r.call();
    EXPECT_EQ(cc, JXCC_FAILED);
    EXPECT_EQ(rc, r.reason);
    EXPECT_EQ(untouched, kUntouched) << "an output of a failed call";
  }
  // The connection is still good after all of them.
  EXPECT_EQ(put(hconn_, hobj_, "after the checks"), JXRC_NONE);
  EXPECT_EQ(get(hconn_, hobj_).data, "after the checks");
}

// Where the completion code or the reason cannot be written, a call does
// nothing at all: no fault, and nothing sent.
TEST_F(PointerChecks, AnUnwritableOutcomeLeavesEverythingAlone) {
  int32_t rc = kUnset, cc = kUnset;
  const int32_t zero = 0;
  auto *ro = const_cast<int32_t *>(pages_.readOnly(zero));
  JXPUT(hconn_, hobj_, &md_, &pmo_, 7, buffer_, ro, &rc);
  EXPECT_EQ(rc, kUnset);
  JXPUT(hconn_, hobj_, &md_, &pmo_, 7, buffer_, &cc, static_cast<int32_t *>(pages_.none()));
  EXPECT_EQ(cc, kUnset);
  EXPECT_EQ(get(hconn_, hobj_).rc, JXRC_NO_MSG_AVAILABLE) << "nothing was put";
}

}  // namespace
