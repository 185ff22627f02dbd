/*
 * jxai.h - the JX administration interface.
 *
 * Data bags, the PCF codec, command execution and the bag calls. Every call
 * reports through a completion code and a reason, both set to 0 on entry.
 */
#ifndef JX_JXAI_H
#define JX_JXAI_H

#include <stdint.h>

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

/* ---- Completion codes ------------------------------------------------- */
#define JXCC_OK 0
#define JXCC_WARNING 1
#define JXCC_FAILED 2

/* ---- Reasons ---------------------------------------------------------- */
#define JXRC_NONE 0
#define JXRC_BAD_BUFFER 2004            /* buffer unusable for its length */
#define JXRC_BAD_LENGTH 2005            /* length invalid, or message needs more room */
#define JXRC_BAD_DATA_LENGTH_OUT 2010   /* data-length output unusable */
#define JXRC_BAD_MSG_DESC 2026          /* message descriptor unusable */
#define JXRC_NO_MESSAGE 2033            /* no (further) reply within the wait */
#define JXRC_BAD_OPTIONS 2046           /* options invalid */
#define JXRC_NO_STORAGE 2071            /* storage not obtained */
#define JXRC_TRUNCATED_ACCEPTED 2079    /* truncated message accepted (warning) */
#define JXRC_TRUNCATED_FAILED 2080      /* message too long for the largest buffer */
#define JXRC_BAD_WAIT_INTERVAL 2090     /* wait-interval item not one integer */
#define JXRC_BAD_GET_OPTIONS 2186       /* get-message options unusable */
#define JXRC_NOT_COMMAND_MSG 2300       /* request bag's message type is not 1 */
#define JXRC_READ_ONLY_SELECTOR 2302    /* attempt to set the bag options item */
#define JXRC_BAD_PCF 2303               /* malformed PCF message */
#define JXRC_SELECTOR_OUT_OF_RANGE 2304 /* selector outside the allowed range */
#define JXRC_SELECTOR_NOT_UNIQUE 2305   /* index -1 but several occurrences */
#define JXRC_INDEX_NOT_PRESENT 2306     /* no such occurrence or position */
#define JXRC_BAD_STRING 2307            /* string argument of pad/trim unusable */
#define JXRC_BAD_ENCODING 2308          /* message encoding other than native */
#define JXRC_SELECTOR_NOT_PRESENT 2309  /* selector not in the bag */
#define JXRC_BAD_OUT_SELECTOR 2310      /* selector output unusable */
#define JXRC_STRING_TRUNCATED 2311      /* string cut to fit (warning) */
#define JXRC_WRONG_ITEM_TYPE 2312       /* item has the wrong type for the call */
#define JXRC_INCONSISTENT_TYPE 2313     /* selector already holds another type */
#define JXRC_BAD_INDEX 2314             /* index invalid for the call */
#define JXRC_SYSTEM_BAG_READ_ONLY 2315  /* system bag cannot be changed */
#define JXRC_BAD_ITEM_COUNT 2316        /* item-count argument invalid */
#define JXRC_BAD_FORMAT 2317            /* message format not a PCF format */
#define JXRC_BAD_SELECTOR 2318          /* negative selector not allowed here */
#define JXRC_BAD_ITEM_VALUE_OUT 2319    /* item-value output unusable */
#define JXRC_BAD_HANDLE 2320            /* bag handle invalid */
#define JXRC_PARM_MISSING 2321          /* mandatory command parameter missing */
#define JXRC_NO_COMMAND_SERVER 2322     /* command queue has no reader */
#define JXRC_BAD_STRING_LENGTH_OUT 2323 /* string-length output unusable */
#define JXRC_NO_INQUIRY_MAPPING 2324    /* command has no attribute-list mapping */
#define JXRC_NESTED_BAG_IN_MSG 2325     /* nested bag cannot be written */
#define JXRC_NOT_ADMIN_BAG 2326         /* inquiry item in a non-administration bag */
#define JXRC_BAD_ITEM_TYPE_OUT 2327     /* item-type output unusable */
#define JXRC_SYSTEM_BAG_UNDELETABLE 2328 /* system bag cannot be deleted */
#define JXRC_SYSTEM_ITEM_UNDELETABLE 2329 /* system item/bag cannot be deleted */
#define JXRC_BAD_CCSID 2330             /* bag CCSID -1, or CCSID output unusable */
#define JXRC_COMMAND_FAILED 3008        /* some or all replies failed */

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

#define JXPCF_HEADER_LENGTH 36      /* header structure length */
#define JXPCF_HEADER_VERSION 1
#define JXPCF_INTEGER_LENGTH 16     /* integer parameter, exact */
#define JXPCF_STRING_FIXED 20       /* string parameter before its bytes */
#define JXPCF_INTEGER_LIST_FIXED 16 /* integer list before its values */
#define JXPCF_STRING_LIST_FIXED 24  /* string list before its strings */

/* Message formats of PCF messages (8 characters, blank padded). */
#define JXFMT_ADMIN "JXADMIN "
#define JXFMT_EVENT "JXEVENT "
#define JXFMT_PCF "JXPCF   "

/* ---- Commands ---------------------------------------------------------- */
#define JXCMD_INQUIRE_QMGR 2
#define JXCMD_CHANGE_PROCESS 3
#define JXCMD_COPY_PROCESS 4
#define JXCMD_CREATE_PROCESS 5
#define JXCMD_DELETE_PROCESS 6
#define JXCMD_INQUIRE_PROCESS 7
#define JXCMD_CHANGE_QUEUE 8
#define JXCMD_CLEAR_QUEUE 9
#define JXCMD_COPY_QUEUE 10
#define JXCMD_CREATE_QUEUE 11
#define JXCMD_DELETE_QUEUE 12
#define JXCMD_INQUIRE_QUEUE 13
#define JXCMD_RESET_QUEUE_STATS 17
#define JXCMD_INQUIRE_QUEUE_NAMES 18
#define JXCMD_INQUIRE_PROCESS_NAMES 19
#define JXCMD_INQUIRE_CHANNEL_NAMES 20
#define JXCMD_CHANGE_CHANNEL 21
#define JXCMD_COPY_CHANNEL 22
#define JXCMD_CREATE_CHANNEL 23
#define JXCMD_DELETE_CHANNEL 24
#define JXCMD_INQUIRE_CHANNEL 25
#define JXCMD_PING_CHANNEL 26
#define JXCMD_RESET_CHANNEL 27
#define JXCMD_START_CHANNEL 28
#define JXCMD_STOP_CHANNEL 29
#define JXCMD_START_CHANNEL_INITIATOR 30
#define JXCMD_CHANGE_NAMELIST 32
#define JXCMD_COPY_NAMELIST 33
#define JXCMD_CREATE_NAMELIST 34
#define JXCMD_DELETE_NAMELIST 35
#define JXCMD_INQUIRE_NAMELIST 36
#define JXCMD_ESCAPE 38
#define JXCMD_RESOLVE_CHANNEL 39
#define JXCMD_INQUIRE_CLUSTER_QMGR 41
#define JXCMD_INQUIRE_CHANNEL_STATUS 42
#define JXCMD_INQUIRE_AUTH_INFO 70
#define JXCMD_CHANGE_AUTH_INFO 71
#define JXCMD_CREATE_AUTH_INFO 72
#define JXCMD_DELETE_AUTH_INFO 73
#define JXCMD_COPY_AUTH_INFO 74
#define JXCMD_CHANGE_STORAGE_CLASS 79
#define JXCMD_COPY_STORAGE_CLASS 80
#define JXCMD_CREATE_STORAGE_CLASS 81
#define JXCMD_DELETE_STORAGE_CLASS 82
#define JXCMD_INQUIRE_STORAGE_CLASS 83
#define JXCMD_INQUIRE_STORAGE_CLASS_NAMES 84
#define JXCMD_FIRST 1 /* commands that may require parameters */
#define JXCMD_LAST 84

/* ---- Command parameter selectors --------------------------------------- */
#define JXSEL_QUEUE_TYPE 20
#define JXSEL_PAGE_SET_ID 66
#define JXSEL_QMGR_ATTRS 1001 /* attribute lists that inquiry items map to */
#define JXSEL_QUEUE_ATTRS 1002
#define JXSEL_PROCESS_ATTRS 1003
#define JXSEL_NAMELIST_ATTRS 1004
#define JXSEL_CHANNEL_ATTRS 1015
#define JXSEL_STORAGE_CLASS_ATTRS 1019
#define JXSEL_CLUSTER_QMGR_ATTRS 1026
#define JXSEL_AUTH_INFO_ATTRS 1093
#define JXSEL_CHANNEL_STATUS_ATTRS 1524
#define JXSEL_ESCAPE_TYPE 1017
#define JXSEL_AUTH_INFO_TYPE 1086
#define JXSEL_CHANNEL_TYPE 1511
#define JXSEL_IN_DOUBT 1516
#define JXSEL_INITIATION_QUEUE_NAME 2008
#define JXSEL_NAMELIST_NAME 2010
#define JXSEL_PROCESS_NAME 2012
#define JXSEL_QMGR_NAME 2015
#define JXSEL_QUEUE_NAME 2016
#define JXSEL_AUTH_INFO_NAME 2029
#define JXSEL_AUTH_INFO_ALT_NAME 2030
#define JXSEL_AUTH_INFO_GENERIC_NAME 2031
#define JXSEL_AUTH_INFO_TO_NAME 2032
#define JXSEL_STORAGE_CLASS_NAME 2045
#define JXSEL_STORAGE_CLASS_GROUP 2053
#define JXSEL_FROM_QUEUE_NAME 3001
#define JXSEL_TO_QUEUE_NAME 3002
#define JXSEL_FROM_PROCESS_NAME 3003
#define JXSEL_TO_PROCESS_NAME 3004
#define JXSEL_FROM_NAMELIST_NAME 3005
#define JXSEL_TO_NAMELIST_NAME 3006
#define JXSEL_FROM_CHANNEL_NAME 3007
#define JXSEL_TO_CHANNEL_NAME 3008
#define JXSEL_FROM_STORAGE_CLASS_NAME 3009
#define JXSEL_TO_STORAGE_CLASS_NAME 3010
#define JXSEL_ESCAPE_TEXT 3014
#define JXSEL_CHANNEL_NAME 3501

/* ---- The calls -------------------------------------------------------- */
#define JXAI_DECLARE(name, params) \
  JXAI_EXPORT void jx##name params; \
  JXAI_EXPORT void zaiJX##name params;

JXAI_DECLARE(CreateBag, (JXLONG Options, PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(DeleteBag, (PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(AddString, (JXHBAG Bag, JXLONG Selector, JXLONG BufferLength, const JXCHAR *Buffer,
                         PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(SetString, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength,
                         const JXCHAR *Buffer, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireString, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength,
                             PJXCHAR Buffer, PJXLONG StringLength, PJXLONG CodedCharSetId,
                             PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(AddInteger, (JXHBAG Bag, JXLONG Selector, JXLONG ItemValue, PJXLONG CompCode,
                          PJXLONG Reason))
JXAI_DECLARE(SetInteger, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG ItemValue,
                          PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireInteger, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG ItemValue,
                              PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireBag, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXHBAG ItemValue,
                          PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(InquireItemInfo, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex,
                               PJXLONG OutSelector, PJXLONG ItemType, PJXLONG CompCode,
                               PJXLONG Reason))
JXAI_DECLARE(AddInquiry, (JXHBAG Bag, JXLONG Selector, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(DeleteItem, (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG CompCode,
                          PJXLONG Reason))
JXAI_DECLARE(ClearBag, (JXHBAG Bag, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(TruncateBag, (JXHBAG Bag, JXLONG ItemCount, PJXLONG CompCode, PJXLONG Reason))
JXAI_DECLARE(CountItems, (JXHBAG Bag, JXLONG Selector, PJXLONG ItemCount, PJXLONG CompCode,
                          PJXLONG Reason))
JXAI_DECLARE(Execute, (JXHCONN Hconn, JXLONG Command, JXHBAG OptionsBag, JXHBAG RequestBag,
                       JXHBAG ReplyBag, JXHOBJ Requestq, JXHOBJ Replyq, PJXLONG CompCode,
                       PJXLONG Reason))
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
