// Workers behind jxPad and jxTrim; they report nothing and return the output.
#pragma once

#include <jx/jxai.h>

extern "C" {
JXAI_EXPORT char *zaiPadString(const char *string, char *buffer, int32_t length);
JXAI_EXPORT char *zaiTrimBuffer(const char *buffer, int32_t length, char *string);
}
