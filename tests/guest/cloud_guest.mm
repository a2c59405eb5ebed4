// The cloud store and the plug-in functions for it, as game code uses them. cloud_test.cpp gives every process a folder
// of its own, often with a store in it, and looks at what is there afterwards.
#include "darwin_threads.h"
#include "foundation.h"

static NSUbiquitousKeyValueStore *store() { return [NSUbiquitousKeyValueStore defaultStore]; }

static const char *store_path() {
  static char path[1024];
  snprintf(path, sizeof path, "%s/icloud_kvs.txt", getenv("VLM_SAVE_DIR"));
  return path;
}

/// The entries in the store's file, without its last line.
static const char *file_bytes() {
  static char bytes[4096];
  FILE *const file = fopen(store_path(), "r");
  bytes[fread(bytes, 1, sizeof bytes - 1, file)] = 0;
  fclose(file);
  char *const proof = strstr(bytes, "#whole ");
  return proof != nullptr ? (*proof = 0, bytes) : "no proof";
}

/// Whether the file is written anew meanwhile.
static bool writes(__attribute__((noescape)) void (^change)()) {
  unlink(store_path());
  change();
  return access(store_path(), 0) == 0;
}

// The first test: nothing has asked for the default store yet. The file is cloud_test.cpp's.
GUEST_TEST(a_store_that_is_only_allocated_has_what_the_file_has) {
  NSUbiquitousKeyValueStore *mine = [[NSUbiquitousKeyValueStore alloc] init];
  CHECK([mine longLongForKey:@"games"] == 41 && is_text([mine stringForKey:@"name"], "a\tb"));
  CHECK(store() == store() && [store() doubleForKey:@"ratio"] == 0.1 && [store() synchronize] == YES);
  [mine removeObjectForKey:@"games"];
  CHECK([store() objectForKey:@"games"] == nil);
  CHECK(same(file_bytes(), "s\tname\ta\\tb\nd\tratio\t0.10000000000000001\n"));
}

GUEST_TEST(values_are_read_as_the_kind_that_is_asked_for) {
  NSArray *array = [NSArray arrayWithObject:@"12"];
  const struct {
    NSObject *value;
    double number;
    long long integer;
  } rows[] = {{@YES, 1, 1}, {@0.5, 0.5, 0}, {@(-(1ll << 62)), -0x1p62, -(1ll << 62)}, {@"12", 0, 0}, {array, 0, 0}};
  for (const auto &row : rows) {
    [store() setObject:row.value forKey:@"key"];
    CHECK([store() objectForKey:@"key"] == row.value || row.value != array);
    CHECK(([store() stringForKey:@"key"] != nil) == [row.value isKindOfClass:[NSString class]]);
    CHECK([store() doubleForKey:@"key"] == row.number && [store() longLongForKey:@"key"] == row.integer);
    CHECK([store() boolForKey:@"key"] == (row.integer != 0));
  }
}

GUEST_TEST(only_a_change_writes_the_file) {
  NSMutableString *text = [[NSMutableString alloc] initWithString:@"abc"];
  CHECK(writes(^{ [store() setLongLong:1 forKey:@"n"]; }));
  CHECK(!writes(^{ [store() setBool:YES forKey:[NSString stringWithUTF8String:"n"]]; }));
  CHECK(writes(^{ [store() setDouble:1 forKey:@"n"]; }) && writes(^{ [store() setString:@"ボ" forKey:@"n"]; }));
  CHECK(!writes(^{ [store() setObject:[NSString stringWithUTF8String:"ボ"] forKey:@"n"]; }));
  [store() setObject:text forKey:@"n"];
  [text appendString:@"d"];
  CHECK(writes(^{ [store() setObject:text forKey:@"n"]; }) && is_text([store() stringForKey:@"n"], "abcd"));
  CHECK(!writes(^{ [store() removeObjectForKey:nil]; }) && writes(^{ [store() removeObjectForKey:@"n"]; }));
}

static void remove_all() {
  for (NSString *key in [[store() dictionaryRepresentation] allKeys]) [store() removeObjectForKey:key];
}

GUEST_TEST(the_file_holds_every_entry_in_its_order) {
  remove_all();
  [store() setString:@"a\tb\nc\\d\re" forKey:@"tab\tfeed\nback\\"];
  [store() setLongLong:(long long)(1ul << 63) forKey:@"first"];
  [store() setObject:[NSArray array] forKey:@"in memory alone"];
  [store() setLongLong:7 forKey:@"again"];
  [store() setDouble:__builtin_inf() forKey:@"first"];  // keeps its place
  [store() removeObjectForKey:@"again"];
  [store() setBool:YES forKey:nil];
  [store() setString:@"at\0the end" forKey:@"again"];
  CHECK(same(file_bytes(), "s\ttab\\tfeed\\nback\\\\\ta\\tb\\nc\\\\d\re\nd\tfirst\tinf\ni\t\t1\ns\tagain\tat\n"));
}

GUEST_TEST(threads_do_not_lose_each_others_changes) {
  constexpr int64 threads = 4, changes = 25;
  remove_all();
  run_on_threads(threads, [](int64 number) {
    NSString *key = [NSString stringWithFormat:@"%ld", number];
    for (int64 i = 1; i <= changes; ++i) {
      [store() setLongLong:i forKey:key];
      CHECK([store() longLongForKey:key] == i && [[store() dictionaryRepresentation] count] <= threads);
    }
  });
  NSMutableString *expected = [NSMutableString new];  // saves have not mixed
  for (NSString *key in [[store() dictionaryRepresentation] allKeys]) {
    [expected appendString:[NSString stringWithFormat:@"i\t%s\t25\n", [key UTF8String]]];
  }
  CHECK([[store() dictionaryRepresentation] count] == threads && is_text(expected, file_bytes()));
}

// ---- The plug-in ----------------------------------------------------------------------------------------------------

template <class Result, class... Arguments>
static Result call(const char *name, Arguments... arguments) {
  void *const plug_in = dlopen("/A/Velmora.app/Contents/PlugIns/QKMacCore.bundle/Contents/MacOS/QKMacCore", 1);
  return reinterpret_cast<Result (*)(Arguments...)>(dlsym(plug_in, name))(arguments...);
}

GUEST_TEST(managed_code_reaches_the_store_through_the_plug_in) {
  remove_all();
  CHECK(call<int32>("QKCloud_Synchronize") == 1 && same(call<char *>("QKCloud_RetrieveAllCloudKeys", ";"), ""));
  call<void>("QKCloud_SetIntForKey", -5, "a");
  call<void>("QKCloud_SetFloatForKey", 0.1f, "b");
  call<void>("QKCloud_SetStringForKey", "text", "c");
  call<void>("QKCloud_SetBoolForKey", 256, "d");
  CHECK(call<int64>("QKCloud_IntForKey", "a") == -5 && call<float>("QKCloud_FloatForKey", "b") == 0.1f);
  char *const text = call<char *>("QKCloud_StringForKey", "c");
  CHECK(same(text, "text") && call<int32>("QKCloud_BoolForKey", "d") == 1);
  free(text);
  CHECK(call<int64>("QKCloud_IntForKey", "e") == 0 && call<char *>("QKCloud_StringForKey", "a") == nullptr);
  CHECK(same(file_bytes(), "i\ta\t-5\nd\tb\t0.10000000149011612\ns\tc\ttext\ni\td\t1\n"));
  call<void>("QKCloud_RemoveForKey", "c");
  CHECK(same(call<char *>("QKCloud_RetrieveAllCloudKeys", "--"), "a--b--d"));
}

// ---- Probes ---------------------------------------------------------------------------------------------------------

// What is changed stays in memory, whatever the disk does. This change is of 1 MB.
extern "C" int64 change_once() {
  static char large[1 << 20];
  memset(large, 'x', sizeof large - 1);
  [store() setString:[NSString stringWithUTF8String:large] forKey:@"large"];
  return [[store() stringForKey:@"large"] length] == sizeof large - 1 ? 0 : 1;
}

extern "C" int64 change_ten_times() {
  for (int64 i = 0; i < 10; ++i) [store() setLongLong:i forKey:@"change"];
  return [store() longLongForKey:@"change"] == 9 ? 0 : 1;
}

/// Changes one key of 40 after the other, each to a text that begins with the number of the step, and tells each step
/// that is saved. Goes on where the store ends, which has to be as a step left it.
extern "C" int64 save_until_killed() {
  static char padding[970];
  memset(padding, 'x', sizeof padding);
  const auto text_of = [](int64 step) {
    return [NSString stringWithFormat:@"%ld %.*s", step, (int)(step % 97 * 10), padding];
  };
  const auto key_of = [](int64 step) { return [NSString stringWithFormat:@"level_%02ld", step % 40]; };
  int64 step = -1;
  for (NSString *key in [[store() dictionaryRepresentation] allKeys]) {
    const int64 last = [[store() stringForKey:key] longLongValue];
    if (last > step) step = last;
  }
  for (int64 kept = step; kept >= 0 && kept > step - 40; --kept) {
    if (!is_text([store() stringForKey:key_of(kept)], [text_of(kept) UTF8String])) fprintf(stdout, "broken\n");
  }
  for (;; ++step) {
    fprintf(stdout, "%ld\n", step);
    fflush(stdout);
    [store() setString:text_of(step + 1) forKey:key_of(step + 1)];
  }
}
