// The game's side of the formatting benchmark: loops around calls, so that what is timed is the calls. Each returns the
// sum of what they returned; `into` keeps the last text.
extern "C" {
int snprintf(char*, unsigned long, const char*, ...);

int il2cpp_init(const char*) { return 0; }

long format_words(char* into, unsigned long size, long calls) {
  long sum = 0;
  for (long i = 0; i < calls; ++i) sum += snprintf(into, size, "%d %s", static_cast<int>(i), "velmora");
  return sum;
}

long format_fraction(char* into, unsigned long size, long calls) {
  long sum = 0;
  for (long i = 0; i < calls; ++i) sum += snprintf(into, size, "%.3f", static_cast<double>(i) * 0.7);
  return sum;
}
}
