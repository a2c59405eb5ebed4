// The part of macOS's Objective-C and Foundation headers that game code here uses. Declarations alone: the code is the
// library's.
#pragma once

using BOOL = signed char;
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
using NSUInteger = unsigned long;
using NSInteger = long;

@class NSString, NSMutableString, NSMutableArray;

struct NSFastEnumerationState {
  unsigned long state;
  __unsafe_unretained id *itemsPtr;
  unsigned long *mutationsPtr;
  unsigned long extra[5];
};

__attribute__((objc_root_class)) @interface NSObject {
  Class isa;
}
+ (instancetype)alloc;
+ (instancetype)allocWithZone:(void *)zone;
+ (instancetype)new;
+ (Class)class;
- (instancetype)init;
- (id)copy;
- (id)mutableCopy;
- (Class)class;
- (instancetype)self;
- (BOOL)isEqual:(id)other;
- (NSUInteger)hash;
- (BOOL)respondsToSelector:(SEL)selector;
+ (BOOL)respondsToSelector:(SEL)selector;
- (BOOL)isKindOfClass:(Class)class_;
- (NSString *)description;
@end

@interface NSData : NSObject
- (const void *)bytes;
- (NSUInteger)length;
@end

@interface NSString : NSObject
+ (instancetype)stringWithUTF8String:(const char *)text;
+ (instancetype)stringWithFormat:(NSString *)format, ...;
- (instancetype)initWithString:(NSString *)other;
- (instancetype)initWithData:(NSData *)data encoding:(NSUInteger)encoding;
- (const char *)UTF8String;
- (NSUInteger)length;
- (BOOL)isEqualToString:(NSString *)other;
- (NSString *)stringValue;
- (int)intValue;
- (NSInteger)integerValue;
- (long long)longLongValue;
- (double)doubleValue;
- (NSString *)copy;
- (NSMutableString *)mutableCopy;
- (NSMutableArray *)componentsSeparatedByString:(NSString *)separator;
@end

@interface NSMutableString : NSString
- (void)appendString:(NSString *)other;
@end

@interface NSNumber : NSObject
+ (NSNumber *)numberWithInt:(int)value;
+ (NSNumber *)numberWithBool:(BOOL)value;
+ (NSNumber *)numberWithInteger:(NSInteger)value;
+ (NSNumber *)numberWithUnsignedInteger:(NSUInteger)value;
+ (NSNumber *)numberWithLongLong:(long long)value;
+ (NSNumber *)numberWithDouble:(double)value;
- (int)intValue;
- (NSInteger)integerValue;
- (long long)longLongValue;
- (NSUInteger)unsignedIntegerValue;
- (double)doubleValue;
- (float)floatValue;
- (BOOL)boolValue;
- (NSString *)stringValue;
@end

@interface NSArray : NSObject
+ (instancetype)arrayWithCapacity:(NSUInteger)capacity;
+ (instancetype)array;
+ (instancetype)arrayWithObject:(id)object;
- (instancetype)initWithObjects:(id)first, ...;
- (NSUInteger)count;
- (id)objectAtIndex:(NSUInteger)index;
- (id)objectAtIndexedSubscript:(NSUInteger)index;
- (BOOL)containsObject:(id)object;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(__unsafe_unretained id *)buffer
                                    count:(NSUInteger)size;
@end

@interface NSMutableArray : NSArray
- (void)addObject:(id)object;
- (void)removeObject:(id)object;
- (void)removeAllObjects;
@end

@interface NSMutableSet : NSMutableArray  // in this library
@end

@interface NSDictionary : NSObject
+ (instancetype)dictionary;
+ (instancetype)dictionaryWithObjects:(const id *)objects forKeys:(const id *)keys count:(NSUInteger)count;
- (NSUInteger)count;
- (id)objectForKey:(id)key;
- (id)objectForKeyedSubscript:(id)key;
- (NSMutableArray *)allKeys;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(__unsafe_unretained id *)buffer
                                    count:(NSUInteger)size;
@end

@interface NSMutableDictionary : NSDictionary
- (void)setObject:(id)object forKey:(id)key;
- (void)setObject:(id)object forKeyedSubscript:(id)key;
- (void)setValue:(id)value forKey:(NSString *)key;
- (void)removeObjectForKey:(id)key;
- (void)removeAllObjects;
@end

@interface NSUbiquitousKeyValueStore : NSObject
+ (NSUbiquitousKeyValueStore *)defaultStore;
- (BOOL)synchronize;
- (id)objectForKey:(NSString *)key;
- (NSString *)stringForKey:(NSString *)key;
- (double)doubleForKey:(NSString *)key;
- (long long)longLongForKey:(NSString *)key;
- (BOOL)boolForKey:(NSString *)key;
- (void)setObject:(id)object forKey:(NSString *)key;
- (void)setString:(NSString *)text forKey:(NSString *)key;
- (void)setDouble:(double)value forKey:(NSString *)key;
- (void)setLongLong:(long long)value forKey:(NSString *)key;
- (void)setBool:(BOOL)value forKey:(NSString *)key;
- (void)removeObjectForKey:(NSString *)key;
- (NSDictionary *)dictionaryRepresentation;
@end

extern "C" {
id objc_alloc(Class);
void *objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void *);
void NSLog(NSString *, ...);
}
