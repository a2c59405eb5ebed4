// What the Boehm collector asks of a Mac and the game's library does not answer.
#include <mach-o/getsect.h>

#include "mach/mach.h"

// Where roots begin and end: the data of this image, between symbols that the linker makes.
extern char data_begins[] __asm__("segment$start$__DATA");
extern char data_ends[] __asm__("segment$end$__DATA");
unsigned long get_etext(void) { return (unsigned long)data_begins; }
unsigned long get_end(void) { return (unsigned long)data_ends; }
