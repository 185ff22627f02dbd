/*
 * jxai.h - the JX administration interface.
 *
 * Data bags, the PCF codec, command execution and the bag calls. Every call
 * reports through a completion code and a reason, both set to 0 on entry.
 */
#ifndef JX_JXAI_H
#define JX_JXAI_H

#include <stdint.h>

/* Completion codes (JXCC_*) and reasons (JXRC_*), with their words: every
 * call sets both, 0 and 0 on entry. */
#include <jx/jxreasons.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define JXAI_EXPORT __attribute__((visibility("default")))
#else
#define JXAI_EXPORT
#endif

typedef int32_t JXLONG;
typedef JXLONG *PJXLONG;
typedef char JXCHAR;
typedef JXCHAR *PJXCHAR;
typedef int32_t JXHBAG; /* a bag handle: the control block's address */
typedef JXHBAG *PJXHBAG;
typedef int32_t JXHCONN;
typedef int32_t JXHOBJ;

/* ---- Bag-creation options --------------------------------------------- */
#define JXBAG_ADMIN 1           /* administration profile: list, reorder, check */
#define JXBAG_LIST_FORM 2       /* repeated items may be written as lists */
#define JXBAG_REORDER 4         /* required parameters written first */
#define JXBAG_CHECK_SELECTORS 8 /* user selectors range-checked by type */
#define JXBAG_COMMAND 16        /* command bag */
#define JXBAG_SYSTEM 32         /* library-owned result bag (internal only) */
#define JXBAG_USER_OPTIONS 31   /* the bits a caller may pass */

/* ---- Special handles, indexes and selectors --------------------------- */
#define JXHB_NONE (-2)    /* no bag */
#define JXHB_DELETED (-1) /* left in the caller's handle by deletion */

#define JXIDX_ONLY (-1) /* the only occurrence */
#define JXIDX_ALL (-2)  /* all occurrences, where a call allows it */

#define JXSEL_ANY (-30001)    /* any item, by position */
#define JXSEL_USER (-30002)   /* user items, by position */
#define JXSEL_SYSTEM (-30003) /* system items, by position */

#define JXSYS_OPTIONS (-8)
#define JXSYS_REASON (-7)
#define JXSYS_COMP_CODE (-6)
#define JXSYS_CONTROL (-5)
#define JXSYS_SEQUENCE (-4)
#define JXSYS_COMMAND (-3)
#define JXSYS_MSG_TYPE (-2)
#define JXSYS_CCSID (-1)
#define JXSYS_FIRST (-8)
#define JXSYS_LAST (-1)

/* What the system items of a new or cleared bag hold. The two message
 * types are the PCF header types of the same name. */
#define JXPCF_TYPE_COMMAND 1   /* message type of administration and command bags */
#define JXPCF_TYPE_USER 8      /* message type of every other bag */
#define JXPCF_COMMAND_NONE 0   /* command code before one is set */
#define JXPCF_SEQUENCE_FIRST 1 /* message sequence number */
#define JXPCF_CONTROL_LAST 1   /* control: the last (or only) message */
#define JXCCSID_DEFAULT 0      /* the bag's CCSID for its strings */
#define JXCCSID_NONE (-1)      /* a bag CCSID that refuses new strings (2330) */

#define JXSEL_INQUIRE 1074 /* inquiry item: its value names the attribute */

/* User selector ranges checked when a bag checks selectors. */
#define JXSEL_INT_FIRST 1
#define JXSEL_INT_LAST 2000
#define JXSEL_STR_FIRST 2001
#define JXSEL_STR_LAST 4000
#define JXSEL_BAG_FIRST 4001
#define JXSEL_BAG_LAST 6000

/* Item types. */
#define JXITEM_INTEGER 1
#define JXITEM_STRING 2
#define JXITEM_BAG 3

/* ---- PCF messages ------------------------------------------------------ */
/* Header types (system item -2; command 1 and user 8 above) and parameter
 * structure types. */
#define JXPCF_TYPE_RESPONSE 2
#define JXPCF_TYPE_INTEGER 3
#define JXPCF_TYPE_STRING 4
#define JXPCF_TYPE_INTEGER_LIST 5
#define JXPCF_TYPE_STRING_LIST 6
#define JXPCF_TYPE_EVENT 7

#define JXPCF_HEADER_LENGTH 36 /* header structure length */
#define JXPCF_HEADER_VERSION 1
#define JXPCF_INTEGER_LENGTH 16     /* integer parameter, exact */
#define JXPCF_STRING_FIXED 20       /* string parameter before its bytes */
#define JXPCF_INTEGER_LIST_FIXED 16 /* integer list before its values */
#define JXPCF_STRING_LIST_FIXED 24  /* string list before its strings */

/* Message formats of PCF messages (8 characters, blank padded). */
#define JXFMT_ADMIN "JXADMIN "
#define JXFMT_EVENT "JXEVENT "
#define JXFMT_PCF "JXPCF   "

/* ---- Command execution ------------------------------------------------- */
#define JXSEL_WAIT_INTERVAL 1075  /* options bag: wait for each reply, ms; -1 no limit */
#define JXEXEC_WAIT_DEFAULT 30000 /* wait for each reply without an options bag, ms */
#define JXSEL_REPLY_BAG 4001      /* response bag: one nested system bag per reply */
#define JXQ_ADMIN_COMMAND "SYSTEM.ADMIN.COMMAND.QUEUE" /* the command server's queue */
#define JXQ_DEFAULT_MODEL "SYSTEM.DEFAULT.MODEL.QUEUE" /* model of temporary reply queues */
#define JXQ_REPLY_TEMPLATE "JXAI.REPLY.*"              /* names of temporary reply queues */
#define JXQ_QMGR_EVENT "SYSTEM.ADMIN.QMGR.EVENT"       /* queue-manager events (JXCMD_Q_MGR_EVENT) */
#define JXQ_PERFM_EVENT "SYSTEM.ADMIN.PERFM.EVENT"     /* performance events (JXCMD_PERFM_EVENT) */
#define JXQ_CONFIG_EVENT "SYSTEM.ADMIN.CONFIG.EVENT"   /* configuration events (JXCMD_CONFIG_EVENT) */

/* ---- Commands --------------------------------------------------------- */
/* The commands a queue manager's command server answers, and (44-46) the
 * categories of the event messages it puts. */
#define JXCMD_CHANGE_QMGR 1
#define JXCMD_INQUIRE_QMGR 2
#define JXCMD_CHANGE_QUEUE 8
#define JXCMD_CLEAR_QUEUE 9
#define JXCMD_COPY_QUEUE 10
#define JXCMD_CREATE_QUEUE 11
#define JXCMD_DELETE_QUEUE 12
#define JXCMD_INQUIRE_QUEUE 13
#define JXCMD_RESET_QUEUE_STATS 17
#define JXCMD_INQUIRE_QUEUE_NAMES 18
#define JXCMD_PING_QMGR 40
#define JXCMD_INQUIRE_QUEUE_STATUS 41
#define JXCMD_Q_MGR_EVENT 44
#define JXCMD_PERFM_EVENT 45
#define JXCMD_CONFIG_EVENT 46
#define JXCMD_INQUIRE_CONNECTIONS 85
#define JXCMD_STOP_CONNECTION 86

/* ---- Command parameters ------------------------------------------------ */
/* Object attributes go by their JXIA_* and JXCA_* selectors (jxqm.h); these
 * are the parameters that are no attribute. */
#define JXSEL_QMGR_ATTRS 1001         /* attribute list of JXCMD_INQUIRE_QMGR */
#define JXSEL_QUEUE_ATTRS 1002        /* attribute list of JXCMD_INQUIRE_QUEUE */
#define JXSEL_Q_STATUS_ATTRS 1026     /* attribute list of JXCMD_INQUIRE_QUEUE_STATUS */
#define JXSEL_PARAMETER_IN_ERROR 1900 /* in a failed reply: the selector in error */
#define JXSEL_REPLACE 1901            /* 1: create over an existing queue */
#define JXSEL_PURGE 1902              /* 1: delete a queue with its messages */
#define JXSEL_FROM_QUEUE_NAME 3001
#define JXSEL_TO_QUEUE_NAME 3002
#define JXSEL_QUEUE_NAMES 3011 /* string list of the names that matched */

/* ---- The calls -------------------------------------------------------- */
#define JXAI_DECLARE(name, params)  \
  JXAI_EXPORT void jx##name params; \
  JXAI_EXPORT void zaiJX##name params;

JXAI_DECLARE(CreateBag, (JXLONG Options, PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(DeleteBag, (PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(AddString, (JXHBAG Bag, JXLONG Selector, JXLONG BufferLength, const JXCHAR *Buffer,
                         PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(SetString, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength,
                         const JXCHAR *Buffer, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireString,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength, PJXCHAR Buffer,
              PJXLONG StringLength, PJXLONG CodedCharSetId, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(AddInteger,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemValue, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(SetInteger, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG ItemValue,
                          PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireInteger, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG ItemValue,
                              PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireBag, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXHBAG ItemValue,
                          PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireItemInfo, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG OutSelector,
                               PJXLONG ItemType, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(AddInquiry, (JXHBAG Bag, JXLONG Selector, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(DeleteItem,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(ClearBag, (JXHBAG Bag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(TruncateBag, (JXHBAG Bag, JXLONG ItemCount, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(CountItems,
             (JXHBAG Bag, JXLONG Selector, PJXLONG ItemCount, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(Execute,
             (JXHCONN Hconn, JXLONG Command, JXHBAG OptionsBag, JXHBAG RequestBag, JXHBAG ReplyBag,
              JXHOBJ Requestq, JXHOBJ Replyq, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(PutBag, (JXHCONN Hconn, JXHOBJ Hobj, void *Msgdesc, void *Putmsgopts, JXHBAG Bag,
                      PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(GetBag, (JXHCONN Hconn, JXHOBJ Hobj, void *Msgdesc, void *Getmsgopts, JXHBAG Bag,
                      PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(BufferToBag, (JXHBAG OptionsBag, JXLONG BufferLength, const void *Buffer,
                           JXHBAG DataBag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(BagToBuffer, (JXHBAG OptionsBag, JXHBAG DataBag, JXLONG BufferLength, void *Buffer,
                           PJXLONG DataLength, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(Pad, (const JXCHAR *String, JXLONG BufferLength, PJXCHAR Buffer, PJXLONG CompCode,
                   PJXLONG Reason))
JXAI_DECLARE(Trim, (JXLONG BufferLength, const JXCHAR *Buffer, PJXCHAR String, PJXLONG CompCode,
                    PJXLONG Reason))

#undef JXAI_DECLARE

/* The trace table of function names: 196 rows of 40 bytes. */
#define JXAI_FUNC_ROWS 196
#define JXAI_FUNC_NAME_LEN 40
JXAI_EXPORT extern const char zuzt_funcs[JXAI_FUNC_ROWS][JXAI_FUNC_NAME_LEN];

/* Exported for compatibility; no operation uses them. */
JXAI_EXPORT extern int32_t AJXzaiMutexHandle;
JXAI_EXPORT extern void *AJXzaipHandleIndex;

#ifdef __cplusplus
}
#endif

#endif /* JX_JXAI_H */
