// The parameters each command requires, written first when a command bag
// asks for it, and the attribute list each inquiring command maps its
// inquiry items to.
#include <jx/jxqm.h>

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

// Queues, whose commands a command server answers, go by their names;
// commands the system does not serve keep their required parameters as
// plain numbers (names 2012, 2008, 2010, 2029-2032, 2045, 2053, 3003-3010,
// 3014, 3501; types 66, 1017, 1086, 1511, 1516).
constexpr Step kProcess[] = {M(2012, S)};
constexpr Step kCopyProcess[] = {M(3003, S), M(3004, S)};
constexpr Step kDefineQueue[] = {M(JXCA_Q_NAME, S), M(JXIA_Q_TYPE, I)};
constexpr Step kQueue[] = {M(JXCA_Q_NAME, S)};
constexpr Step kCopyQueue[] = {M(JXSEL_FROM_QUEUE_NAME, S), M(JXSEL_TO_QUEUE_NAME, S),
                               M(JXIA_Q_TYPE, I)};
constexpr Step kInquireQueue[] = {M(JXCA_Q_NAME, S), O(JXIA_Q_TYPE, I)};
constexpr Step kChannel[] = {M(3501, S)};
constexpr Step kDefineChannel[] = {M(3501, S), M(1511, I)};
constexpr Step kCopyChannel[] = {M(3007, S), M(3008, S), M(1511, I)};
constexpr Step kInquireChannel[] = {M(3501, S), O(1511, I)};
constexpr Step kChannelInitiator[] = {M(2008, S)};
constexpr Step kNamelist[] = {M(2010, S)};
constexpr Step kCopyNamelist[] = {M(3005, S), M(3006, S)};
constexpr Step kEscape[] = {M(1017, I), M(3014, S)};
constexpr Step kResolveChannel[] = {M(3501, S), M(1516, I)};
constexpr Step kInquireAuthInfo[] = {M(2031, S)};
constexpr Step kDefineAuthInfo[] = {M(2029, S), M(2030, S, When::InsteadOfMissing)};
constexpr Step kDeleteAuthInfo[] = {M(2029, S)};
constexpr Step kCopyAuthInfo[] = {M(2029, S), M(2032, S),
                                  M(JXCA_Q_MGR_NAME, S, When::InsteadOfMissing), M(1086, I)};
constexpr Step kStorageClass[] = {M(2045, S)};
constexpr Step kCopyStorageClass[] = {M(3009, S), M(3010, S), M(66, I)};
constexpr Step kCreateStorageClass[] = {M(2045, S), M(66, I), M(2053, S)};

struct Row {
  int32_t command;
  std::span<const Step> steps;
};

constexpr Row kRequired[] = {
    {3, kProcess},  // change, copy, create, delete, inquire process
    {4, kCopyProcess},
    {5, kProcess},
    {6, kProcess},
    {7, kProcess},
    {JXCMD_CHANGE_QUEUE, kDefineQueue},
    {JXCMD_CLEAR_QUEUE, kQueue},
    {JXCMD_COPY_QUEUE, kCopyQueue},
    {JXCMD_CREATE_QUEUE, kDefineQueue},
    {JXCMD_DELETE_QUEUE, kQueue},
    {JXCMD_INQUIRE_QUEUE, kInquireQueue},
    {JXCMD_RESET_QUEUE_STATS, kQueue},
    {JXCMD_INQUIRE_QUEUE_NAMES, kQueue},
    {19, kProcess},  // inquire process names
    {20, kChannel},  // channels: 20-29 and 42
    {21, kDefineChannel},
    {22, kCopyChannel},
    {23, kDefineChannel},
    {24, kChannel},
    {25, kInquireChannel},
    {26, kChannel},
    {27, kChannel},
    {28, kChannel},
    {29, kChannel},
    {30, kChannelInitiator},
    {32, kNamelist},  // namelists: 32-36
    {33, kCopyNamelist},
    {34, kNamelist},
    {35, kNamelist},
    {36, kNamelist},
    {38, kEscape},
    {39, kResolveChannel},
    {42, kChannel},
    {70, kInquireAuthInfo},  // authentication information: 70-74
    {71, kDefineAuthInfo},
    {72, kDefineAuthInfo},
    {73, kDeleteAuthInfo},
    {74, kCopyAuthInfo},
    {79, kStorageClass},  // storage classes: 79-84
    {80, kCopyStorageClass},
    {81, kCreateStorageClass},
    {82, kStorageClass},
    {83, kStorageClass},
    {84, kStorageClass},
};
// Commands outside this range require nothing.
constexpr int32_t kFirstCommand = 1, kLastCommand = 84;

struct Mapping {
  int32_t command;
  int32_t selector;
};
constexpr Mapping kInquiryLists[] = {
    {JXCMD_INQUIRE_QMGR, JXSEL_QMGR_ATTRS},
    {7, 1003},  // inquire process
    {JXCMD_INQUIRE_QUEUE, JXSEL_QUEUE_ATTRS},
    {25, 1015},  // inquire channel
    {36, 1004},  // inquire namelist
    {JXCMD_INQUIRE_QUEUE_STATUS, JXSEL_Q_STATUS_ATTRS},
    {42, 1524},  // inquire channel status
    {70, 1093},  // inquire authentication information
    {83, 1019},  // inquire storage class
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
  if (area->Command < kFirstCommand || area->Command > kLastCommand) return;
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
