// Declares readpassphrase(3) as its manual page does. The function is in macOS's libSystem; this header
// of it is missing in the toolchain that scripts/check-macos compiles with.
#pragma once

#include <stddef.h>

#define RPP_REQUIRE_TTY 0x02  // fail where there is no terminal

#ifdef __cplusplus
extern "C"
#endif
char* readpassphrase(const char* prompt, char* buffer, size_t size, int flags);
