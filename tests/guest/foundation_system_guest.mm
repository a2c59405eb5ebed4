// The game's surroundings as Foundation, CoreFoundation and GameKit tell of them.
#include "darwin_threads.h"
#include "foundation.h"

@interface NSError : NSObject
+ (instancetype)errorWithDomain:(NSString *)domain code:(NSInteger)code userInfo:(id)info;
- (NSInteger)code;
- (NSString *)domain;
- (id)userInfo;
- (NSString *)localizedDescription;
- (NSString *)localizedFailureReason;
- (NSString *)localizedRecoverySuggestion;
@end

@interface NSBundle : NSObject
+ (NSBundle *)mainBundle;
- (NSString *)bundleIdentifier;
@end
@interface NSLocale : NSObject
+ (NSLocale *)currentLocale;
+ (NSArray *)preferredLanguages;
- (NSString *)objectForKey:(id)key;
@end
@interface NSFileManager : NSObject
+ (NSFileManager *)defaultManager;
- (id)URLForUbiquityContainerIdentifier:(NSString *)identifier;
@end
@interface NSNotificationCenter : NSObject
+ (NSNotificationCenter *)defaultCenter;
- (void)addObserver:(id)observer selector:(SEL)selector name:(NSString *)name object:(id)object;
- (id)addObserverForName:(NSString *)name object:(id)object queue:(id)queue usingBlock:(void (^)(id))block;
- (void)removeObserver:(id)observer;
- (void)removeObserver:(id)observer name:(NSString *)name object:(id)object;
@end
@interface NSJSONSerialization : NSObject
+ (NSData *)dataWithJSONObject:(id)object
                       options:(NSUInteger)options
                         error:(__autoreleasing NSError **)error;
@end
@interface NSDate : NSObject
+ (instancetype)date;
- (double)timeIntervalSinceDate:(NSDate *)other;
@end
@interface NSISO8601DateFormatter : NSObject
- (NSString *)stringFromDate:(NSDate *)date;
- (NSDate *)dateFromString:(NSString *)string;
@end
@interface NSApplication : NSObject
+ (NSApplication *)sharedApplication;
- (id)mainWindow;
@end

@interface GKLocalPlayer : NSObject
+ (GKLocalPlayer *)localPlayer;
+ (GKLocalPlayer *)local;
- (BOOL)isAuthenticated;
- (BOOL)isUnderage;
- (BOOL)isMultiplayerGamingRestricted;
- (BOOL)isPersonalizedCommunicationRestricted;
- (NSString *)playerID;
- (NSString *)displayName;
- (void)setAuthenticateHandler:(void (^)(id, NSError *))handler;
@end
@interface GKAccessPoint : NSObject
+ (GKAccessPoint *)shared;
- (BOOL)isActive;
- (void)setActive:(BOOL)active;
@end
@interface GKAchievement : NSObject
- (instancetype)initWithIdentifier:(NSString *)identifier;
- (void)setPercentComplete:(double)percent;
- (void)setShowsCompletionBanner:(BOOL)shows;
+ (void)reportAchievements:(NSArray *)achievements withCompletionHandler:(void (^)(NSError *))handler;
@end
@interface GKLeaderboard : NSObject
+ (void)loadLeaderboardsWithIDs:(NSArray *)ids completionHandler:(void (^)(NSArray *, NSError *))handler;
+ (void)submitScore:(NSInteger)score
            context:(NSUInteger)context
             player:(GKLocalPlayer *)player
     leaderboardIDs:(NSArray *)ids
  completionHandler:(void (^)(NSError *))handler;
@end
@interface GKDialogController : NSObject
@end
@interface GKGameCenterViewController : NSObject
@end
@interface SKStoreReviewController : NSObject
+ (void)requestReview;
@end

struct Range {  // CFRange
  int64 location, length;
};

extern "C" {
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

// What a nil, the wrong kind of object and other hostile arguments look like.
static NSString *no_string() { return (NSString *)[NSObject new]; }

GUEST_TEST(the_locale_is_english_everywhere) {
  NSLocale *locale = [NSLocale currentLocale];
  const struct {
    __unsafe_unretained NSString *key;
    const char *key_text, *value;
  } cases[] = {
      {kCFLocaleCountryCode, "kCFLocaleCountryCodeKey", "US"},
      {NSLocaleCountryCode, "kCFLocaleCountryCodeKey", "US"},
      {kCFLocaleLanguageCode, "kCFLocaleLanguageCodeKey", "en"},
      {kCFLocaleScriptCode, "kCFLocaleScriptCodeKey", "en_US"},
      {NSLocaleIdentifier, "kCFLocaleIdentifierKey", "en_US"},
      {GKPlayerDidChangeNotificationName, "GKPlayerDidChangeNotificationName", "en_US"},
      {NSUbiquitousKeyValueStoreDidChangeExternallyNotification,
       "NSUbiquitousKeyValueStoreDidChangeExternallyNotification", "en_US"},
  };
  for (const auto &c : cases) {
    CHECK(is_text(c.key, c.key_text));
    CHECK(is_text([locale objectForKey:c.key], c.value) && is_text(CFLocaleGetValue(locale, c.key), c.value));
  }
  CHECK(kCFLocaleCountryCode != NSLocaleCountryCode);
  CHECK(is_text([locale objectForKey:@"LanguageOfCountry"], "US"));
  CHECK(is_text([locale objectForKey:nil], "en_US") && is_text([locale objectForKey:no_string()], "en_US"));
  CHECK(is_text(CFLocaleGetIdentifier(locale), "en_US"));
  NSArray *languages = [NSLocale preferredLanguages];
  CHECK([languages isKindOfClass:[NSMutableArray class]] && [languages count] == 1);
  CHECK(is_text([languages objectAtIndex:0], "en-US"));
}

GUEST_TEST(the_surroundings_hold_nothing) {
  CHECK(is_text([[NSBundle mainBundle] bundleIdentifier], "com.norlan.vlm"));
  CHECK(CFBundleGetVersionNumber(CFBundleGetMainBundle()) == 0x01090100);
  CHECK([[NSFileManager defaultManager] URLForUbiquityContainerIdentifier:nil] == nil);
  CHECK([[NSApplication sharedApplication] mainWindow] == nil);
  NSNotificationCenter *center = [NSNotificationCenter defaultCenter];
  bool called = false, *const was_called = &called;
  id token = [center addObserverForName:@"x" object:nil queue:nil usingBlock:^(id) { *was_called = true; }];
  CHECK([token class] == [NSObject class] && !called);
  [center addObserver:token selector:@selector(init) name:nil object:nil];
  [center removeObserver:token];
  [center removeObserver:token name:nil object:nil];
  NSError *error = (NSError *)token;
  NSData *data = [NSJSONSerialization dataWithJSONObject:[NSDictionary dictionary] options:1 error:&error];
  CHECK([data length] == 2 && memcmp([data bytes], "{}", 2) == 0 && error == nil);
  CHECK([[NSJSONSerialization dataWithJSONObject:nil options:0 error:nullptr] length] == 2);
  CFRelease(data);
}

// ---- The same instance, for all who ask at the same time ------------------------------------------------------------

GUEST_TEST(shared_instances_are_one_each) {
  constexpr int64 askers = 8;
  static __unsafe_unretained id answers[askers][8];
  int64 asking = 0;
  run_on_threads(askers, [&](int64 number) {
    __unsafe_unretained id *mine = answers[number];
    __atomic_fetch_add(&asking, 1, __ATOMIC_SEQ_CST);
    while (__atomic_load_n(&asking, __ATOMIC_SEQ_CST) < askers) asm volatile("pause");
    mine[0] = [NSBundle mainBundle];
    mine[1] = [NSLocale currentLocale];
    mine[2] = [NSFileManager defaultManager];
    mine[3] = [NSNotificationCenter defaultCenter];
    mine[4] = [NSApplication sharedApplication];
    mine[5] = [GKLocalPlayer localPlayer];
    mine[6] = [GKAccessPoint shared];
    mine[7] = CFLocaleCopyCurrent();
  });
  for (int i = 1; i < askers; ++i) CHECK(memcmp(answers[i], answers[0], sizeof answers[0]) == 0);
  for (int i = 0; i < 7; ++i) CHECK(answers[0][i] != nil && answers[0][i] != answers[0][(i + 1) % 7]);
  CHECK(answers[0][0] == CFBundleGetMainBundle() && answers[0][1] == answers[0][7]);
  CHECK([GKLocalPlayer local] == answers[0][5]);
  CHECK([answers[0][1] isKindOfClass:[NSLocale class]]);
}

// ---- Errors and dates -----------------------------------------------------------------------------------------------

GUEST_TEST(errors_describe_themselves) {
  NSObject *info = [NSObject new];
  NSError *error = [NSError errorWithDomain:@"GKErrorDomain" code:6 userInfo:info];
  CHECK([error code] == 6 && [error userInfo] == info && is_text([error domain], "GKErrorDomain"));
  CHECK(is_text([error localizedDescription], "GKErrorDomain error 6") && [error localizedFailureReason] == nil);
  CHECK([error localizedRecoverySuggestion] == nil);
  error = [NSError errorWithDomain:nil code:(-9223372036854775807l - 1) userInfo:nil];
  CHECK(is_text([error description], "? error -9223372036854775808"));
  NSMutableString *longest = [NSMutableString new];
  for (int i = 0; i < 100; ++i) [longest appendString:@"0123456789"];
  CHECK([[[NSError errorWithDomain:longest code:1 userInfo:nil] description] length] == 255);
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
    const char *written;  // null: as it was read
  } cases[] = {
      {"1970-01-01T00:00:00Z", 0, nullptr},
      {"2024-02-29", 1709164800, "2024-02-29T00:00:00Z"},
      {"2024-02-29T12:34:56.9+09:00", 1709210096, "2024-02-29T12:34:56Z"},
      {"1969-12-31T23:59:59Z", -1, nullptr},
      {"1900-03-01T00:00:00Z", -2203891200, nullptr},
      {"0001-01-01T00:00:00Z", -62135596800, nullptr},
      {"3001-01-01T00:00:00Z", 32535216000, nullptr},
      {"9999-12-31T23:59:59Z", 253402300799, nullptr},
      {"2023-14-01T24:00:60Z", 1706832060, "2024-02-02T00:01:00Z"},
      {"2023-0-0", 1669766400, "2022-11-30T00:00:00Z"},
      {"2147483647-12-31T00:00:00Z", 67767976233446400, nullptr},
      {" 2024-2-3junk", 1706918400, "2024-02-03T00:00:00Z"},
  };
  for (const auto &c : cases) {
    NSDate *date = [formatter dateFromString:[NSString stringWithUTF8String:c.read]];
    CHECK(((Date *)(__bridge void *)date)->time == c.time);
    CHECK(is_text([formatter stringFromDate:date], c.written ? c.written : c.read));
  }
  for (NSString *text :
       (NSString * __unsafe_unretained[]){nil, no_string(), @"", @"2024-02", @"yesterday", @"2024/02/01"}) {
    CHECK([formatter dateFromString:text] == nil);
  }
  CHECK(is_text([formatter stringFromDate:nil], "1970-01-01T00:00:00Z"));

  NSDate *now = [NSDate date];
  const double since_1970 = [now timeIntervalSinceDate:nil];
  CHECK(since_1970 - time(nullptr) < 1 && since_1970 - time(nullptr) > -2);
  auto *words = (Date *)(__bridge void *)now;
  const struct {
    double time;
    const char *written;
  } odd[] = {{-0.5, "1970-01-01T00:00:00Z"},
             {59.999, "1970-01-01T00:00:59Z"},
             {__builtin_nan(""), "1970-01-01T00:00:00Z"},
             {1e300, "1970-01-01T00:00:00Z"}};
  for (const auto &c : odd) {
    words->time = c.time;
    CHECK(is_text([formatter stringFromDate:now], c.written));
  }
  words->time = 9.2e18;
  CHECK([[formatter stringFromDate:now] length] > 20);
  CHECK([now timeIntervalSinceDate:now] == 0 && [now timeIntervalSinceDate:(NSDate *)no_string()] == 9.2e18);
}

// ---- Strings through CoreFoundation ---------------------------------------------------------------------------------

static constexpr uint32 utf8 = 0x08000100, utf16le = 0x14000100, unicode = 0x100;

GUEST_TEST(c_strings_are_copied_when_they_fit) {
  char buffer[8];
  const struct {
    __unsafe_unretained NSString *string;
    int64 size;
    bool fits;
  } cases[] = {{@"ball", 5, true}, {@"ball", 4, false}, {@"", 1, true},  {@"", 0, false},
               {@"ボ", 4, true},   {@"ボ", 3, false},   {@"a", -1, false}, {nil, 8, false}, {no_string(), 8, false}};
  for (const auto &c : cases) {
    memset(buffer, 'x', sizeof buffer);
    CHECK(CFStringGetCString(c.string, buffer, c.size, unicode) == c.fits);
    CHECK(c.fits ? is_text(c.string, buffer) : buffer[0] == 'x');
    if (c.fits) CHECK(buffer[strlen(buffer) + 1] == 'x');
  }
  CHECK(!CFStringGetCString(@"ball", nullptr, 100, utf8));
  CHECK(CFStringGetLength(@"aé😀") == 4 && CFStringGetLength(nil) == 0);
  CHECK(CFStringGetMaximumSizeForEncoding(7, utf8) == 21 && CFStringGetMaximumSizeForEncoding(7, unicode) == 14);
  CHECK(CFStringGetMaximumSizeForEncoding(7, 0) == 14);
}

GUEST_TEST(bytes_are_copied_from_any_range_into_any_room) {
  constexpr int64 most = 0x7fffffffffffffff, least = -most - 1;
  NSString *string = @"aéボ😀z";  // units: a é ボ d83d de00 z
  const struct {
    Range range;
    uint32 encoding;
    int64 room;
    int64 units;
    const char *bytes;
    int64 used;
  } cases[] = {
      {{0, 6}, utf8, 16, 6, "a\xc3\xa9\xe3\x83\x9c\xf0\x9f\x98\x80z", 11},
      {{0, 6}, utf8, 10, 6, "a\xc3\xa9\xe3\x83\x9c\xf0\x9f\x98\x80", 10},
      {{0, 6}, utf8, 5, 6, "a\xc3\xa9\xe3\x83", 5},  // in the middle of a character
      {{0, 6}, utf8, 0, 6, "", 0},
      {{0, 6}, utf8, -1, 6, "", 0},
      {{1, 2}, 0x600, 16, 2, "\xc3\xa9\xe3\x83\x9c", 5},  // an encoding that there is none of
      {{3, 1}, utf8, 16, 1, "\xef\xbf\xbd", 3},  // half a character
      {{0, 2}, utf16le, 16, 2, "a\0\xe9\0", 4},
      {{0, 2}, utf16le, 3, 2, "a\0", 2},
      {{0, 2}, unicode, 1, 2, "", 0},
      {{0, 2}, unicode, -1, 2, "", 0},
      {{4, 100}, unicode, 16, 2, "\0\xdez\0", 4},
      {{5, most}, utf8, 16, 1, "z", 1},
      {{6, 1}, utf8, 16, 0, "", 0},
      {{100, 1}, utf16le, 16, 0, "", 0},
      {{most, most}, utf8, 16, 0, "", 0},
      {{-2, 3}, utf8, 16, 1, "a", 1},
      {{least, most}, utf8, 16, 0, "", 0},
      {{3, -1}, utf8, 16, 0, "", 0},
      {{least, least}, utf16le, 16, 0, "", 0},
  };
  for (const auto &c : cases) {
    char buffer[18];
    memset(buffer, 'x', sizeof buffer);
    int64 used = -1;
    CHECK(CFStringGetBytes(string, c.range, c.encoding, '?', true, buffer + 1, c.room, &used) == c.units);
    CHECK(used == c.used && memcmp(buffer + 1, c.bytes, c.used) == 0);
    CHECK(buffer[0] == 'x' && buffer[1 + c.used] == 'x');
  }
  int64 used;
  CHECK(CFStringGetBytes(string, {0, 6}, utf8, 0, false, nullptr, 1, &used) == 6 && used == 11);
  CHECK(CFStringGetBytes(string, {0, 6}, utf16le, 0, false, nullptr, 1, &used) == 6 && used == 12);
  char byte;
  CHECK(CFStringGetBytes(string, {0, 6}, utf8, 0, false, &byte, 1, nullptr) == 6 && byte == 'a');
  for (NSString *none : (NSString * __unsafe_unretained[]){nil, @"", no_string()}) {
    CHECK(CFStringGetBytes(none, {0, 5}, utf8, 0, false, &byte, 1, &used) == 0 && used == 0);
  }
}

// ---- Game services --------------------------------------------------------------------------------------------------

GUEST_TEST(handlers_are_called_once_before_the_method_returns) {
  int calls = 0, *const count = &calls;
  int64 code = 0, *const seen = &code;
  // Not retained: the library does not copy blocks.
  __unsafe_unretained void (^completion)(NSError *) = ^(NSError *error) {
    ++*count;
    *seen = is_text([error domain], "GKErrorDomain") && [error userInfo] == nil ? [error code] : -1;
  };
  __unsafe_unretained void (^with_object)(id, NSError *) = ^(id object, NSError *error) {
    if (object == nil) completion(error);
  };
  GKLocalPlayer *player = [GKLocalPlayer local];
  [player setAuthenticateHandler:with_object];
  CHECK(calls == 1 && code == 15);
  [GKAchievement reportAchievements:nil withCompletionHandler:completion];
  CHECK(calls == 2 && code == 6);
  code = 0;
  [GKLeaderboard loadLeaderboardsWithIDs:nil completionHandler:with_object];
  CHECK(calls == 3 && code == 6);
  code = 0;
  [GKLeaderboard submitScore:1 context:2 player:player leaderboardIDs:nil completionHandler:completion];
  CHECK(calls == 4 && code == 6);

  [player setAuthenticateHandler:nil];
  [GKAchievement reportAchievements:nil withCompletionHandler:nil];
  [GKLeaderboard loadLeaderboardsWithIDs:nil completionHandler:nil];
  [GKLeaderboard submitScore:1 context:2 player:player leaderboardIDs:nil completionHandler:nil];
  uint64 block_without_code[5] = {};
  [player setAuthenticateHandler:(__bridge id)(void *)block_without_code];
  CHECK(calls == 4);
}

GUEST_TEST(nobody_is_signed_in) {
  GKLocalPlayer *player = [GKLocalPlayer localPlayer];
  CHECK(![player isAuthenticated] && ![player isUnderage] && ![player isMultiplayerGamingRestricted]);
  CHECK(![player isPersonalizedCommunicationRestricted] && [player playerID] == nil && [player displayName] == nil);
  GKAccessPoint *point = [GKAccessPoint shared];
  [point setActive:YES];
  CHECK(![point isActive]);
  GKAchievement *achievement = [GKAchievement alloc];
  CHECK([achievement initWithIdentifier:@"first"] == achievement);
  [achievement setPercentComplete:50];
  [achievement setShowsCompletionBanner:YES];
  CHECK([[GKDialogController new] isKindOfClass:[GKDialogController class]]);
  CHECK([[GKGameCenterViewController new] isKindOfClass:[GKGameCenterViewController class]]);
  [SKStoreReviewController requestReview];
}
