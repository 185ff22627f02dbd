#include "admin_session.hpp"

#include <algorithm>
#include <cstring>

namespace jxadmin {
namespace {

// Strings longer than any attribute are still read whole: the first read
// reports the length and a second one takes it all.
constexpr JXLONG kStringBuffer = 512;

void copyField(char *field, size_t width, const std::string &value) {
  std::memset(field, 0, width);
  std::memcpy(field, value.data(), std::min(width, value.size()));
}

std::string trimmed(const char *data, size_t length) {
  while (length > 0 && (data[length - 1] == ' ' || data[length - 1] == '\0')) --length;
  return std::string(data, length);
}

// A bag deleted on every path.
struct Bag {
  JXHBAG handle = JXHB_NONE;
  ~Bag() {
    JXLONG cc, rc;
    if (handle != JXHB_NONE) jxDeleteBag(&handle, &cc, &rc);
  }
};

int32_t addParams(JXHBAG bag, const std::vector<Item> &params) {
  JXLONG cc = JXCC_OK, rc = JXRC_NONE;
  for (const Item &p : params) {
    if (p.isString)
      jxAddString(bag, p.selector, static_cast<JXLONG>(p.text.size()), p.text.data(), &cc, &rc);
    else
      jxAddInteger(bag, p.selector, p.number, &cc, &rc);
    if (cc != JXCC_OK) return rc;
  }
  return JXRC_NONE;
}

}  // namespace

std::vector<Item> readItems(JXHBAG bag, int32_t &reason) {
  std::vector<Item> items;
  JXLONG cc = JXCC_OK, rc = JXRC_NONE, count = 0;
  reason = JXRC_NONE;
  jxCountItems(bag, JXSEL_USER, &count, &cc, &rc);
  if (cc == JXCC_OK) items.reserve(static_cast<size_t>(count));
  // One buffer for every string of the bag; a longer string grows it.
  std::string buffer(kStringBuffer, '\0');
  for (JXLONG i = 0; cc == JXCC_OK && i < count; ++i) {
    Item item;
    JXLONG type = 0;
    jxInquireItemInfo(bag, JXSEL_USER, i, &item.selector, &type, &cc, &rc);
    if (cc != JXCC_OK) break;
    if (type == JXITEM_INTEGER) {
      jxInquireInteger(bag, JXSEL_USER, i, &item.number, &cc, &rc);
    } else if (type == JXITEM_STRING) {
      item.isString = true;
      JXLONG length = 0, ccsid = 0;
      jxInquireString(bag, JXSEL_USER, i, static_cast<JXLONG>(buffer.size()), buffer.data(),
                      &length, &ccsid, &cc, &rc);
      if (rc == JXRC_STRING_TRUNCATED) {
        buffer.resize(static_cast<size_t>(length));
        jxInquireString(bag, JXSEL_USER, i, length, buffer.data(), &length, &ccsid, &cc, &rc);
      }
      if (cc == JXCC_OK) item.text = trimmed(buffer.data(), static_cast<size_t>(length));
    } else {
      continue;  // nested bags carry nothing jxadmin shows
    }
    if (cc != JXCC_OK) break;
    items.push_back(std::move(item));
  }
  if (cc != JXCC_OK) reason = rc;
  return items;
}

const Item *find(const Record &record, int32_t selector) {
  for (const Item &item : record)
    if (item.selector == selector) return &item;
  return nullptr;
}

Session::~Session() {
  JXLONG cc, rc;
  if (connected_) JXDISC(&hconn_, &cc, &rc);
}

int32_t Session::connect(const Target &target, const Credentials &credentials) {
  label_ = target.label();
  char name[JX_Q_MGR_NAME_LENGTH];
  copyField(name, sizeof name, target.qmgr);
  JXLONG cc = JXCC_OK, rc = JXRC_NONE;
  if (target.server.empty() && credentials.user.empty()) {
    JXCONN(name, &hconn_, &cc, &rc);
  } else {
    JXCNO cno = JXCNO_DEFAULT;
    copyField(cno.ConnectionName, sizeof cno.ConnectionName, target.server);
    copyField(cno.UserId, sizeof cno.UserId, credentials.user);
    copyField(cno.Password, sizeof cno.Password, credentials.password);
    JXCONNX(name, &cno, &hconn_, &cc, &rc);
    // The password leaves no copy behind on the stack.
    std::memset(cno.Password, 0, sizeof cno.Password);
  }
  connected_ = cc != JXCC_FAILED;
  return cc == JXCC_FAILED ? rc : JXRC_NONE;
}

Outcome Session::execute(const Request &request, int32_t waitMs) const {
  Outcome out;
  out.qmgr = label_;
  auto fail = [&](int32_t reason) {
    out.failures.push_back({reason, 0});
    return out;
  };
  JXLONG cc = JXCC_OK, rc = JXRC_NONE;
  Bag options, admin, response;
  if (waitMs >= 0 || waitMs == JXWI_UNLIMITED) {
    jxCreateBag(JXBAG_ADMIN, &options.handle, &cc, &rc);
    if (cc == JXCC_OK) jxAddInteger(options.handle, JXSEL_WAIT_INTERVAL, waitMs, &cc, &rc);
    if (cc != JXCC_OK) return fail(rc);
  }
  jxCreateBag(JXBAG_ADMIN, &admin.handle, &cc, &rc);
  if (cc == JXCC_OK) jxCreateBag(JXBAG_ADMIN, &response.handle, &cc, &rc);
  if (cc != JXCC_OK) return fail(rc);
  if (int32_t reason = addParams(admin.handle, request.params)) return fail(reason);
  for (int32_t selector : request.inquire) {
    jxAddInquiry(admin.handle, selector, &cc, &rc);
    if (cc != JXCC_OK) return fail(rc);
  }
  jxExecute(hconn_, request.command, options.handle, admin.handle, response.handle, 0, 0, &cc, &rc);
  if (cc != JXCC_OK && rc != JXRC_COMMAND_FAILED) out.failures.push_back({rc, 0});
  JXLONG replies = 0, countCc, countRc;
  jxCountItems(response.handle, JXSEL_REPLY_BAG, &replies, &countCc, &countRc);
  for (JXLONG i = 0; countCc == JXCC_OK && i < replies; ++i) {
    JXHBAG reply = JXHB_NONE;
    JXLONG replyCc = JXCC_OK, replyReason = JXRC_NONE;
    jxInquireBag(response.handle, JXSEL_REPLY_BAG, i, &reply, &cc, &rc);
    if (cc == JXCC_OK) jxInquireInteger(reply, JXSYS_COMP_CODE, JXIDX_ONLY, &replyCc, &cc, &rc);
    if (cc == JXCC_OK) jxInquireInteger(reply, JXSYS_REASON, JXIDX_ONLY, &replyReason, &cc, &rc);
    if (cc != JXCC_OK) return fail(rc);
    int32_t readReason = JXRC_NONE;
    Record record = readItems(reply, readReason);
    if (readReason) return fail(readReason);
    if (replyCc == JXCC_OK) {
      out.records.push_back(std::move(record));
    } else {
      const Item *param = find(record, JXSEL_PARAMETER_IN_ERROR);
      out.failures.push_back({replyReason, param ? param->number : 0});
    }
  }
  return out;
}

}  // namespace jxadmin
