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

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define JXQM_EXPORT __attribute__((visibility("default")))
#else
#define JXQM_EXPORT
#endif

/* ------------------------------------------------------------------ */
/* Lengths                                                             */
/* ------------------------------------------------------------------ */

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
#define JX_MAX_MSG_LENGTH (4 * 1024 * 1024) /* largest message a queue may allow */

/* ------------------------------------------------------------------ */
/* Completion codes and reasons                                        */
/* ------------------------------------------------------------------ */

#define JXCC_OK 0
#define JXCC_WARNING 1
#define JXCC_FAILED 2

#define JXRC_NONE 0
#define JXRC_BUFFER_ERROR 2004           /* buffer null or unusable for its length */
#define JXRC_BUFFER_LENGTH_ERROR 2005    /* negative buffer length */
#define JXRC_CHAR_ATTR_LENGTH_ERROR 2006 /* character-attribute length negative or null area */
#define JXRC_CHAR_ATTRS_TOO_SHORT 2008   /* character area shorter than the selected attributes */
#define JXRC_CONNECTION_BROKEN 2009      /* the queue manager went away during or before the call */
#define JXRC_DATA_LENGTH_ERROR 2010      /* data-length output pointer is null */
#define JXRC_EXPIRY_ERROR 2013           /* expiry neither positive nor unlimited */
#define JXRC_GET_INHIBITED 2016          /* gets are inhibited on the queue */
#define JXRC_HANDLE_NOT_AVAILABLE 2017   /* too many open handles on the connection */
#define JXRC_HCONN_ERROR 2018            /* connection handle not valid */
#define JXRC_HOBJ_ERROR 2019             /* object handle not valid for this connection */
#define JXRC_PRIORITY_ERROR 2020         /* priority outside -1..9 */
#define JXRC_INT_ATTR_COUNT_ERROR 2021   /* integer-attribute count negative */
#define JXRC_INT_ATTR_COUNT_TOO_SMALL 2022 /* fewer integer slots than integer selectors */
#define JXRC_INT_ATTRS_ARRAY_ERROR 2023    /* integer-attribute array null */
#define JXRC_SYNCPOINT_LIMIT_REACHED 2024  /* too many operations in one unit of work */
#define JXRC_MD_ERROR 2026              /* message descriptor null or wrong eye-catcher/version */
#define JXRC_MSG_TYPE_ERROR 2029        /* message type not 1, 2, 4 or 8 */
#define JXRC_MSG_TOO_BIG_FOR_Q 2030     /* message longer than the queue's maximum */
#define JXRC_MSG_TOO_BIG_FOR_Q_MGR 2031 /* message longer than JX_MAX_MSG_LENGTH */
#define JXRC_NO_MSG_AVAILABLE 2033      /* no matching message (within the wait interval) */
#define JXRC_NOT_AUTHORIZED 2035        /* the user may not connect, open or change this */
#define JXRC_NOT_OPEN_FOR_INPUT 2036
#define JXRC_NOT_OPEN_FOR_INQUIRE 2038
#define JXRC_NOT_OPEN_FOR_OUTPUT 2039
#define JXRC_NOT_OPEN_FOR_SET 2040
#define JXRC_OBJECT_IN_USE 2042     /* open conflicts with an exclusive input handle */
#define JXRC_OBJECT_TYPE_ERROR 2043 /* object type other than a queue */
#define JXRC_OD_ERROR 2044          /* object descriptor null or wrong eye-catcher/version */
#define JXRC_OPTION_NOT_VALID_FOR_TYPE 2045 /* e.g. close option 2 on a predefined queue */
#define JXRC_OPTIONS_ERROR 2046             /* options contain unknown or contradictory bits */
#define JXRC_PERSISTENCE_ERROR 2047         /* persistence not 0, 1 or 2 */
#define JXRC_PUT_INHIBITED 2051             /* puts are inhibited on the queue */
#define JXRC_Q_DELETED 2052                 /* the queue was deleted while this handle was open */
#define JXRC_Q_FULL 2053                    /* queue holds its maximum depth */
#define JXRC_Q_NOT_EMPTY 2055               /* delete without purge of a queue with messages */
#define JXRC_Q_MGR_NAME_ERROR 2058          /* queue-manager name not valid or not this one */
#define JXRC_Q_MGR_NOT_AVAILABLE 2059       /* no such queue manager, or it is not running */
#define JXRC_SELECTOR_COUNT_ERROR 2065      /* selector count negative or above 256 */
#define JXRC_SELECTOR_ERROR 2067 /* unknown selector, or not settable */
#define JXRC_STORAGE_NOT_AVAILABLE 2071
#define JXRC_TRUNCATED_MSG_ACCEPTED \
  2079 /* warning: message removed, only the part that fit returned */
#define JXRC_TRUNCATED_MSG_FAILED 2080  /* message left on the queue; data length gives its size */
#define JXRC_UNKNOWN_OBJECT_NAME 2085   /* no such queue */
#define JXRC_UNKNOWN_REMOTE_Q_MGR 2087  /* object queue-manager name is not this queue manager */
#define JXRC_WAIT_INTERVAL_ERROR 2090   /* wait interval below -1 */
#define JXRC_OBJECT_ALREADY_EXISTS 2100 /* dynamic queue name already in use */
#define JXRC_RESOURCE_PROBLEM 2102      /* the queue manager's store failed */
#define JXRC_UOW_IN_PROGRESS 2128       /* JXBEGIN while a unit of work is active */
#define JXRC_CNO_ERROR 2139             /* connect options null or wrong eye-catcher/version */
#define JXRC_OBJECT_NAME_ERROR 2152     /* malformed object or dynamic queue name */
#define JXRC_PMO_ERROR 2173             /* put options null or wrong eye-catcher/version */
#define JXRC_GMO_ERROR 2186             /* get options null or wrong eye-catcher/version */
#define JXRC_UNEXPECTED_ERROR 2195      /* a protocol violation from the other side */
#define JXRC_ATTR_VALUE_ERROR 2390      /* JXSET value outside the attribute's range */
#define JXRC_HOST_NOT_AVAILABLE 2538    /* TCP connection to host:port failed */

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

/* Object types. */
#define JXOT_Q 1

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

/* Integer attribute selectors (JXINQ, JXSET). */
#define JXIA_CURRENT_Q_DEPTH 3
#define JXIA_DEF_PERSISTENCE 5 /* settable */
#define JXIA_DEF_PRIORITY 6
#define JXIA_DEFINITION_TYPE 7
#define JXIA_INHIBIT_GET 9     /* settable */
#define JXIA_INHIBIT_PUT 10    /* settable */
#define JXIA_MAX_MSG_LENGTH 13 /* settable */
#define JXIA_MAX_Q_DEPTH 15    /* settable */
#define JXIA_OPEN_INPUT_COUNT 17
#define JXIA_OPEN_OUTPUT_COUNT 18
#define JXIA_Q_TYPE 20
#define JXIA_FIRST 1
#define JXIA_LAST 2000

/* Character attribute selectors. */
#define JXCA_Q_DESC 2013     /* 64 bytes, settable */
#define JXCA_Q_MGR_NAME 2015 /* 48 bytes */
#define JXCA_Q_NAME 2016     /* 48 bytes */
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
  char StrucId[4];             /* 0 "MD  " */
  int32_t Version;             /* 4 1 */
  int32_t Report;              /* 8 0 */
  int32_t MsgType;             /* 12 JXMT_DATAGRAM */
  int32_t Expiry;              /* 16 tenths of a second, JXEI_UNLIMITED */
  int32_t Feedback;            /* 20 0 */
  int32_t Encoding;            /* 24 JXENC_NATIVE */
  int32_t CodedCharSetId;      /* 28 0 */
  char Format[8];              /* 32 blanks */
  int32_t Priority;            /* 40 JXPRI_AS_Q_DEF; kept, delivery is in arrival order */
  int32_t Persistence;         /* 44 JXPER_AS_Q_DEF */
  uint8_t MsgId[24];           /* 48 zero: the put generates one */
  uint8_t CorrelId[24];        /* 72 zero */
  int32_t BackoutCount;        /* 96 0 */
  char ReplyToQ[48];           /* 100 */
  char ReplyToQMgr[48];        /* 148 */
  char UserIdentifier[12];     /* 196 set by the put */
  uint8_t AccountingToken[32]; /* 208 */
  char ApplIdentityData[32];   /* 240 */
  int32_t PutApplType;         /* 272 */
  char PutApplName[28];        /* 276 */
  char PutDate[8];             /* 304 YYYYMMDD, set by the put */
  char PutTime[8];             /* 312 HHMMSSTH, set by the put */
  char ApplOriginData[4];      /* 320 */
  uint8_t GroupId[24];         /* 324 version 2 */
  int32_t MsgSeqNumber;        /* 348 1 */
  int32_t Offset;              /* 352 0 */
  int32_t MsgFlags;            /* 356 0 */
  int32_t OriginalLength;      /* 360 -1 */
} JXMD;                        /* 364 */

#define JXMD_VERSION_1 1
#define JXMD_VERSION_2 2
#define JXMD_LENGTH_1 324
#define JXMD_LENGTH_2 364

/* Put-message options. */
typedef struct tagJXPMO {
  char StrucId[4];           /* 0 "PMO " */
  int32_t Version;           /* 4 1 */
  int32_t Options;           /* 8 0 */
  int32_t Timeout;           /* 12 -1 */
  int32_t Context;           /* 16 0 */
  int32_t KnownDestCount;    /* 20 set by the put */
  int32_t UnknownDestCount;  /* 24 */
  int32_t InvalidDestCount;  /* 28 */
  char ResolvedQName[48];    /* 32 set by the put */
  char ResolvedQMgrName[48]; /* 80 set by the put */
  int32_t RecsPresent;       /* 128 */
  int32_t PutMsgRecFields;   /* 132 */
  int32_t PutMsgRecOffset;   /* 136 */
  int32_t ResponseRecOffset; /* 140 */
  int32_t Reserved1;         /* 144 */
  int32_t Reserved2;         /* 148 */
} JXPMO;                     /* 152 */

/* Object descriptor. */
typedef struct tagJXOD {
  char StrucId[4];                 /* 0 "OD  " */
  int32_t Version;                 /* 4 1 */
  int32_t ObjectType;              /* 8 JXOT_Q */
  char ObjectName[48];             /* 12 on return from a model: the new queue's name */
  char ObjectQMgrName[48];         /* 60 blank/zero: the connected queue manager */
  char DynamicQName[48];           /* 108 "AJX.*": a trailing '*' asks for a unique name */
  char AlternateUserId[12];        /* 156 */
  int32_t RecsPresent;             /* 168 */
  int32_t KnownDestCount;          /* 172 */
  int32_t UnknownDestCount;        /* 176 */
  int32_t InvalidDestCount;        /* 180 */
  int32_t ObjectRecOffset;         /* 184 */
  int32_t ResponseRecOffset;       /* 188 */
  int32_t Reserved1;               /* 192 */
  int32_t Reserved2;               /* 196 */
  uint8_t AlternateSecurityId[40]; /* 200 */
  char ResolvedQName[48];          /* 240 set by the open */
  char ResolvedQMgrName[48];       /* 288 set by the open */
} JXOD;                            /* 336 */

/* Get-message options. */
typedef struct tagJXGMO {
  char StrucId[4];        /* 0 "GMO " */
  int32_t Version;        /* 4 1 */
  int32_t Options;        /* 8 0 */
  int32_t WaitInterval;   /* 12 milliseconds, 0; JXWI_UNLIMITED */
  int32_t Signal1;        /* 16 */
  int32_t Signal2;        /* 20 */
  char ResolvedQName[48]; /* 24 set by the get */
  int32_t MatchOptions;   /* 72 JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID */
  char GroupStatus;       /* 76 ' ' */
  char SegmentStatus;     /* 77 ' ' */
  char Segmentation;      /* 78 ' ' */
  char Reserved1;         /* 79 ' ' */
  uint8_t MsgToken[16];   /* 80 */
  int32_t ReturnedLength; /* 96 -1; set by the get */
} JXGMO;                  /* 100 */

/* Client connect options for JXCONNX. ConnectionName "host:port" (or
 * "host(port)") selects TCP; blank/zero selects the local socket unless the
 * environment variable JX_SERVER names a host and port. UserId and Password
 * are sent only over TCP. */
typedef struct tagJXCNO {
  char StrucId[4];          /* 0 "CNO " */
  int32_t Version;          /* 4 1 */
  int32_t Options;          /* 8 0 */
  char ConnectionName[264]; /* 12 */
  char UserId[64];          /* 276 */
  char Password[64];        /* 340 */
} JXCNO;                    /* 404 */

/* Begin options for JXBEGIN; a null pointer means the defaults. */
typedef struct tagJXBO {
  char StrucId[4]; /* 0 "BO  " */
  int32_t Version; /* 4 1 */
  int32_t Options; /* 8 JXBO_NONE */
} JXBO;            /* 12 */

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
