// Makes the function names known to common services when the library loads,
// so trace lines and failure records name the functions they come from.
#include <jx/jxai.h>
#include <jx/jxcs.h>

extern "C" const char zsia_funcs[JXAI_FUNC_ROWS][JXAI_FUNC_NAME_LEN];

int32_t AJXzaiMutexHandle = 0;
void *AJXzaipHandleIndex = nullptr;

namespace {
__attribute__((constructor)) void registerNames() {
  xtrRegisterNames(XCS_COMP_ADMIN, zuzt_funcs, JXAI_FUNC_ROWS);
  xtrRegisterNames(XCS_COMP_QMCALLS, zsia_funcs, JXAI_FUNC_ROWS);
}
}  // namespace
