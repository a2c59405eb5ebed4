#include "game/system.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/sysctl.h>
#include <time.h>

/// The number that is saved; 0 when there is none.
static int32_t load_starts(const char* path) {
  FILE* file = fopen(path, "r");
  if (file == nullptr) return 0;
  char text[16];
  text[fread(text, 1, sizeof text - 1, file)] = 0;
  fclose(file);
  const long starts = strtol(text, nullptr, 10);
  return starts > 0 && starts < 1'000'000'000 ? static_cast<int32_t>(starts) : 0;
}

/// The whole file is written beside the old one and then takes its place: a game that is ended meanwhile keeps the old.
static bool save_starts(const char* path, int32_t starts) {
  const Text new_path = Text() << path << ".new";
  FILE* file = fopen(new_path.c_str(), "w");
  if (file == nullptr) return false;
  const Text text = Text() << starts << "\n";
  const bool written = fwrite(text.c_str(), 1, text.size(), file) == text.size();
  return fclose(file) == 0 && written && rename(new_path.c_str(), path) == 0;
}

int32_t count_start(const char* folder) {
  const Text path = Text() << folder << "/starts.txt";
  const int32_t starts = load_starts(path.c_str()) + 1;
  return save_starts(path.c_str(), starts) ? starts : 0;
}

Text local_time() {
  const time_t now = time(nullptr);
  char text[64] = "";
  if (const struct tm* fields = localtime(&now)) strftime(text, sizeof text, "%F %T %z", fields);
  return Text() << text;
}

/// Leaves `value` as it is when the system does not know.
template <class T>
static void ask_hardware(int32_t what, T& value) {
  int32_t name[] = {CTL_HW, what};
  size_t size = sizeof value;
  sysctl(name, 2, &value, &size, nullptr, 0);
}

Text machine() {
  char model[32] = "unknown";
  int32_t processors = 0;
  uint64_t memory = 0;
  ask_hardware(HW_MODEL, model);
  ask_hardware(HW_NCPU, processors);
  ask_hardware(HW_MEMSIZE, memory);
  return Text() << model << ", " << processors << " processors, " << (memory >> 20) << " MB of memory";
}
