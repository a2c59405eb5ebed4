// The part of macOS's Objective-C and Foundation headers that the guests use. Declarations alone: the code is the
// library's. Every method is declared for NSObject, so that one line does for all classes that have it.
#pragma once

#include "darwin.h"

using BOOL = signed char;
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
using NSUInteger = unsigned long;
using NSInteger = long;
@class NSString, NSData, NSNumber, NSMutableArray, NSDictionary, NSError, GKLocalPlayer;

struct NSFastEnumerationState {
  unsigned long state;
  __unsafe_unretained id *itemsPtr;
  unsigned long *mutationsPtr;
  unsigned long extra[5];
};

// clang-format off
__attribute__((objc_root_class)) @interface NSObject {
  Class isa;
}
+ (instancetype)alloc; + (instancetype)allocWithZone:(void *)zone; + (instancetype)new; - (instancetype)init;
+ (Class)class; - (Class)class; - (instancetype)self; - (id)copy; - (id)mutableCopy;
- (BOOL)isEqual:(id)other; - (NSUInteger)hash; - (NSString *)description; - (BOOL)isKindOfClass:(Class)class_;
- (BOOL)respondsToSelector:(SEL)selector; + (BOOL)respondsToSelector:(SEL)selector;
// Strings, data and numbers.
+ (instancetype)stringWithUTF8String:(const char *)text; + (instancetype)stringWithFormat:(NSString *)format, ...;
- (instancetype)initWithString:(NSString *)other; - (BOOL)isEqualToString:(NSString *)other;
- (instancetype)initWithData:(NSData *)data encoding:(NSUInteger)encoding;
- (const char *)UTF8String; - (NSUInteger)length; - (const void *)bytes; - (void)appendString:(NSString *)other;
- (NSMutableArray *)componentsSeparatedByString:(NSString *)separator; - (NSString *)stringValue;
- (int)intValue; - (NSInteger)integerValue; - (long long)longLongValue; - (NSUInteger)unsignedIntegerValue;
- (double)doubleValue; - (float)floatValue; - (BOOL)boolValue;
+ (NSNumber *)numberWithInt:(int)value; + (NSNumber *)numberWithBool:(BOOL)value;
+ (NSNumber *)numberWithInteger:(NSInteger)value; + (NSNumber *)numberWithUnsignedInteger:(NSUInteger)value;
+ (NSNumber *)numberWithLongLong:(long long)value; + (NSNumber *)numberWithDouble:(double)value;
// Collections.
+ (instancetype)arrayWithCapacity:(NSUInteger)capacity; + (instancetype)array; + (instancetype)arrayWithObject:(id)object;
- (instancetype)initWithObjects:(id)first, ...; - (NSUInteger)count; - (BOOL)containsObject:(id)object;
- (id)objectAtIndex:(NSUInteger)index; - (id)objectAtIndexedSubscript:(NSUInteger)index;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state objects:(__unsafe_unretained id *)buffer
                                    count:(NSUInteger)size;
- (void)addObject:(id)object; - (void)removeObject:(id)object; - (void)removeAllObjects;
+ (instancetype)dictionary;
+ (instancetype)dictionaryWithObjects:(const id *)objects forKeys:(const id *)keys count:(NSUInteger)count;
- (id)objectForKey:(id)key; - (id)objectForKeyedSubscript:(id)key; - (NSMutableArray *)allKeys;
- (void)setObject:(id)object forKey:(id)key; - (void)setObject:(id)object forKeyedSubscript:(id)key;
- (void)setValue:(id)value forKey:(NSString *)key; - (void)removeObjectForKey:(id)key;
// The cloud store.
+ (id)defaultStore; - (BOOL)synchronize; - (NSDictionary *)dictionaryRepresentation;
- (NSString *)stringForKey:(NSString *)key; - (double)doubleForKey:(NSString *)key;
- (long long)longLongForKey:(NSString *)key; - (BOOL)boolForKey:(NSString *)key;
- (void)setString:(NSString *)text forKey:(NSString *)key; - (void)setDouble:(double)value forKey:(NSString *)key;
- (void)setLongLong:(long long)value forKey:(NSString *)key; - (void)setBool:(BOOL)value forKey:(NSString *)key;
// Surroundings.
+ (id)mainBundle; - (NSString *)bundleIdentifier; + (id)currentLocale; + (id)preferredLanguages;
+ (id)defaultManager; - (id)URLForUbiquityContainerIdentifier:(NSString *)identifier;
+ (id)sharedApplication; - (id)mainWindow; + (id)defaultCenter; - (void)removeObserver:(id)observer;
- (void)addObserver:(id)observer selector:(SEL)selector name:(NSString *)name object:(id)object;
- (id)addObserverForName:(NSString *)name object:(id)object queue:(id)queue usingBlock:(void (^)(id))block;
- (void)removeObserver:(id)observer name:(NSString *)name object:(id)object;
+ (NSData *)dataWithJSONObject:(id)object options:(NSUInteger)options error:(__autoreleasing NSError **)error;
+ (instancetype)errorWithDomain:(NSString *)domain code:(NSInteger)code userInfo:(id)info;
- (NSInteger)code; - (NSString *)domain; - (id)userInfo; - (NSString *)localizedDescription;
- (NSString *)localizedFailureReason; - (NSString *)localizedRecoverySuggestion;
+ (instancetype)date; - (double)timeIntervalSinceDate:(id)other;
- (NSString *)stringFromDate:(id)date; - (id)dateFromString:(NSString *)string;
// Game services.
+ (GKLocalPlayer *)localPlayer; + (GKLocalPlayer *)local; - (BOOL)isAuthenticated; - (BOOL)isUnderage;
- (BOOL)isMultiplayerGamingRestricted; - (BOOL)isPersonalizedCommunicationRestricted;
- (NSString *)playerID; - (NSString *)displayName; - (void)setAuthenticateHandler:(void (^)(id, NSError *))handler;
+ (id)shared; - (BOOL)isActive; - (void)setActive:(BOOL)active;
- (instancetype)initWithIdentifier:(NSString *)identifier; - (void)setPercentComplete:(double)percent;
- (void)setShowsCompletionBanner:(BOOL)shows; + (void)requestReview;
+ (void)reportAchievements:(id)achievements withCompletionHandler:(void (^)(NSError *))handler;
+ (void)loadLeaderboardsWithIDs:(id)ids completionHandler:(void (^)(id, NSError *))handler;
+ (void)submitScore:(NSInteger)score context:(NSUInteger)context player:(GKLocalPlayer *)player
     leaderboardIDs:(id)ids completionHandler:(void (^)(NSError *))handler;
@end
// clang-format on

#define CLASS(name, superclass, size) \
  @interface name : superclass        \
  @end
#include "objc/class_list.def"
#undef CLASS

struct NSString_layout {  // what is behind an NSString pointer
  const void *isa;
  uint64 info;
  const void *data;
  uint64 length;
};

struct NSData_layout {
  const void *isa;
  const void *bytes;
  uint64 length;
};

extern "C" {
id objc_alloc(Class);
void *objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void *);
void NSLog(NSString *, ...);
}

inline bool is_text(NSString *string, const char *text) {
  return same([string UTF8String], text) && [string length] <= strlen(text);
}
