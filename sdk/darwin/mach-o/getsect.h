// The part of macOS's <mach-o/getsect.h> that the real programs need.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
unsigned long get_etext(void);
unsigned long get_end(void);
#ifdef __cplusplus
}
#endif
