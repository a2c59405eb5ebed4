// macOS's mbstate_t, which libc++'s headers name even without wide characters.
#pragma once

typedef union {
  char bytes[128];
  long long align;
} mbstate_t;
