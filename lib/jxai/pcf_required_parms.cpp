// The parameters each command requires, written first when a command bag
// asks for it, and the attribute list each inquiring command maps its
// inquiry items to.
#include <span>

#include "pcf_format.hpp"

using jxai::Frame;
using jxai::LeafFrame;
using jxai::setFailure;

namespace {

enum class Need : uint8_t { Mandatory, Optional };
// When a step runs: only while no error is pending, or only when the step
// before reported a missing parameter (then from a clean state, as an
// alternative to it).
enum class When : uint8_t { NoError, InsteadOfMissing };

struct Step {
  int32_t selector;
  int32_t type;
  Need need;
  When when;
};

constexpr Step M(int32_t selector, int32_t type, When when = When::NoError) {
  return {selector, type, Need::Mandatory, when};
}
constexpr Step O(int32_t selector, int32_t type) {
  return {selector, type, Need::Optional, When::NoError};
}
constexpr int32_t S = JXITEM_STRING;
constexpr int32_t I = JXITEM_INTEGER;

constexpr Step kProcess[] = {M(JXSEL_PROCESS_NAME, S)};
constexpr Step kCopyProcess[] = {M(JXSEL_FROM_PROCESS_NAME, S), M(JXSEL_TO_PROCESS_NAME, S)};
constexpr Step kDefineQueue[] = {M(JXSEL_QUEUE_NAME, S), M(JXSEL_QUEUE_TYPE, I)};
constexpr Step kQueue[] = {M(JXSEL_QUEUE_NAME, S)};
constexpr Step kCopyQueue[] = {M(JXSEL_FROM_QUEUE_NAME, S), M(JXSEL_TO_QUEUE_NAME, S),
                               M(JXSEL_QUEUE_TYPE, I)};
constexpr Step kInquireQueue[] = {M(JXSEL_QUEUE_NAME, S), O(JXSEL_QUEUE_TYPE, I)};
constexpr Step kChannel[] = {M(JXSEL_CHANNEL_NAME, S)};
constexpr Step kDefineChannel[] = {M(JXSEL_CHANNEL_NAME, S), M(JXSEL_CHANNEL_TYPE, I)};
constexpr Step kCopyChannel[] = {M(JXSEL_FROM_CHANNEL_NAME, S), M(JXSEL_TO_CHANNEL_NAME, S),
                                 M(JXSEL_CHANNEL_TYPE, I)};
constexpr Step kInquireChannel[] = {M(JXSEL_CHANNEL_NAME, S), O(JXSEL_CHANNEL_TYPE, I)};
constexpr Step kChannelInitiator[] = {M(JXSEL_INITIATION_QUEUE_NAME, S)};
constexpr Step kNamelist[] = {M(JXSEL_NAMELIST_NAME, S)};
constexpr Step kCopyNamelist[] = {M(JXSEL_FROM_NAMELIST_NAME, S), M(JXSEL_TO_NAMELIST_NAME, S)};
constexpr Step kEscape[] = {M(JXSEL_ESCAPE_TYPE, I), M(JXSEL_ESCAPE_TEXT, S)};
constexpr Step kResolveChannel[] = {M(JXSEL_CHANNEL_NAME, S), M(JXSEL_IN_DOUBT, I)};
constexpr Step kInquireAuthInfo[] = {M(JXSEL_AUTH_INFO_GENERIC_NAME, S)};
constexpr Step kDefineAuthInfo[] = {M(JXSEL_AUTH_INFO_NAME, S),
                                    M(JXSEL_AUTH_INFO_ALT_NAME, S, When::InsteadOfMissing)};
constexpr Step kDeleteAuthInfo[] = {M(JXSEL_AUTH_INFO_NAME, S)};
constexpr Step kCopyAuthInfo[] = {M(JXSEL_AUTH_INFO_NAME, S), M(JXSEL_AUTH_INFO_TO_NAME, S),
                                  M(JXSEL_QMGR_NAME, S, When::InsteadOfMissing),
                                  M(JXSEL_AUTH_INFO_TYPE, I)};
constexpr Step kStorageClass[] = {M(JXSEL_STORAGE_CLASS_NAME, S)};
constexpr Step kCopyStorageClass[] = {M(JXSEL_FROM_STORAGE_CLASS_NAME, S),
                                      M(JXSEL_TO_STORAGE_CLASS_NAME, S), M(JXSEL_PAGE_SET_ID, I)};
constexpr Step kCreateStorageClass[] = {M(JXSEL_STORAGE_CLASS_NAME, S), M(JXSEL_PAGE_SET_ID, I),
                                        M(JXSEL_STORAGE_CLASS_GROUP, S)};

struct Row {
  int32_t command;
  std::span<const Step> steps;
};

constexpr Row kRequired[] = {
    {JXCMD_CHANGE_PROCESS, kProcess},
    {JXCMD_COPY_PROCESS, kCopyProcess},
    {JXCMD_CREATE_PROCESS, kProcess},
    {JXCMD_DELETE_PROCESS, kProcess},
    {JXCMD_INQUIRE_PROCESS, kProcess},
    {JXCMD_CHANGE_QUEUE, kDefineQueue},
    {JXCMD_CLEAR_QUEUE, kQueue},
    {JXCMD_COPY_QUEUE, kCopyQueue},
    {JXCMD_CREATE_QUEUE, kDefineQueue},
    {JXCMD_DELETE_QUEUE, kQueue},
    {JXCMD_INQUIRE_QUEUE, kInquireQueue},
    {JXCMD_RESET_QUEUE_STATS, kQueue},
    {JXCMD_INQUIRE_QUEUE_NAMES, kQueue},
    {JXCMD_INQUIRE_PROCESS_NAMES, kProcess},
    {JXCMD_INQUIRE_CHANNEL_NAMES, kChannel},
    {JXCMD_CHANGE_CHANNEL, kDefineChannel},
    {JXCMD_COPY_CHANNEL, kCopyChannel},
    {JXCMD_CREATE_CHANNEL, kDefineChannel},
    {JXCMD_DELETE_CHANNEL, kChannel},
    {JXCMD_INQUIRE_CHANNEL, kInquireChannel},
    {JXCMD_PING_CHANNEL, kChannel},
    {JXCMD_RESET_CHANNEL, kChannel},
    {JXCMD_START_CHANNEL, kChannel},
    {JXCMD_STOP_CHANNEL, kChannel},
    {JXCMD_START_CHANNEL_INITIATOR, kChannelInitiator},
    {JXCMD_CHANGE_NAMELIST, kNamelist},
    {JXCMD_COPY_NAMELIST, kCopyNamelist},
    {JXCMD_CREATE_NAMELIST, kNamelist},
    {JXCMD_DELETE_NAMELIST, kNamelist},
    {JXCMD_INQUIRE_NAMELIST, kNamelist},
    {JXCMD_ESCAPE, kEscape},
    {JXCMD_RESOLVE_CHANNEL, kResolveChannel},
    {JXCMD_INQUIRE_CHANNEL_STATUS, kChannel},
    {JXCMD_INQUIRE_AUTH_INFO, kInquireAuthInfo},
    {JXCMD_CHANGE_AUTH_INFO, kDefineAuthInfo},
    {JXCMD_CREATE_AUTH_INFO, kDefineAuthInfo},
    {JXCMD_DELETE_AUTH_INFO, kDeleteAuthInfo},
    {JXCMD_COPY_AUTH_INFO, kCopyAuthInfo},
    {JXCMD_CHANGE_STORAGE_CLASS, kStorageClass},
    {JXCMD_COPY_STORAGE_CLASS, kCopyStorageClass},
    {JXCMD_CREATE_STORAGE_CLASS, kCreateStorageClass},
    {JXCMD_DELETE_STORAGE_CLASS, kStorageClass},
    {JXCMD_INQUIRE_STORAGE_CLASS, kStorageClass},
    {JXCMD_INQUIRE_STORAGE_CLASS_NAMES, kStorageClass},
};

struct Mapping {
  int32_t command;
  int32_t selector;
};
constexpr Mapping kInquiryLists[] = {
    {JXCMD_INQUIRE_QMGR, JXSEL_QMGR_ATTRS},
    {JXCMD_INQUIRE_PROCESS, JXSEL_PROCESS_ATTRS},
    {JXCMD_INQUIRE_QUEUE, JXSEL_QUEUE_ATTRS},
    {JXCMD_INQUIRE_CHANNEL, JXSEL_CHANNEL_ATTRS},
    {JXCMD_INQUIRE_NAMELIST, JXSEL_NAMELIST_ATTRS},
    {JXCMD_INQUIRE_CLUSTER_QMGR, JXSEL_CLUSTER_QMGR_ATTRS},
    {JXCMD_INQUIRE_CHANNEL_STATUS, JXSEL_CHANNEL_STATUS_ATTRS},
    {JXCMD_INQUIRE_AUTH_INFO, JXSEL_AUTH_INFO_ATTRS},
    {JXCMD_INQUIRE_STORAGE_CLASS, JXSEL_STORAGE_CLASS_ATTRS},
};

// Looks the parameter up (exactly one occurrence), writes it as a single
// structure and marks it so the main loop skips it.
void writeParm(zaiBAG *bag, zaiPCFBUFCTL *area, int32_t selector, int32_t type, Need need,
               PJXLONG cc, PJXLONG rc) {
  int32_t position = 0;
  zaiPROPERTY *item = zaiFindSelector(bag, 0, selector, JXIDX_ONLY, &position, cc, rc);
  if (*cc == JXCC_OK) {
    if (item->Type != type) return setFailure(cc, rc, JXRC_WRONG_ITEM_TYPE);
    zaiWriteSinglePCFParm(item, area, cc, rc);
    if (*cc == JXCC_OK && position >= 0 &&
        position < area->AreaSize - static_cast<int32_t>(ZAI_PCFBC_FIXED)) {
      area->Written[position] = 1;
    }
  } else if (*rc == JXRC_SELECTOR_NOT_PRESENT) {
    if (need == Need::Mandatory) {
      setFailure(cc, rc, JXRC_PARM_MISSING);
    } else {
      *cc = JXCC_OK;
      *rc = JXRC_NONE;
    }
  }
}

}  // namespace

extern "C" {

void zaiMapInquiryFromCommand(JXLONG command, PJXLONG selector, PJXLONG cc, PJXLONG rc) {
  LeafFrame frame(kFn_zaiMapInquiryFromCommand, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  for (const Mapping &m : kInquiryLists) {
    if (m.command == command) {
      *selector = m.selector;
      return;
    }
  }
  setFailure(cc, rc, JXRC_NO_INQUIRY_MAPPING);
}

void zaiWriteMandatoryParm(zaiBAG *bag, zaiPCFBUFCTL *area, JXLONG selector, JXLONG type,
                           PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiWriteMandatoryParm, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  writeParm(bag, area, selector, type, Need::Mandatory, cc, rc);
}

void zaiWriteOptionalParm(zaiBAG *bag, zaiPCFBUFCTL *area, JXLONG selector, JXLONG type, PJXLONG cc,
                          PJXLONG rc) {
  Frame frame(kFn_zaiWriteOptionalParm, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  writeParm(bag, area, selector, type, Need::Optional, cc, rc);
}

void zaiWriteRequiredParmsForCmd(zaiBAG *bag, zaiPCFBUFCTL *area, PJXLONG cc, PJXLONG rc) {
  Frame frame(kFn_zaiWriteRequiredParmsForCmd, rc);
  *cc = JXCC_OK;
  *rc = JXRC_NONE;
  if (area->Command < JXCMD_FIRST || area->Command > JXCMD_LAST) return;
  for (const Row &row : kRequired) {
    if (row.command != area->Command) continue;
    for (const Step &step : row.steps) {
      if (step.when == When::InsteadOfMissing) {
        if (*cc != JXCC_FAILED || *rc != JXRC_PARM_MISSING) continue;
        *cc = JXCC_OK;
        *rc = JXRC_NONE;
      } else if (*cc != JXCC_OK) {
        continue;
      }
      if (step.need == Need::Mandatory) {
        zaiWriteMandatoryParm(bag, area, step.selector, step.type, cc, rc);
      } else {
        zaiWriteOptionalParm(bag, area, step.selector, step.type, cc, rc);
      }
    }
    return;
  }
}

}  // extern "C"
