// Paths on which the library knowingly leaves storage behind: the leak
// sanitizer is told not to report what the calling thread allocates there.
#pragma once

#if defined(JX_ADDRESS_SANITIZER)
#include <sanitizer/lsan_interface.h>
#define LEAKS_ACCEPTED_BEGIN() __lsan_disable()
#define LEAKS_ACCEPTED_END() __lsan_enable()
#else
#define LEAKS_ACCEPTED_BEGIN()
#define LEAKS_ACCEPTED_END()
#endif
