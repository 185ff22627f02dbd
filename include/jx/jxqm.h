/*
 * jxqm.h - the queue-manager interface: connect, open, put, get, inquire,
 * set and units of work, with the records they exchange.
 *
 * Every record below is a binary format with fixed offsets and widths,
 * identical on 32-bit and 64-bit builds (no pointer fields). Integers are
 * 32-bit in the machine's byte order; character fields are fixed width,
 * blank or zero padded, never terminated.
 *
 * Each call reports through a completion code (JXCC_*) and a reason
 * (JXRC_*); both are written on every path.
 */
#ifndef JX_JXQM_H
#define JX_JXQM_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/* Completion codes (JXCC_*) and reasons (JXRC_*), with their words. */
#include <jx/jxreasons.h>
/* Attribute selectors (JXIA_*, JXCA_*), with their words. */
#include <jx/jxattrs.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define JXQM_EXPORT __attribute__((visibility("default")))
#else
#define JXQM_EXPORT
#endif

/* ------------------------------------------------------------------ */
/* Lengths and limits                                                  */
/* ------------------------------------------------------------------ */

#define JX_STRUC_ID_LENGTH 4
#define JX_Q_NAME_LENGTH 48
#define JX_Q_MGR_NAME_LENGTH 48
#define JX_MSG_ID_LENGTH 24
#define JX_CORREL_ID_LENGTH 24
#define JX_GROUP_ID_LENGTH 24
#define JX_FORMAT_LENGTH 8
#define JX_Q_DESC_LENGTH 64
#define JX_CONN_NAME_LENGTH 264
#define JX_USER_ID_LENGTH 64
#define JX_PASSWORD_LENGTH 64
#define JX_USER_IDENTIFIER_LENGTH 12 /* the message descriptor's user identifier */
#define JX_ACCOUNTING_TOKEN_LENGTH 32
#define JX_APPL_IDENTITY_DATA_LENGTH 32
#define JX_APPL_NAME_LENGTH 28
#define JX_APPL_ORIGIN_DATA_LENGTH 4
#define JX_PUT_DATE_LENGTH 8 /* YYYYMMDD */
#define JX_PUT_TIME_LENGTH 8 /* HHMMSSTH */
#define JX_DATE_LENGTH 10    /* "yyyy-mm-dd" in attributes */
#define JX_TIME_LENGTH 8     /* "hh.mm.ss" in attributes */
#define JX_CONNECTION_ID_LENGTH 16
#define JX_OPERATION_LENGTH 32 /* what an authority event says was refused */
#define JX_MAX_MSG_LENGTH (4 * 1024 * 1024) /* largest message a queue may allow */
#define JX_MAX_Q_DEPTH 999999999            /* largest maximum depth of a queue */
#define JX_MAX_SELECTORS 256                /* selectors of one JXINQ or JXSET */

/* ------------------------------------------------------------------ */
/* Options                                                             */
/* ------------------------------------------------------------------ */

/* Open options (JXOPEN). One input option at most. */
#define JXOO_INPUT_AS_Q_DEF 1
#define JXOO_INPUT_SHARED 2
#define JXOO_INPUT_EXCLUSIVE 4
#define JXOO_OUTPUT 16
#define JXOO_INQUIRE 32
#define JXOO_SET 64
#define JXOO_FAIL_IF_QUIESCING 8192

/* Close options (JXCLOSE). */
#define JXCO_NONE 0
#define JXCO_DELETE 1       /* delete a dynamic queue that is empty */
#define JXCO_DELETE_PURGE 2 /* delete a dynamic queue and its messages */

/* Put-message options. Without either syncpoint option a put is outside any unit of work. */
#define JXPMO_NONE 0
#define JXPMO_SYNCPOINT 2
#define JXPMO_NO_SYNCPOINT 4
#define JXPMO_NEW_MSG_ID 64     /* accepted: every put gets a new message identifier anyway */
#define JXPMO_NEW_CORREL_ID 128 /* the queue manager generates the correlation identifier */
#define JXPMO_FAIL_IF_QUIESCING 8192

/* Get-message options. */
#define JXGMO_NONE 0
#define JXGMO_WAIT 1
#define JXGMO_SYNCPOINT 2
#define JXGMO_NO_SYNCPOINT 4
#define JXGMO_ACCEPT_TRUNCATED_MSG 64
#define JXGMO_FAIL_IF_QUIESCING 8192
#define JXGMO_CONVERT 16384 /* accepted; messages are delivered in the encoding they were put */
#define JXWI_UNLIMITED (-1)

/* Get match options: an identifier of all zero bytes matches any message. */
#define JXMO_NONE 0
#define JXMO_MATCH_MSG_ID 1
#define JXMO_MATCH_CORREL_ID 2

/* Message descriptor values. */
#define JXMT_REQUEST 1
#define JXMT_REPLY 2
#define JXMT_REPORT 4
#define JXMT_DATAGRAM 8
#define JXEI_UNLIMITED (-1)
#define JXENC_NATIVE 546
#define JXPRI_AS_Q_DEF (-1)
#define JXPER_NOT_PERSISTENT 0
#define JXPER_PERSISTENT 1
#define JXPER_AS_Q_DEF 2
#define JXFMT_NONE "        "
#define JXFMT_STRING "JXSTR   "

/* Object types. A queue manager is opened with a blank or its own name,
 * for inquire (and set, by administrators) of its attributes. */
#define JXOT_Q 1
#define JXOT_Q_MGR 2

/* Queue types and definition types. */
#define JXQT_LOCAL 1
#define JXQT_MODEL 2
#define JXQDT_PREDEFINED 1
#define JXQDT_PERMANENT_DYNAMIC 2
#define JXQDT_TEMPORARY_DYNAMIC 3

/* Values of the inhibit attributes. */
#define JXQA_GET_ALLOWED 0
#define JXQA_GET_INHIBITED 1
#define JXQA_PUT_ALLOWED 0
#define JXQA_PUT_INHIBITED 1

/* Values of JXIA_TRANSPORT. */
#define JXTRANSPORT_LOCAL 1
#define JXTRANSPORT_TCP 2

/* Attribute selectors (JXINQ, JXSET): every JXIA_* (integers) and JXCA_*
 * (strings) is named in jxattrs.h with the word it goes by. */
#define JXIA_FIRST 1
#define JXIA_LAST 2000
#define JXCA_FIRST 2001
#define JXCA_LAST 4000

/* Begin options (JXBEGIN). */
#define JXBO_NONE 0

/* Values left in handles made unusable by JXDISC and JXCLOSE. */
#define JXHC_UNUSABLE_HCONN (-1)
#define JXHO_UNUSABLE_HOBJ (-1)

/* Connect options (JXCNO). */
#define JXCNO_NONE 0

/* ------------------------------------------------------------------ */
/* Records                                                             */
/* ------------------------------------------------------------------ */

/* Message descriptor. Version 1 is the first 324 bytes (JXMD1); version 2
 * adds the group fields. Calls read and write only as many bytes as the
 * version says. */
typedef struct tagJXMD {
  char StrucId[JX_STRUC_ID_LENGTH];      /* 0 "MD  " */
  int32_t Version;                       /* 4 1 */
  int32_t Report;                        /* 8 0 */
  int32_t MsgType;                       /* 12 JXMT_DATAGRAM */
  int32_t Expiry;                        /* 16 tenths of a second, JXEI_UNLIMITED */
  int32_t Feedback;                      /* 20 0 */
  int32_t Encoding;                      /* 24 JXENC_NATIVE */
  int32_t CodedCharSetId;                /* 28 0 */
  char Format[JX_FORMAT_LENGTH];         /* 32 blanks */
  int32_t Priority;                      /* 40 JXPRI_AS_Q_DEF; kept, delivery is in arrival order */
  int32_t Persistence;                   /* 44 JXPER_AS_Q_DEF */
  uint8_t MsgId[JX_MSG_ID_LENGTH];       /* 48 zero: the put generates one */
  uint8_t CorrelId[JX_CORREL_ID_LENGTH]; /* 72 zero */
  int32_t BackoutCount;                  /* 96 0 */
  char ReplyToQ[JX_Q_NAME_LENGTH];       /* 100 */
  char ReplyToQMgr[JX_Q_MGR_NAME_LENGTH];              /* 148 */
  char UserIdentifier[JX_USER_IDENTIFIER_LENGTH];      /* 196 set by the put */
  uint8_t AccountingToken[JX_ACCOUNTING_TOKEN_LENGTH]; /* 208 */
  char ApplIdentityData[JX_APPL_IDENTITY_DATA_LENGTH]; /* 240 */
  int32_t PutApplType;                                 /* 272 */
  char PutApplName[JX_APPL_NAME_LENGTH];               /* 276 */
  char PutDate[JX_PUT_DATE_LENGTH];                    /* 304 YYYYMMDD, set by the put */
  char PutTime[JX_PUT_TIME_LENGTH];                    /* 312 HHMMSSTH, set by the put */
  char ApplOriginData[JX_APPL_ORIGIN_DATA_LENGTH];     /* 320 */
  uint8_t GroupId[JX_GROUP_ID_LENGTH];                 /* 324 version 2 */
  int32_t MsgSeqNumber;                                /* 348 1 */
  int32_t Offset;                                      /* 352 0 */
  int32_t MsgFlags;                                    /* 356 0 */
  int32_t OriginalLength;                              /* 360 -1 */
} JXMD;                                                /* 364 */

#define JXMD_VERSION_1 1
#define JXMD_VERSION_2 2
#define JXMD_LENGTH_1 324
#define JXMD_LENGTH_2 364

/* Put-message options. */
typedef struct tagJXPMO {
  char StrucId[JX_STRUC_ID_LENGTH];            /* 0 "PMO " */
  int32_t Version;                             /* 4 1 */
  int32_t Options;                             /* 8 0 */
  int32_t Timeout;                             /* 12 -1 */
  int32_t Context;                             /* 16 0 */
  int32_t KnownDestCount;                      /* 20 set by the put */
  int32_t UnknownDestCount;                    /* 24 */
  int32_t InvalidDestCount;                    /* 28 */
  char ResolvedQName[JX_Q_NAME_LENGTH];        /* 32 set by the put */
  char ResolvedQMgrName[JX_Q_MGR_NAME_LENGTH]; /* 80 set by the put */
  int32_t RecsPresent;                         /* 128 */
  int32_t PutMsgRecFields;                     /* 132 */
  int32_t PutMsgRecOffset;                     /* 136 */
  int32_t ResponseRecOffset;                   /* 140 */
  int32_t Reserved1;                           /* 144 */
  int32_t Reserved2;                           /* 148 */
} JXPMO;                                       /* 152 */

/* Object descriptor. */
typedef struct tagJXOD {
  char StrucId[JX_STRUC_ID_LENGTH];          /* 0 "OD  " */
  int32_t Version;                           /* 4 1 */
  int32_t ObjectType;                        /* 8 JXOT_Q */
  char ObjectName[JX_Q_NAME_LENGTH];         /* 12 on return from a model: the new queue's name */
  char ObjectQMgrName[JX_Q_MGR_NAME_LENGTH]; /* 60 blank/zero: the connected queue manager */
  char DynamicQName[JX_Q_NAME_LENGTH]; /* 108 "AJX.*": a trailing '*' asks for a unique name */
  char AlternateUserId[JX_USER_IDENTIFIER_LENGTH]; /* 156 */
  int32_t RecsPresent;                             /* 168 */
  int32_t KnownDestCount;                          /* 172 */
  int32_t UnknownDestCount;                        /* 176 */
  int32_t InvalidDestCount;                        /* 180 */
  int32_t ObjectRecOffset;                         /* 184 */
  int32_t ResponseRecOffset;                       /* 188 */
  int32_t Reserved1;                               /* 192 */
  int32_t Reserved2;                               /* 196 */
  uint8_t AlternateSecurityId[40];                 /* 200 */
  char ResolvedQName[JX_Q_NAME_LENGTH];            /* 240 set by the open */
  char ResolvedQMgrName[JX_Q_MGR_NAME_LENGTH];     /* 288 set by the open */
} JXOD;                                            /* 336 */

/* Get-message options. */
typedef struct tagJXGMO {
  char StrucId[JX_STRUC_ID_LENGTH];     /* 0 "GMO " */
  int32_t Version;                      /* 4 1 */
  int32_t Options;                      /* 8 0 */
  int32_t WaitInterval;                 /* 12 milliseconds, 0; JXWI_UNLIMITED */
  int32_t Signal1;                      /* 16 */
  int32_t Signal2;                      /* 20 */
  char ResolvedQName[JX_Q_NAME_LENGTH]; /* 24 set by the get */
  int32_t MatchOptions;                 /* 72 JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID */
  char GroupStatus;                     /* 76 ' ' */
  char SegmentStatus;                   /* 77 ' ' */
  char Segmentation;                    /* 78 ' ' */
  char Reserved1;                       /* 79 ' ' */
  uint8_t MsgToken[16];                 /* 80 */
  int32_t ReturnedLength;               /* 96 -1; set by the get */
} JXGMO;                                /* 100 */

/* Client connect options for JXCONNX. ConnectionName "host:port" (or
 * "host(port)") selects TCP; blank/zero selects the local socket unless the
 * environment variable JX_SERVER names a host and port. UserId and Password
 * are sent only over TCP. */
typedef struct tagJXCNO {
  char StrucId[JX_STRUC_ID_LENGTH];         /* 0 "CNO " */
  int32_t Version;                          /* 4 1 */
  int32_t Options;                          /* 8 0 */
  char ConnectionName[JX_CONN_NAME_LENGTH]; /* 12 */
  char UserId[JX_USER_ID_LENGTH];           /* 276 */
  char Password[JX_PASSWORD_LENGTH];        /* 340 */
} JXCNO;                                    /* 404 */

/* Begin options for JXBEGIN; a null pointer means the defaults. */
typedef struct tagJXBO {
  char StrucId[JX_STRUC_ID_LENGTH]; /* 0 "BO  " */
  int32_t Version;                  /* 4 1 */
  int32_t Options;                  /* 8 JXBO_NONE */
} JXBO;                             /* 12 */

/* Initialisers with each record's default. */
#define JX_Z4 0, 0, 0, 0
#define JX_Z8 JX_Z4, JX_Z4
#define JX_Z12 JX_Z8, JX_Z4
#define JX_Z16 JX_Z8, JX_Z8
#define JX_Z24 JX_Z16, JX_Z8
#define JX_Z32 JX_Z16, JX_Z16
#define JX_Z48 JX_Z32, JX_Z16

#define JXMD_DEFAULT                                                                            \
  {                                                                                             \
    {'M', 'D', ' ', ' '}, JXMD_VERSION_1, 0, JXMT_DATAGRAM, JXEI_UNLIMITED, 0, JXENC_NATIVE, 0, \
        {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '}, JXPRI_AS_Q_DEF, JXPER_AS_Q_DEF, {JX_Z24},     \
        {JX_Z24}, 0, {JX_Z48}, {JX_Z48}, {JX_Z12}, {JX_Z32}, {JX_Z32}, 0, {JX_Z16, JX_Z12},     \
        {JX_Z8}, {JX_Z8}, {JX_Z4}, {JX_Z24}, 1, 0, 0, -1                                        \
  }

#define JXPMO_DEFAULT \
  { {'P', 'M', 'O', ' '}, 1, JXPMO_NONE, -1, 0, 0, 0, 0, {JX_Z48}, {JX_Z48}, 0, 0, 0, 0, 0, 0 }

#define JXOD_DEFAULT                                                                         \
  {                                                                                          \
    {'O', 'D', ' ', ' '}, 1, JXOT_Q, {JX_Z48}, {JX_Z48},                                     \
        {'A', 'J', 'X', '.', '*', 0, 0, 0, JX_Z8, JX_Z32}, {JX_Z12}, 0, 0, 0, 0, 0, 0, 0, 0, \
        {JX_Z32, JX_Z8}, {JX_Z48}, {                                                         \
      JX_Z48                                                                                 \
    }                                                                                        \
  }

#define JXGMO_DEFAULT                                                              \
  {                                                                                \
    {'G', 'M', 'O', ' '}, 1, JXGMO_NONE, 0, 0, 0, {JX_Z48},                        \
        JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID, ' ', ' ', ' ', ' ', {JX_Z16}, -1 \
  }

#define JXCNO_DEFAULT                                \
  {                                                  \
    {'C', 'N', 'O', ' '}, 1, JXCNO_NONE, {0}, {0}, { \
      0                                              \
    }                                                \
  }

#define JXBO_DEFAULT \
  { {'B', 'O', ' ', ' '}, 1, JXBO_NONE }

/* For C callers: reset a record to its default. */
static inline void jxInitMd(JXMD *md) {
  static const JXMD d = JXMD_DEFAULT;
  memcpy(md, &d, sizeof d);
}
static inline void jxInitPmo(JXPMO *pmo) {
  static const JXPMO d = JXPMO_DEFAULT;
  memcpy(pmo, &d, sizeof d);
}
static inline void jxInitOd(JXOD *od) {
  static const JXOD d = JXOD_DEFAULT;
  memcpy(od, &d, sizeof d);
}
static inline void jxInitGmo(JXGMO *gmo) {
  static const JXGMO d = JXGMO_DEFAULT;
  memcpy(gmo, &d, sizeof d);
}
static inline void jxInitCno(JXCNO *cno) {
  static const JXCNO d = JXCNO_DEFAULT;
  memcpy(cno, &d, sizeof d);
}
static inline void jxInitBo(JXBO *bo) {
  static const JXBO d = JXBO_DEFAULT;
  memcpy(bo, &d, sizeof d);
}

/* ------------------------------------------------------------------ */
/* Calls (exported by libjxai; each forwards to its libjxiz stub)      */
/* ------------------------------------------------------------------ */

/* QMgrName: 48 characters, blank or zero padded. */
JXQM_EXPORT void JXCONN(char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXCONNX(char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn, int32_t *CompCode,
                         int32_t *Reason);
JXQM_EXPORT void JXDISC(int32_t *Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXOPEN(int32_t Hconn, JXOD *ObjDesc, int32_t Options, int32_t *Hobj,
                        int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXCLOSE(int32_t Hconn, int32_t *Hobj, int32_t Options, int32_t *CompCode,
                         int32_t *Reason);
JXQM_EXPORT void JXGET(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXGMO *GetMsgOpts,
                       int32_t BufferLength, void *Buffer, int32_t *DataLength, int32_t *CompCode,
                       int32_t *Reason);
JXQM_EXPORT void JXPUT(int32_t Hconn, int32_t Hobj, void *MsgDesc, JXPMO *PutMsgOpts,
                       int32_t BufferLength, void *Buffer, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXPUT1(int32_t Hconn, JXOD *ObjDesc, void *MsgDesc, JXPMO *PutMsgOpts,
                        int32_t BufferLength, void *Buffer, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXINQ(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
                       int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength,
                       char *CharAttrs, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXSET(int32_t Hconn, int32_t Hobj, int32_t SelectorCount, int32_t *Selectors,
                       int32_t IntAttrCount, int32_t *IntAttrs, int32_t CharAttrLength,
                       char *CharAttrs, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXCMIT(int32_t Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXBACK(int32_t Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void JXBEGIN(int32_t Hconn, void *BeginOpts, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zrtJXCONN(char *QMgrName, int32_t *Hconn, int32_t *CompCode, int32_t *Reason);
JXQM_EXPORT void zrtJXCONNX(char *QMgrName, JXCNO *ConnectOpts, int32_t *Hconn, int32_t *CompCode,
                            int32_t *Reason);

#ifdef __cplusplus
}

static_assert(sizeof(JXMD) == JXMD_LENGTH_2, "message descriptor is 364 bytes");
static_assert(offsetof(JXMD, Format) == 32 && offsetof(JXMD, Priority) == 40 &&
                  offsetof(JXMD, MsgId) == 48 && offsetof(JXMD, CorrelId) == 72 &&
                  offsetof(JXMD, BackoutCount) == 96 && offsetof(JXMD, ReplyToQ) == 100 &&
                  offsetof(JXMD, ReplyToQMgr) == 148 && offsetof(JXMD, UserIdentifier) == 196 &&
                  offsetof(JXMD, PutApplType) == 272 && offsetof(JXMD, PutDate) == 304 &&
                  offsetof(JXMD, GroupId) == JXMD_LENGTH_1 && offsetof(JXMD, MsgSeqNumber) == 348 &&
                  offsetof(JXMD, OriginalLength) == 360,
              "message descriptor layout");
static_assert(sizeof(JXPMO) == 152 && offsetof(JXPMO, Options) == 8 &&
                  offsetof(JXPMO, Timeout) == 12 && offsetof(JXPMO, ResolvedQName) == 32,
              "put-message options layout");
static_assert(sizeof(JXOD) == 336 && offsetof(JXOD, ObjectType) == 8 &&
                  offsetof(JXOD, ObjectName) == 12 && offsetof(JXOD, ObjectQMgrName) == 60 &&
                  offsetof(JXOD, DynamicQName) == 108 && offsetof(JXOD, ResolvedQName) == 240,
              "object descriptor layout");
static_assert(sizeof(JXGMO) == 100 && offsetof(JXGMO, Options) == 8 &&
                  offsetof(JXGMO, WaitInterval) == 12 && offsetof(JXGMO, ResolvedQName) == 24 &&
                  offsetof(JXGMO, MatchOptions) == 72 && offsetof(JXGMO, MsgToken) == 80 &&
                  offsetof(JXGMO, ReturnedLength) == 96,
              "get-message options layout");
static_assert(sizeof(JXCNO) == 404 && sizeof(JXBO) == 12, "connect and begin options layout");
#else
_Static_assert(sizeof(JXMD) == JXMD_LENGTH_2, "message descriptor is 364 bytes");
_Static_assert(sizeof(JXPMO) == 152, "put-message options are 152 bytes");
_Static_assert(sizeof(JXOD) == 336, "object descriptor is 336 bytes");
_Static_assert(sizeof(JXGMO) == 100, "get-message options are 100 bytes");
#endif

#endif /* JX_JXQM_H */
