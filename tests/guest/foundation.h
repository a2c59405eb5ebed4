// The part of macOS's Objective-C and Foundation headers that the guests use. Declarations alone: the code is the
// library's.
#pragma once

#include "guest_test.h"

using BOOL = signed char;
#define YES ((BOOL)1)
#define NO ((BOOL)0)
#define nil nullptr
using NSUInteger = unsigned long;
using NSInteger = long;

@class NSString, NSArray, NSMutableArray;

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

extern "C" {
id objc_alloc(Class);
void *objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void *);
int32 strcmp(const char *, const char *);
int32 strncmp(const char *, const char *, uint64);
int32 snprintf(char *, uint64, const char *, ...);
void *memcpy(void *, const void *, uint64);
uint64 strlen(const char *);
}
