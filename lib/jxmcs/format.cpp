// Text formatting shared by trace lines and failure records. Everything
// writes into caller buffers and reads the clock without locale or time-zone
// look-ups, so the fault handler can use it.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "cs_internal.hpp"

namespace jxcs {

void Text::addn(const char *s, size_t n) {
  if (len + 1 >= cap) return;
  size_t room = cap - 1 - len;
  if (n > room) n = room;
  memcpy(buf + len, s, n);
  len += n;
  buf[len] = 0;
}

void Text::add(const char *s) {
  addn(s, strlen(s));
}

void Text::vaddf(const char *fmt, va_list ap) {
  if (len + 1 >= cap) return;
  int n = vsnprintf(buf + len, cap - len, fmt, ap);
  if (n < 0) return;
  len += (size_t)n < cap - len ? (size_t)n : cap - len - 1;
}

void Text::addf(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vaddf(fmt, ap);
  va_end(ap);
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
static void civil(int64_t days, int &y, unsigned &m, unsigned &d) {
  days += 719468;
  int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  unsigned doe = (unsigned)(days - era * 146097);
  unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  unsigned mp = (5 * doy + 2) / 153;
  d = doy - (153 * mp + 2) / 5 + 1;
  m = mp < 10 ? mp + 3 : mp - 9;
  y = (int)(yoe + era * 400 + (m <= 2));
}

void addClock(Text &t, bool withDate) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  int64_t secs = ts.tv_sec;
  int64_t days = secs / 86400;
  int64_t rem = secs % 86400;
  if (rem < 0) {
    rem += 86400;
    days--;
  }
  if (withDate) {
    int y;
    unsigned m, d;
    civil(days, y, m, d);
    t.addf("%04d-%02u-%02u ", y, m, d);
  }
  t.addf("%02d:%02d:%02d.%06ld", (int)(rem / 3600), (int)(rem / 60 % 60), (int)(rem % 60),
         (long)(ts.tv_nsec / 1000));
}

void addHexLine(Text &t, uint32_t offset, const unsigned char *bytes, size_t n) {
  static const char hex[] = "0123456789ABCDEF";
  char line[96];
  size_t k = (size_t)snprintf(line, sizeof line, "%08X ", offset);
  for (size_t i = 0; i < 16; i++) {
    line[k++] = ' ';
    line[k++] = i < n ? hex[bytes[i] >> 4] : ' ';
    line[k++] = i < n ? hex[bytes[i] & 15] : ' ';
  }
  line[k++] = ' ';
  line[k++] = ' ';
  line[k++] = '|';
  for (size_t i = 0; i < n; i++)
    line[k++] = bytes[i] >= 0x20 && bytes[i] < 0x7F ? (char)bytes[i] : '.';
  line[k++] = '|';
  t.addn(line, k);
}

void addFunctionName(Text &t, uint32_t functionId) {
  const char *name = xtrFunctionName(functionId);
  if (name[0])
    t.add(name);
  else
    t.addf("%u/%u", (functionId >> 10) & 63u, functionId & 1023u);
}

bool writeAll(int fd, const char *p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += w;
    n -= (size_t)w;
  }
  return true;
}

void dumpLines(const void *address, uint32_t length, LineSink sink, void *ctx) {
  char buf[128];
  uint64_t badFrom = 0;
  bool bad = false;
  auto closeBad = [&](uint64_t end) {
    Text t(buf, sizeof buf);
    t.addf("%08X-%08X  not readable", (uint32_t)badFrom, (uint32_t)(end - 1));
    sink(ctx, buf, t.len);
    bad = false;
  };
  uint64_t off = 0;
  while (off < length) {
    uint32_t n = length - off < 16 ? (uint32_t)(length - off) : 16;
    unsigned char bytes[16];
    const char *at = (const char *)address + off;
    uint64_t next = off + 16;
    if (address && safeCopy(bytes, at, n)) {
      if (bad) closeBad(off);
      Text t(buf, sizeof buf);
      addHexLine(t, (uint32_t)off, bytes, n);
      sink(ctx, buf, t.len);
    } else {
      if (!bad) {
        bad = true;
        badFrom = off;
      }
      // When the line's own page is unreadable so is every line up to the
      // next page: no need to try them one by one.
      if (!address || !safeCopy(bytes, at, 1)) {
        uint64_t nextPage = (((uintptr_t)at | 4095u) + 1) - (uintptr_t)address;
        uint64_t firstLine = (nextPage + 15) / 16 * 16;
        if (!address) firstLine = length;
        if (firstLine > next) next = firstLine;
      }
    }
    off = next;
  }
  if (bad) closeBad(length);
}

}  // namespace jxcs
