// The game's surroundings as Foundation, CoreFoundation and GameKit tell of them.
#include "darwin_threads.h"
#include "foundation.h"

struct Range {  // CFRange
  int64 location, length;
};

extern "C" {
void objc_msgSend(), CFRelease(id);
id CFBundleGetMainBundle(), CFLocaleCopyCurrent();
uint32 CFBundleGetVersionNumber(id);
NSString *CFLocaleGetIdentifier(id), *CFLocaleGetValue(id, NSString *);
int64 CFStringGetLength(NSString *), CFStringGetMaximumSizeForEncoding(int64, uint32),
    CFStringGetBytes(NSString *, Range, uint32 encoding, uint8 loss, bool external, void *, int64, int64 *);
bool CFStringGetCString(NSString *, char *, int64, uint32);
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

static const id none = nil;

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
  id center = send(THE(NSNotificationCenter), @selector(defaultCenter));
  id token = send(center, @selector(addObserverForName:object:queue:usingBlock:), none, none, none, none);
  void *error = &error;
  NSData *data = send(THE(NSJSONSerialization), @selector(dataWithJSONObject:options:error:), token, 1ul, &error);
  CHECK([token class] == [NSObject class] && [data length] == 2 && memcmp([data bytes], "{}", 2) == 0 && !error);
  CFRelease(data);

  id player = send(THE(GKLocalPlayer), @selector(local)), point = send(THE(GKAccessPoint), @selector(shared));
  id reason = objc_alloc((Class)THE(NSError)), achievement = objc_alloc((Class)THE(GKAchievement));
  CHECK(send(achievement, @selector(initWithIdentifier:), @"first") == achievement);
  const struct {
    __unsafe_unretained id receiver;
    SEL selector;
    bool answers = true;
  } rows[] = {{send(THE(NSApplication), @selector(sharedApplication)), @selector(mainWindow)},
              {send(THE(NSFileManager), @selector(defaultManager)), @selector(URLForUbiquityContainerIdentifier:)},
              {reason, @selector(localizedFailureReason)}, {reason, @selector(localizedRecoverySuggestion)},
              {player, @selector(isAuthenticated)}, {player, @selector(isMultiplayerGamingRestricted)},
              {player, @selector(isUnderage)}, {player, @selector(isPersonalizedCommunicationRestricted)},
              {player, @selector(playerID)}, {player, @selector(displayName)}, {point, @selector(isActive)},
              {center, @selector(addObserver:selector:name:object:), false},
              {center, @selector(removeObserver:), false},
              {center, @selector(removeObserver:name:object:), false}, {point, @selector(setActive:), false},
              {achievement, @selector(setPercentComplete:), false},
              {achievement, @selector(setShowsCompletionBanner:), false},
              {THE(SKStoreReviewController), @selector(requestReview), false}};
  for (const auto &each : rows) {
    const BOOL answer = send<BOOL>(each.receiver, each.selector);
    CHECK([each.receiver respondsToSelector:each.selector] && (!each.answers || !answer));
  }
  for (id made : (const id[]){THE(GKDialogController), THE(GKGameCenterViewController)}) {
    CHECK([send(made, @selector(new)) class] == (Class)made);
  }
}

GUEST_TEST(all_who_ask_at_the_same_time_get_the_same_instance) {
  constexpr int64 askers = 8;
  static const struct {
    char *of_class;
    const char *selector;
  } rows[] = {{&class_NSBundle, "mainBundle"}, {&class_NSLocale, "currentLocale"},
              {&class_NSFileManager, "defaultManager"}, {&class_NSNotificationCenter, "defaultCenter"},
              {&class_NSApplication, "sharedApplication"}, {&class_GKAccessPoint, "shared"},
              {&class_GKLocalPlayer, "localPlayer"}};
  static const void *answers[7][askers];
  int64 asking = 0;
  run_on_threads(askers, [&](int64 number) {
    __atomic_fetch_add(&asking, 1, __ATOMIC_SEQ_CST);
    while (__atomic_load_n(&asking, __ATOMIC_SEQ_CST) < askers) asm volatile("pause");
    for (int i = 0; i < 7; ++i) {
      answers[i][number] = (__bridge void *)send((__bridge id)(void *)rows[i].of_class, (SEL)rows[i].selector);
    }
  });
  for (int i = 0; i < 7; ++i) {
    CHECK(*(char *const *)answers[i][0] == rows[i].of_class);
    for (const void *answer : answers[i]) CHECK(answer == answers[i][0]);
  }
  CHECK((__bridge void *)CFBundleGetMainBundle() == answers[0][0]);
  CHECK((__bridge void *)CFLocaleCopyCurrent() == answers[1][0]);
}

// ---- Errors and dates -----------------------------------------------------------------------------------------------

GUEST_TEST(errors_describe_themselves) {
  id info = @"info";
  const SEL make = @selector(errorWithDomain:code:userInfo:);
  id error = send(THE(NSError), make, @"GKErrorDomain", 6l, info);
  CHECK(is_text(send(error, @selector(domain)), "GKErrorDomain") && send<int64>(error, @selector(code)) == 6);
  CHECK(is_text(send(error, @selector(localizedDescription)), "GKErrorDomain error 6"));
  CHECK(send(error, @selector(userInfo)) == info);
  CHECK(is_text([send(THE(NSError), make, none, -5000000000l, none) description], "? error -5000000000"));
}

GUEST_TEST(dates_are_written_and_read_as_iso_8601) {
  id formatter = send(objc_alloc((Class)THE(NSISO8601DateFormatter)), @selector(init));
  const auto date_of = [&](const char *text) {
    return send(formatter, @selector(dateFromString:), text ? [NSString stringWithUTF8String:text] : nil);
  };
  const struct {
    const char *read;
    double time;
    const char *written;
  } cases[] = {{"2024-02-29T12:34:56.9+09:00", 1709210096, "2024-02-29T12:34:56Z"},
               {"0001-01-01T00:00:00Z", -62135596800, "0001-01-01T00:00:00Z"},
               {"9999-12-31T23:59:59Z", 253402300799, "9999-12-31T23:59:59Z"},
               {" 2023-14-1junk", 1706745600, "2024-02-01T00:00:00Z"}};
  for (const auto &c : cases) {
    CHECK(send<double>(date_of(c.read), @selector(timeIntervalSinceDate:), none) == c.time);
    CHECK(is_text(send(formatter, @selector(stringFromDate:), date_of(c.read)), c.written));
  }
  CHECK(date_of(nullptr) == nil && date_of("2024-02") == nil);
  id now = send(THE(NSDate), @selector(date));
  const double since_1970 = send<double>(now, @selector(timeIntervalSinceDate:), none);
  CHECK(since_1970 - time(nullptr) < 1 && since_1970 - time(nullptr) > -2);
  CHECK(send<double>(now, @selector(timeIntervalSinceDate:), now) == 0);
}

// ---- Strings through CoreFoundation ---------------------------------------------------------------------------------

static constexpr uint32 utf8 = 0x08000100, utf16le = 0x14000100, unicode = 0x100;

GUEST_TEST(c_strings_are_copied_when_they_fit) {
  const auto copies = [](NSString *string, int64 size) {
    char buffer[8] = "xxxxxxx";
    const bool fits = CFStringGetCString(string, buffer, size, unicode);
    CHECK(fits ? is_text(string, buffer) && buffer[strlen(buffer) + 1] == 'x' : buffer[0] == 'x');
    return fits;
  };
  CHECK(copies(@"ボ", 4) && !copies(@"ボ", 3) && copies(@"", 1) && !copies(@"", 0) && !copies(@"a", -1));
  CHECK(!copies(nil, 8));
  CHECK(CFStringGetLength(@"aé😀") == 4 && CFStringGetLength(nil) == 0);
  CHECK(CFStringGetMaximumSizeForEncoding(7, utf8) == 21 && CFStringGetMaximumSizeForEncoding(7, unicode) == 14);
}

GUEST_TEST(bytes_are_copied_from_any_range_into_any_room) {
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
      {{5, 0x7fffffffffffffff}, utf8, 16, 1, "z", 1},
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
  CHECK(CFStringGetBytes(THE(NSError), {0, 5}, utf8, 0, false, nullptr, 1, &used) == 0 && used == 0);
}

// ---- Game services --------------------------------------------------------------------------------------------------

GUEST_TEST(handlers_are_called_once_before_the_method_returns) {
  int64 codes[5] = {}, *const log = codes;  // how many, and which
  // Not retained: the library does not copy blocks.
  __unsafe_unretained void (^completion)(id) = ^(id error) {
    if (is_text(send(error, @selector(domain)), "GKErrorDomain")) log[++log[0]] = send<int64>(error, @selector(code));
  };
  __unsafe_unretained void (^with_object)(id, id) = ^(id object, id error) {
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
