// What the Boehm collector asks of a Mac and the game's library does not answer.
#include <mach-o/getsect.h>
#include <pthread.h>

// Where roots begin and end: the data of this image, between symbols that the linker makes.
extern char data_begins[] __asm__("segment$start$__DATA");
extern char data_ends[] __asm__("segment$end$__DATA");
unsigned long get_etext(void) { return (unsigned long)data_begins; }
unsigned long get_end(void) { return (unsigned long)data_ends; }

// Every thread is joinable, with a stack of the library's size.
int pthread_attr_getdetachstate(const pthread_attr_t* attributes, int* state) { return *state = 1, 0; }
int pthread_attr_getstacksize(const pthread_attr_t* attributes, size_t* size) { return *size = 0x800000, 0; }
int pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size) { return 0; }
int pthread_cond_destroy(pthread_cond_t* condition) { return 0; }
