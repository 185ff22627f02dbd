// Which argument of a queue-manager call is read or written, how much of
// it, and the reason when the caller's memory cannot be used that way.
// Every stub checks its pointers through these rows, in its order of
// checks, before it touches them: an unreadable descriptor or a read-only
// buffer is a reason for the caller, never a fault in the caller's process.
#pragma once

#include <jx/jxcs.h>
#include <jx/jxqm.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace jxiz {

// A structure with an eye-catcher: its reason, its length by version.
struct StructShape {
  char eye[5];
  int32_t reason;
  size_t lengthV1, lengthV2;  // lengthV2 is taken from version 2 on
  int32_t maxVersion;         // 0: any version from 1
};
inline constexpr StructShape kMd{"MD  ", JXRC_MD_ERROR, JXMD_LENGTH_1, JXMD_LENGTH_2,
                                 JXMD_VERSION_2};
inline constexpr StructShape kOd{"OD  ", JXRC_OD_ERROR, sizeof(JXOD), sizeof(JXOD), 0};
inline constexpr StructShape kPmo{"PMO ", JXRC_PMO_ERROR, sizeof(JXPMO), sizeof(JXPMO), 0};
inline constexpr StructShape kGmo{"GMO ", JXRC_GMO_ERROR, sizeof(JXGMO), sizeof(JXGMO), 0};
inline constexpr StructShape kCno{"CNO ", JXRC_CNO_ERROR, sizeof(JXCNO), sizeof(JXCNO), 0};
inline constexpr StructShape kBo{"BO  ", JXRC_OPTIONS_ERROR, sizeof(JXBO), sizeof(JXBO), 0};

// One argument: `length` bytes at `address` used in `mode` (XCS_CHECK_*),
// or a structure of `shape` (length taken from its version). An area of
// length 0 is not looked at, so it may be null.
struct Arg {
  const void *address;
  size_t length;
  int32_t mode;
  int32_t reason;
  const StructShape *shape = nullptr;
};

inline Arg area(const void *address, size_t length, int32_t mode, int32_t reason) {
  return {address, length, mode, reason, nullptr};
}
inline Arg structure(const void *address, const StructShape &shape, int32_t mode) {
  return {address, 0, mode, shape.reason, &shape};
}
// An int32_t the call writes (or reads and writes).
inline Arg output(const int32_t *address, int32_t reason, int32_t mode = XCS_CHECK_WRITE) {
  return area(address, sizeof *address, mode, reason);
}

inline bool usable(const void *address, size_t length, int32_t mode) {
  return length == 0 || xcsCheckPointer(address, length, mode) == 0;
}

// The eye-catcher and version are read only once they are known readable.
inline bool structUsable(const Arg &a) {
  constexpr size_t kHead = 8;  // StrucId and Version
  if (!a.address || !usable(a.address, kHead, XCS_CHECK_READ)) return false;
  const char *p = static_cast<const char *>(a.address);
  int32_t version;
  std::memcpy(&version, p + 4, sizeof version);
  if (std::memcmp(p, a.shape->eye, 4) != 0 || version < 1 ||
      (a.shape->maxVersion && version > a.shape->maxVersion))
    return false;
  return usable(a.address, version >= 2 ? a.shape->lengthV2 : a.shape->lengthV1, a.mode);
}

// The reason of the first argument that cannot be used, or 0.
inline int32_t firstUnusable(std::initializer_list<Arg> args) {
  for (const Arg &a : args) {
    const bool ok = a.shape ? structUsable(a) : usable(a.address, a.length, a.mode);
    if (!ok) return a.reason;
  }
  return JXRC_NONE;
}

// Where the completion code and reason go: when either cannot be written
// the call does nothing at all.
inline bool outcomeWritable(const int32_t *compCode, const int32_t *reason) {
  return compCode && reason && usable(compCode, sizeof *compCode, XCS_CHECK_WRITE) &&
         usable(reason, sizeof *reason, XCS_CHECK_WRITE);
}

}  // namespace jxiz
