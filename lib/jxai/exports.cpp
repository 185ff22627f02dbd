// The exported entries: each jx<Op> hands its arguments unchanged to the
// checking layer zaiJX<Op>, which runs the call frame.
#include <jx/jxai.h>

#define JXAI_FORWARD(name, params, args) \
  void jx##name params {                 \
    zaiJX##name args;                    \
  }

extern "C" {
JXAI_FORWARD(Pad,
             (const JXCHAR *String, JXLONG BufferLength, PJXCHAR Buffer, PJXLONG CompCode,
              PJXLONG Reason),
             (String, BufferLength, Buffer, CompCode, Reason))
JXAI_FORWARD(Trim,
             (JXLONG BufferLength, const JXCHAR *Buffer, PJXCHAR String, PJXLONG CompCode,
              PJXLONG Reason),
             (BufferLength, Buffer, String, CompCode, Reason))
JXAI_FORWARD(BufferToBag,
             (JXHBAG OptionsBag, JXLONG BufferLength, const void *Buffer, JXHBAG DataBag,
              PJXLONG CompCode, PJXLONG Reason),
             (OptionsBag, BufferLength, Buffer, DataBag, CompCode, Reason))
JXAI_FORWARD(BagToBuffer,
             (JXHBAG OptionsBag, JXHBAG DataBag, JXLONG BufferLength, void *Buffer,
              PJXLONG DataLength, PJXLONG CompCode, PJXLONG Reason),
             (OptionsBag, DataBag, BufferLength, Buffer, DataLength, CompCode, Reason))
}
