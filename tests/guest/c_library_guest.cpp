// The C library shims that a game cannot start without, called as compiled macOS code calls them.
#include "guest_test.h"

extern "C" {
void* malloc(uint64);
void* calloc(uint64, uint64);
void* realloc(void*, uint64);
void free(void*);
void* memcpy(void*, const void*, uint64);
void* memset(void*, int32, uint64);
int32 memcmp(const void*, const void*, uint64);
void __bzero(void*, uint64);
uint64 strlen(const char*);
int32 strcmp(const char*, const char*);
int32 strncmp(const char*, const char*, uint64);
char* strcpy(char*, const char*);
char* strncpy(char*, const char*, uint64);
const char* strchr(const char*, int32);
const char* strstr(const char*, const char*);
char* strdup(const char*);
int32* __error();
extern void* __stdoutp;
uint64 fwrite(const void*, uint64, uint64, void*);
int32 fflush(void*);
}

GUEST_TEST(a_request_of_nothing_gives_a_block) {
  void* a = malloc(0);
  void* b = malloc(0);
  CHECK(a != nullptr && b != nullptr && a != b);
  a = realloc(a, 0);
  CHECK(a != nullptr);
  free(a);
  free(b);
  free(nullptr);
  void* c = calloc(0, 8);
  CHECK(c != nullptr);
  free(c);
}

GUEST_TEST(calloc_clears_and_refuses_a_size_that_wraps) {
  auto* block = static_cast<uint8*>(calloc(3, 100));
  uint64 sum = 0;
  for (int i = 0; i < 300; ++i) sum += block[i];
  CHECK(sum == 0);
  free(block);
  CHECK(calloc(uint64{1} << 33, uint64{1} << 33) == nullptr);
}

GUEST_TEST(realloc_keeps_the_contents) {
  auto* block = static_cast<uint64*>(malloc(64));
  for (uint64 i = 0; i < 8; ++i) block[i] = 8 * i;
  block = static_cast<uint64*>(realloc(block, 1 << 20));
  bool kept = true;
  for (uint64 i = 0; i < 8; ++i) kept = kept && block[i] == 8 * i;
  CHECK(kept);
  free(block);
}

GUEST_TEST(blocks_of_bytes) {
  char text[] = "0123456789";
  CHECK(memcpy(text + 2, text, 8) == text + 2);  // macOS code may overlap
  CHECK(memcmp(text, "0101234567", 10) == 0);
  CHECK(memset(text, 'x' + 256, 4) == text);
  CHECK(memcmp(text, "xxxx", 4) == 0);
  __bzero(text, 3);
  CHECK(text[0] == 0 && text[2] == 0 && text[3] == 'x');
}

GUEST_TEST(strings) {
  char buffer[16];
  CHECK(strcmp(strcpy(buffer, "velmora"), "velmora") == 0);
  CHECK(strlen(buffer) == 7);
  CHECK(strcmp("a", "\xff") < 0);  // bytes compare unsigned
  CHECK(strncmp("abcX", "abcY", 3) == 0);
  CHECK(strncmp("abcX", "abcY", 4) < 0);
  strncpy(buffer, "ab", 6);
  CHECK(memcmp(buffer, "ab\0\0\0\0a\0", 8) == 0);
  CHECK(strchr(buffer, 'b') == buffer + 1);
  CHECK(strchr(buffer, 'z') == nullptr);
  CHECK(strstr("game image", "image") != nullptr);
  char* copy = strdup("日本語");
  CHECK(strcmp(copy, "日本語") == 0);
  free(copy);
}

GUEST_TEST(the_error_number_is_a_place_of_the_threads_own) {
  int32* place = __error();
  CHECK(place == __error());
  *place = 35;
  CHECK(*__error() == 35);
}

GUEST_TEST(printing_reaches_the_hosts_standard_output) {
  const char line[] = "guest: printed through ___stdoutp\n";
  CHECK(fwrite(line, 1, sizeof line - 1, __stdoutp) == sizeof line - 1);
  CHECK(fflush(__stdoutp) == 0);
}
