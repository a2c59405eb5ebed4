// Classes, messages, ARC and blocks, as the compiler emits them.
#include "darwin_threads.h"
#include "foundation.h"

@class Shape;
struct Vector {
  double x, y, z;
};
struct Pair {
  double first;
  long second;
};

extern "C" {
Shape *send_for_shape(id, SEL) asm("_objc_msgSend");
long send_for_long(id, SEL) asm("_objc_msgSend");
void send_for_vector(Vector *, id, SEL) asm("_objc_msgSend_stret");
void *objc_autorelease(void *), *objc_autoreleaseReturnValue(void *), *objc_retainAutorelease(void *),
    *objc_retainAutoreleaseReturnValue(void *);
}

static long shapes_made = 0;

@interface Shape : NSObject {
  long _sides;
}
@property(nonatomic, strong) id tag;
@property(nonatomic) float weight;
@end
@implementation Shape
+ (long)made { return shapes_made; }
- (instancetype)initWithSides:(long)sides {
  self = [self init];  // the library has no message to super
  _sides = sides;
  ++shapes_made;
  return self;
}
- (long)sides { return _sides; }
- (Vector)scaled:(double)by plus:(Vector)offset {
  return {_sides * by + offset.x, _sides * by + offset.y, _sides * by + offset.z};
}
- (Pair)pair { return {_sides * 0.5, _sides}; }
- (float)half { return _sides / 2.0f; }
- (long)sum:(long)a and:(long)b and:(long)c and:(long)d { return _sides + 10 * a + 100 * b + 1000 * c + 10000 * d; }
- (double)total:(int)count, ... {
  double total = 0;
  __builtin_va_list list;
  __builtin_va_start(list, count);
  for (int i = 0; i < count; ++i) total += __builtin_va_arg(list, double);
  __builtin_va_end(list);
  return total;
}
@end

// Categories: of a class of the image's own, where they come before the class, and of one of the library's.
@implementation Shape (Area)
- (long)doubledSides { return 2 * _sides; }
#pragma clang diagnostic ignored "-Wobjc-protocol-method-implementation"
- (float)half { return _sides / 2.0f + 100; }
@end

@implementation NSObject (Greeting)
- (long)greeting { return 11; }
+ (long)classGreeting { return 22; }
@end

@interface Square : Shape
@end
@implementation Square
- (instancetype)init {
  _sides = 4;
  return self;
}
- (long)sides { return _sides + 100; }
- (BOOL)isSquare { return YES; }
@end

// In objc_relative_class.S.
@interface Relative : NSObject
- (long)seven;
- (long)first;
@end

@interface NSObject (NeverImplemented)
- (long)nobodyDoesThis;
- (double)nobodyDoesThisDouble;
- (Vector)nobodyDoesThisVector;
+ (long)nobodyDoesThisEither;
@end

GUEST_TEST(messages_carry_every_kind_of_argument_and_result) {
  const long made = [Shape made];
  Shape *shape = [[Shape alloc] initWithSides:3];
  CHECK([Shape made] == made + 1 && [shape sides] == 3 && [shape half] == 101.5f);  // the category's
  const Pair pair = [shape pair];
  const Vector vector = [shape scaled:2 plus:{1, 2, 3}];
  CHECK(pair.first == 1.5 && pair.second == 3 && vector.x == 7 && vector.y == 8 && vector.z == 9);
  CHECK([shape sum:1 and:2 and:3 and:4] == 43213);
  CHECK(([shape total:10, 1., 2., 3., 4., 5., 6., 7., 8., 9., 10.] == 55));
  CHECK([shape doubledSides] == 6 && [shape greeting] == 11 && [Shape classGreeting] == 22);
  CHECK([[NSObject new] greeting] == 11 && [NSObject classGreeting] == 22);
  Square *square = [Square new];
  CHECK([square sides] == 104 && [square isSquare] && [square doubledSides] == 8);
  Relative *relative = [Relative new];
  CHECK([relative first] == 1 && [relative seven] == 7 && [relative greeting] == 11 && objc_alloc(nullptr) == nil);
}

GUEST_TEST(nil_and_unknown_selectors_answer_zero) {
  Shape *nothing = nil, *shape = [Shape new];
  for (Shape *receiver : (Shape * __unsafe_unretained[]){nothing, shape, shape}) {  // the last from the cache
    CHECK([receiver nobodyDoesThis] == 0 && [receiver nobodyDoesThisDouble] == 0);
    Vector vector = {1, 2, 3};
    send_for_vector(&vector, receiver, @selector(nobodyDoesThisVector));
    CHECK(vector.x == 1 && vector.y == 2 && vector.z == 3 && [NSObject nobodyDoesThisEither] == 0);
  }
  CHECK([nothing sides] == 0 && [nothing half] == 0 && [nothing pair].first == 0 && [nothing pair].second == 0);
}

GUEST_TEST(classes_know_what_they_are) {
  Square *square = [[Square alloc] init];
  CHECK([square class] == [Square class] && [Square class] == (Class)[Square class]);
  CHECK([square isKindOfClass:[Shape class]] && [square isKindOfClass:[NSObject class]]);
  CHECK(![square isKindOfClass:[NSString class]] && ![[Shape new] isKindOfClass:[Square class]]);
  CHECK([square respondsToSelector:@selector(isSquare)] && ![[Shape new] respondsToSelector:@selector(isSquare)]);
  CHECK([Square respondsToSelector:@selector(made)] && [Square respondsToSelector:@selector(description)]);
  CHECK([square isEqual:square] && ![square isEqual:[Square new]] && [square copy] == square);
  CHECK([square self] == square && [square hash] == ((NSUInteger)(__bridge void *)square >> 4));
  CHECK([send_for_shape((id)[Shape class], @selector(allocWithZone:)) sides] == 0);  // its own call otherwise
}

GUEST_TEST(ownership_means_nothing_but_values_stay) {
  Shape *shape = [[Shape alloc] initWithSides:5];
  __weak Shape *weak = nil;
  weak = shape;
  @autoreleasepool {
    shape.tag = [Square new];
    shape.weight = 0.25f;
  }
  CHECK([shape.tag sides] == 104 && shape.weight == 0.25f && [weak sides] == 5);
  shape.tag = nil;
  void *token = objc_autoreleasePoolPush(), *object = (__bridge void *)shape;
  CHECK(shape.tag == nil && token != nullptr && token == objc_autoreleasePoolPush());
  CHECK(objc_autorelease(object) == object && objc_autoreleaseReturnValue(object) == object);
  CHECK(objc_retainAutorelease(object) == object && objc_retainAutoreleaseReturnValue(nullptr) == nullptr);
}

// Every class of the library as its two symbols show it.
struct ClassObject {
  const ClassObject *isa, *superclass;
};
#define CLASS(name, superclass, size)                            \
  extern "C" ClassObject class_##name asm("_OBJC_CLASS_$_" #name); \
  extern "C" ClassObject metaclass_##name asm("_OBJC_METACLASS_$_" #name);
CLASS(NSObject, , )
#include "objc/class_list.def"
#undef CLASS

GUEST_TEST(the_librarys_classes_have_their_metaclasses) {
  CHECK(class_NSObject.isa == &metaclass_NSObject && class_NSObject.superclass == nullptr);
  CHECK(metaclass_NSObject.isa == &metaclass_NSObject && metaclass_NSObject.superclass == &class_NSObject);
#define CLASS(name, super, size)                                                          \
  CHECK(class_##name.isa == &metaclass_##name && class_##name.superclass == &class_##super); \
  CHECK(metaclass_##name.isa == &metaclass_NSObject && metaclass_##name.superclass == &metaclass_##super);
#include "objc/class_list.def"
}

static long call_block(__attribute__((noescape)) long (^block)(long), long argument) { return block(argument); }

GUEST_TEST(blocks_keep_what_they_caught) {
  Shape *shape = [[Shape alloc] initWithSides:7];
  const long base = 30;
  CHECK(call_block(^(long more) { return base + more + [shape sides]; }, 5) == 42);
  CHECK(call_block(^(long more) { return more + 1; }, 1) == 2);
}

// Selectors of many addresses, from many threads: texts of "sides" and of "unknown" at 4,096 addresses, which share
// slots of the method cache with each other.
GUEST_TEST(eight_threads_never_meet_another_method) {
  constexpr unsigned copies = 4096;
  alignas(16) static char texts[copies][16];
  for (unsigned i = 0; i < copies; ++i) memcpy(texts[i], i % 2 == 0 ? "sides" : "unknown", 8);
  const id receivers[] = {[[Shape alloc] initWithSides:1], [Square new]};
  uint64 wrong_answers = 0;
  run_on_threads(8, [&](int64 number) {
    uint64 state = number + 1, wrong = 0;
    for (int i = 0; i < 40'000; ++i) {
      state = state * 6364136223846793005ul + 1442695040888963407ul;
      const unsigned copy = (state >> 33) % copies, who = state >> 63;
      wrong += send_for_long(receivers[who], (SEL)texts[copy]) != (copy % 2 == 0 ? 1 + 103 * who : 0);
    }
    __atomic_fetch_add(&wrong_answers, wrong, __ATOMIC_SEQ_CST);
  });
  CHECK(wrong_answers == 0);
}
