// The game's surroundings as Foundation, CoreFoundation and GameKit tell of them.
#include "darwin_threads.h"
#include "foundation.h"

@interface NSError : NSObject
+ (instancetype)errorWithDomain:(NSString *)domain code:(NSInteger)code userInfo:(id)info;
- (NSInteger)code;
- (NSString *)domain;
- (id)userInfo;
- (NSString *)localizedDescription;
@end
@interface NSDate : NSObject
+ (instancetype)date;
- (double)timeIntervalSinceDate:(NSDate *)other;
@end
@interface NSISO8601DateFormatter : NSObject
- (NSString *)stringFromDate:(NSDate *)date;
- (NSDate *)dateFromString:(NSString *)string;
@end

struct Range {  // CFRange
  int64 location, length;
};

extern "C" {
void objc_msgSend();
id CFBundleGetMainBundle();
uint32 CFBundleGetVersionNumber(id);
id CFLocaleCopyCurrent();
NSString *CFLocaleGetIdentifier(id);
NSString *CFLocaleGetValue(id, NSString *);
void CFRelease(id);
int64 CFStringGetLength(NSString *);
int64 CFStringGetMaximumSizeForEncoding(int64, uint32);
bool CFStringGetCString(NSString *, char *, int64, uint32);
int64 CFStringGetBytes(NSString *, Range, uint32 encoding, uint8 loss, bool external, void *, int64, int64 *);
extern NSString *const kCFLocaleCountryCode, *const kCFLocaleLanguageCode, *const kCFLocaleScriptCode,
    *const NSLocaleCountryCode, *const NSLocaleIdentifier, *const GKPlayerDidChangeNotificationName,
    *const NSUbiquitousKeyValueStoreDidChangeExternallyNotification;
}

// Most classes have few messages: those are sent without a declaration.
#define CLASS(name, superclass, size) extern "C" char class_##name asm("_OBJC_CLASS_$_" #name);
#include "objc/class_list.def"
#define THE(name) ((__bridge id)(void *)&class_##name)

template <class Result = id, class... Arguments>
static Result send(id receiver, SEL selector, Arguments... arguments) {
  return reinterpret_cast<Result (*)(id, SEL, Arguments...)>(&objc_msgSend)(receiver, selector, arguments...);
}

GUEST_TEST(the_locale_is_english_everywhere) {
  id locale = send(THE(NSLocale), @selector(currentLocale));
  const struct {
    __unsafe_unretained NSString *key;
    const char *key_text, *value;
  } cases[] = {{kCFLocaleCountryCode, "kCFLocaleCountryCodeKey", "US"},
               {NSLocaleCountryCode, "kCFLocaleCountryCodeKey", "US"},
               {kCFLocaleLanguageCode, "kCFLocaleLanguageCodeKey", "en"},
               {kCFLocaleScriptCode, "kCFLocaleScriptCodeKey", "en_US"},
               {NSLocaleIdentifier, "kCFLocaleIdentifierKey", "en_US"},
               {GKPlayerDidChangeNotificationName, "GKPlayerDidChangeNotificationName", "en_US"},
               {NSUbiquitousKeyValueStoreDidChangeExternallyNotification,
                "NSUbiquitousKeyValueStoreDidChangeExternallyNotification", "en_US"}};
  for (const auto &c : cases) {
    CHECK(is_text(c.key, c.key_text) && is_text(send(locale, @selector(objectForKey:), c.key), c.value));
    CHECK(is_text(CFLocaleGetValue(locale, c.key), c.value));
  }
  NSArray *languages = send(THE(NSLocale), @selector(preferredLanguages));
  CHECK([languages count] == 1 && is_text(languages[0], "en-US") && is_text(CFLocaleGetIdentifier(locale), "en_US"));
}

GUEST_TEST(the_surroundings_hold_nothing_and_nobody_is_signed_in) {
  CHECK(is_text(send(CFBundleGetMainBundle(), @selector(bundleIdentifier)), "com.norlan.vlm"));
  CHECK(CFBundleGetVersionNumber(CFBundleGetMainBundle()) == 0x01090100);
  id center = send(THE(NSNotificationCenter), @selector(defaultCenter)), none = nil;
  id token = send(center, @selector(addObserverForName:object:queue:usingBlock:), none, none, none, none);
  CHECK([token class] == [NSObject class]);
  void *error = &error;
  NSData *data = send(THE(NSJSONSerialization), @selector(dataWithJSONObject:options:error:), token, 1ul, &error);
  CHECK([data length] == 2 && memcmp([data bytes], "{}", 2) == 0 && error == nullptr);
  CFRelease(data);

  id application = send(THE(NSApplication), @selector(sharedApplication));
  id point = send(THE(GKAccessPoint), @selector(shared));
  id files = send(THE(NSFileManager), @selector(defaultManager)), player = send(THE(GKLocalPlayer), @selector(local));
  id reason = [NSError errorWithDomain:@"d" code:1 userInfo:nil];
  id achievement = send(objc_alloc((Class)THE(GKAchievement)), @selector(initWithIdentifier:), @"first");
  const struct {
    __unsafe_unretained id receiver;
    SEL selector;
    bool answers = false;
  } rows[] = {{application, @selector(mainWindow), true},        {player, @selector(isAuthenticated), true},
              {reason, @selector(localizedFailureReason), true}, {reason, @selector(localizedRecoverySuggestion), true},
              {files, @selector(URLForUbiquityContainerIdentifier:), true},
              {player, @selector(isMultiplayerGamingRestricted), true}, {player, @selector(isUnderage), true},
              {player, @selector(isPersonalizedCommunicationRestricted), true}, {player, @selector(playerID), true},
              {player, @selector(displayName), true},            {point, @selector(isActive), true},
              {center, @selector(addObserver:selector:name:object:)}, {center, @selector(removeObserver:)},
              {center, @selector(removeObserver:name:object:)},  {point, @selector(setActive:)},
              {achievement, @selector(setPercentComplete:)}, {achievement, @selector(setShowsCompletionBanner:)},
              {THE(SKStoreReviewController), @selector(requestReview)}};
  for (const auto &each : rows) {
    const BOOL answer = send<BOOL>(each.receiver, each.selector);
    CHECK([each.receiver respondsToSelector:each.selector] && (!each.answers || !answer));
  }
  CHECK([send(THE(GKDialogController), @selector(new)) class] == (Class)THE(GKDialogController));
  CHECK([send(THE(GKGameCenterViewController), @selector(new)) class] == (Class)THE(GKGameCenterViewController));
}

GUEST_TEST(all_who_ask_at_the_same_time_get_the_same_instance) {
  constexpr int64 askers = 8;
  static const void *answers[askers][7];
  int64 asking = 0;
  run_on_threads(askers, [&](int64 number) {
    __atomic_fetch_add(&asking, 1, __ATOMIC_SEQ_CST);
    while (__atomic_load_n(&asking, __ATOMIC_SEQ_CST) < askers) asm volatile("pause");
    const id mine[] = {send(THE(NSBundle), @selector(mainBundle)),
                       send(THE(NSLocale), @selector(currentLocale)),
                       send(THE(NSFileManager), @selector(defaultManager)),
                       send(THE(NSNotificationCenter), @selector(defaultCenter)),
                       send(THE(NSApplication), @selector(sharedApplication)),
                       send(THE(GKAccessPoint), @selector(shared)),
                       send(THE(GKLocalPlayer), @selector(localPlayer))};
    memcpy(answers[number], (const void *)mine, sizeof mine);
  });
  static char *const classes[] = {&class_NSBundle, &class_NSLocale, &class_NSFileManager,
                                  &class_NSNotificationCenter, &class_NSApplication, &class_GKAccessPoint,
                                  &class_GKLocalPlayer};
  for (int i = 0; i < 7; ++i) CHECK(*(char *const *)answers[0][i] == classes[i]);
  for (int i = 1; i < askers; ++i) CHECK(memcmp(answers[i], answers[0], sizeof answers[0]) == 0);
  CHECK((__bridge void *)CFBundleGetMainBundle() == answers[0][0]);
  CHECK((__bridge void *)CFLocaleCopyCurrent() == answers[0][1]);
}

// ---- Errors and dates -----------------------------------------------------------------------------------------------

GUEST_TEST(errors_describe_themselves) {
  NSObject *info = [NSObject new];
  NSError *error = [NSError errorWithDomain:@"GKErrorDomain" code:6 userInfo:info];
  CHECK([error code] == 6 && [error userInfo] == info && is_text([error domain], "GKErrorDomain"));
  CHECK(is_text([error localizedDescription], "GKErrorDomain error 6"));
  CHECK(is_text([[NSError errorWithDomain:nil code:-5000000000 userInfo:nil] description], "? error -5000000000"));
}

GUEST_TEST(dates_are_written_and_read_as_iso_8601) {
  NSISO8601DateFormatter *formatter = [[NSISO8601DateFormatter alloc] init];
  struct Date {
    const void *isa;
    double time;
  };
  const struct {
    const char *read;
    double time;
    const char *written;
  } cases[] = {{"2024-02-29T12:34:56.9+09:00", 1709210096, "2024-02-29T12:34:56Z"},
               {"0001-01-01T00:00:00Z", -62135596800, "0001-01-01T00:00:00Z"},
               {"9999-12-31T23:59:59Z", 253402300799, "9999-12-31T23:59:59Z"},
               {" 2023-14-1junk", 1706745600, "2024-02-01T00:00:00Z"},
               {"2023-12-31T24:00:60Z", 1704067260, "2024-01-01T00:01:00Z"}};
  for (const auto &c : cases) {
    NSDate *date = [formatter dateFromString:[NSString stringWithUTF8String:c.read]];
    CHECK(((Date *)(__bridge void *)date)->time == c.time);
    CHECK(is_text([formatter stringFromDate:date], c.written));
  }
  CHECK([formatter dateFromString:nil] == nil && [formatter dateFromString:@"2024-02"] == nil);

  NSDate *now = [NSDate date];
  const double since_1970 = [now timeIntervalSinceDate:nil];
  CHECK(since_1970 - time(nullptr) < 1 && since_1970 - time(nullptr) > -2 && [now timeIntervalSinceDate:now] == 0);
  ((Date *)(__bridge void *)now)->time = __builtin_nan("");
  CHECK(is_text([formatter stringFromDate:now], "1970-01-01T00:00:00Z"));
}

// ---- Strings through CoreFoundation ---------------------------------------------------------------------------------

static constexpr uint32 utf8 = 0x08000100, utf16le = 0x14000100, unicode = 0x100;

GUEST_TEST(c_strings_are_copied_when_they_fit) {
  char buffer[8];
  const struct {
    __unsafe_unretained NSString *string;
    int64 size;
    bool fits;
  } cases[] = {{@"ボ", 4, true}, {@"ボ", 3, false}, {@"", 1, true}, {@"", 0, false}, {@"a", -1, false}, {nil, 8, false}};
  for (const auto &c : cases) {
    memset(buffer, 'x', sizeof buffer);
    CHECK(CFStringGetCString(c.string, buffer, c.size, unicode) == c.fits);
    CHECK(c.fits ? is_text(c.string, buffer) && buffer[strlen(buffer) + 1] == 'x' : buffer[0] == 'x');
  }
  CHECK(CFStringGetLength(@"aé😀") == 4 && CFStringGetLength(nil) == 0);
  CHECK(CFStringGetMaximumSizeForEncoding(7, utf8) == 21 && CFStringGetMaximumSizeForEncoding(7, unicode) == 14);
}

GUEST_TEST(bytes_are_copied_from_any_range_into_any_room) {
  constexpr int64 most = 0x7fffffffffffffff, least = -most - 1;
  NSString *string = @"aéボ😀z";  // units: a é ボ d83d de00 z
  const struct {
    Range range;
    uint32 encoding;
    int64 room, units;
    const char *bytes;
    int64 used;
  } cases[] = {
      {{0, 6}, utf8, 11, 6, "a\xc3\xa9\xe3\x83\x9c\xf0\x9f\x98\x80z", 11},
      {{0, 6}, utf8, 5, 6, "a\xc3\xa9\xe3\x83", 5},  // in the middle of a character
      {{0, 6}, utf8, -1, 6, "", 0},
      {{3, 1}, utf8, 16, 1, "\xef\xbf\xbd", 3},  // half a character
      {{0, 2}, utf16le, 3, 2, "a\0", 2},
      {{4, 100}, unicode, 16, 2, "\0\xdez\0", 4},
      {{5, most}, utf8, 16, 1, "z", 1},
      {{-2, 3}, utf8, 16, 1, "a", 1},
      {{least, least}, utf16le, 16, 0, "", 0},
  };
  int64 used = -1;
  for (const auto &c : cases) {
    char buffer[18];
    memset(buffer, 'x', sizeof buffer);
    CHECK(CFStringGetBytes(string, c.range, c.encoding, '?', true, buffer + 1, c.room, &used) == c.units);
    CHECK(used == c.used && memcmp(buffer + 1, c.bytes, c.used) == 0);
    CHECK(buffer[0] == 'x' && buffer[1 + c.used] == 'x');
  }
  CHECK(CFStringGetBytes(string, {0, 6}, utf8, 0, false, nullptr, 1, &used) == 6 && used == 11);
  CHECK(CFStringGetBytes(string, {0, 6}, utf16le, 0, false, nullptr, 1, nullptr) == 6);
  CHECK(CFStringGetBytes(THE(NSError), {0, 5}, utf8, 0, false, nullptr, 1, &used) == 0 && used == 0);
}

// ---- Game services --------------------------------------------------------------------------------------------------

GUEST_TEST(handlers_are_called_once_before_the_method_returns) {
  int64 codes[5] = {}, *const log = codes;  // how many, and which
  // Not retained: the library does not copy blocks.
  __unsafe_unretained void (^completion)(NSError *) = ^(NSError *error) {
    if (is_text([error domain], "GKErrorDomain") && [error userInfo] == nil) log[++log[0]] = [error code];
  };
  __unsafe_unretained void (^with_object)(id, NSError *) = ^(id object, NSError *error) {
    if (object == nil) completion(error);
  };
  id player = send(THE(GKLocalPlayer), @selector(local)), achievement = THE(GKAchievement), board = THE(GKLeaderboard);
  const auto call_all = [&](void *with_two, void *with_one) {
    send<void>(player, @selector(setAuthenticateHandler:), with_two);
    send<void>(achievement, @selector(reportAchievements:withCompletionHandler:), player, with_one);
    send<void>(board, @selector(loadLeaderboardsWithIDs:completionHandler:), player, with_two);
    send<void>(board, @selector(submitScore:context:player:leaderboardIDs:completionHandler:), 1l, 2l, player, player,
               with_one);
  };
  call_all((__bridge void *)with_object, (__bridge void *)completion);
  uint64 block_without_code[5] = {};
  call_all(block_without_code, nullptr);
  CHECK(codes[0] == 4 && codes[1] == 15 && codes[2] == 6 && codes[3] == 6 && codes[4] == 6);
}
