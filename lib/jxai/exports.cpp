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
}
