// Strings, numbers and collections, with the literals and loops that the compiler has for them. What the library does
// not have is avoided: @[...] and @{} literals, messages to super, results that nobody takes.
#include "foundation.h"

static NSString_layout *layout(NSString *string) { return (NSString_layout *)(__bridge void *)string; }

static NSString *text(const char *utf8) { return [NSString stringWithUTF8String:utf8]; }

/// The texts of a collection's elements, in the order of a loop.
static NSString *list(id collection) {
  NSMutableString *texts = [NSMutableString new];
  for (id element in collection) {
    [texts appendString:[element stringValue]];
    [texts appendString:@";"];
  }
  return texts;
}

// A class of the game's own below one whose variables the compiler does not know.
@interface GameString : NSString
- (long)answer;
@end
@implementation GameString
- (long)answer { return [self length] + 40; }
@end

// ---- Strings --------------------------------------------------------------------------------------------------------

GUEST_TEST(constants_are_used_in_place) {
  NSString *ascii = @"ball", *wide = @"ボールé😀", *ill = [NSString alloc];
  CHECK(layout(ascii)->info == 0x7c8 && [ascii UTF8String] == layout(ascii)->data && [ascii class] == [NSString class]);
  CHECK(layout(wide)->info == 0x7d0 && layout(wide)->length == 6);
  CHECK([wide length] == 6 && layout(wide)->info == 0x7c8 && layout(wide)->length == 15);
  CHECK(same([wide UTF8String], "ボールé😀") && [wide UTF8String] == layout(wide)->data);
  CHECK([@"ボール" isEqualToString:text("ボール")] && [@"ボール" hash] == [text("ボール") hash]);
  static const unsigned short lone_surrogate[] = {'a', 0xd83d, 'b', 0};
  *layout(ill) = {layout(ill)->isa, 0x7d0, lone_surrogate, 3};
  CHECK(same([ill UTF8String], "a\xef\xbf\xbd""b") && [ill length] == 3);
}

GUEST_TEST(equal_strings_have_equal_texts_and_hashes) {
  static constexpr const char *texts[] = {"", "a", "b", "ab", "key_0001", "key_0002", "kex_0001", "ykey_0001", "aé😀"};
  for (const auto &left : texts) {
    for (const auto &right : texts) {
      NSString *one = text(left), *other = text(right);
      const bool same = left == right;
      CHECK([one isEqual:other] == same && [one isEqualToString:other] == same && ([one hash] == [other hash]) == same);
      CHECK([[NSArray arrayWithObject:one] containsObject:other] == same);
    }
  }
  CHECK([text("aé😀") length] == 4 && [text("\xff\xfe") length] == 2);
  CHECK(![@"" isEqual:nil] && ![@"" isEqual:[NSObject new]] && ![@"1" isEqualToString:(id)@1]);
  CHECK([@"" hash] == 0xcbf29ce484222325 && [@"a" hash] == 0xaf63dc4c8601ec8c);
}

GUEST_TEST(texts_are_numbers_as_atoi_and_atof_read_them) {
  NSString *odd = @" \t-7.5e1x", *large = @"4294967298", *larger = @"-99999999999999999999";
  CHECK([odd intValue] == -7 && [odd integerValue] == -7 && [odd doubleValue] == -75 && [@"two" doubleValue] == 0);
  CHECK([large intValue] == 2 && [large integerValue] == 4294967298 && [large longLongValue] == 4294967298);
  CHECK([larger longLongValue] == -9223372036854775807 - 1 && [larger doubleValue] == -1e20);
}

GUEST_TEST(strings_are_made_and_copied) {
  NSMutableString *made = [NSMutableString stringWithUTF8String:"made"], *mutable_copy = [@"constant" mutableCopy];
  NSString *copy = [made copy];
  CHECK(text(nullptr) == nil && [made class] == [NSMutableString class] && [[NSMutableString new] hash] == [@"" hash]);
  CHECK(copy != made && [copy class] == [NSString class] && [copy description] == copy && [copy stringValue] == copy);
  for (id part : (const id[]){@"-ボ", made, nil, @5}) [made appendString:part];
  [mutable_copy appendString:@"!"];
  CHECK(is_text(made, "made-ボmade-ボ") && is_text(copy, "made") && is_text(mutable_copy, "constant!"));
  CHECK(is_text([[NSString alloc] initWithString:made], "made-ボmade-ボ") && is_text([copy initWithString:nil], ""));
  CHECK([[[GameString alloc] initWithString:@"12"] answer] == 42 && [[GameString stringWithUTF8String:"1"] answer] == 41);

  struct {  // of an NSData
    const void *isa, *bytes;
    uint64 length;
  } data = {(__bridge void *)[NSData class], "abcd\0f", 3};
  NSData *bytes = (__bridge NSData *)(void *)&data;
  CHECK([bytes length] == 3 && [bytes bytes] == data.bytes);
  CHECK(is_text([[NSString alloc] initWithData:bytes encoding:4], "abc"));
  data.length = 6;
  CHECK(layout([[NSString alloc] initWithData:bytes encoding:4])->length == 4);
}

GUEST_TEST(components_are_what_lies_between_separators) {
  static constexpr const char *cases[][3] = {
      {"a,,b,", ",", "a;;b;;"},  {"", ",", ";"},           {"a, b, c", ", ", "a;b;c;"}, {"aaaaa", "aa", ";;a;"},
      {"whole", "", "whole;"}, {"short", "longer", "short;"}};
  for (const auto &[whole, separator, pieces] : cases) {
    CHECK(same([list([text(whole) componentsSeparatedByString:text(separator)]) UTF8String], pieces));
  }
}

GUEST_TEST(formats_take_every_argument) {
  NSString *string = [NSString stringWithFormat:@"%d %s %@ %.2f %lld %c %@ %g %d %d%%", 1, "two", @"drei", 4.0, 5ll,
                                                '6', @7, 8.5, 9, 10];
  CHECK(strncmp([string UTF8String], "1 two drei 4.00 5 6 <NSNumber: 0x", 33) == 0);
  CHECK(same([string UTF8String] + strlen([string UTF8String]) - 11, "> 8.5 9 10%"));
  CHECK(is_text([NSMutableString stringWithFormat:@"%@ ボ %@", nil, @"é"], "(null) ボ é"));
  for (const uint64 length : (const uint64[]){2046, 2047, 2048}) {
    static char long_text[5001];
    for (uint64 i = 0; i < length; ++i) long_text[i] = 'a' + i % 23;
    CHECK(same([[NSString stringWithFormat:@"%@", text(long_text)] UTF8String], long_text));
  }
  NSLog(@"%@ %d %s", @"nothing", 1, "is written");
  NSLog(nil);
}

// ---- Numbers --------------------------------------------------------------------------------------------------------

GUEST_TEST(numbers_hold_an_integer_and_a_double) {
  const struct {
    NSNumber *number;
    long long integer;
    double real;
    const char *text;
  } cases[] = {
      {@0.1, 0, 0.1, "0.10000000000000001"}, {@-2.75, -2, -2.75, "-2.75"}, {@YES, 1, 1, "1"},
      {@9223372036854775807ll, 9223372036854775807, 0x1p63, "9223372036854775807"},
      {[NSNumber numberWithInteger:-5000000000], -5000000000, -5e9, "-5000000000"},
      {[NSNumber numberWithUnsignedInteger:5000000000], 5000000000, 5e9, "5000000000"},
      {[NSNumber numberWithInt:-2147483647 - 1], -2147483648, -2147483648., "-2147483648"},
  };
  for (const auto &c : cases) {
    CHECK([c.number longLongValue] == c.integer && [c.number integerValue] == c.integer);
    CHECK([c.number unsignedIntegerValue] == (NSUInteger)c.integer && [c.number hash] == (NSUInteger)c.integer);
    CHECK([c.number intValue] == (int)c.integer && [c.number doubleValue] == c.real);
    CHECK([c.number floatValue] == (float)c.real && [c.number boolValue] == (c.real != 0));
    CHECK(is_text([c.number stringValue], c.text) && is_text([c.number description], c.text));
  }
  CHECK([@2 isEqual:@2.0] && ![@2 isEqual:@2.5] && ![@2 isEqual:@"2"] && ![@2 isEqual:nil]);
}

// ---- Collections ----------------------------------------------------------------------------------------------------

GUEST_TEST(arrays_keep_their_order_and_sets_hold_equal_objects_once) {
  NSMutableArray *array = [NSMutableArray arrayWithCapacity:3];
  for (int i = 0; i < 100; ++i) [array addObject:[NSNumber numberWithInt:i % 10]];
  [array addObject:nil];
  CHECK([array count] == 100 && [array[57] intValue] == 7 && [[array objectAtIndex:99] intValue] == 9);
  [array removeObject:@3];
  CHECK([array count] == 90 && ![array containsObject:@3] && [array[3] intValue] == 4 && [array[89] intValue] == 9);
  CHECK(is_text([array description], "<NSMutableArray count=90>"));
  [array removeAllObjects];
  CHECK([array count] == 0 && ![array containsObject:@1] && [[NSArray array] count] == 0);
  CHECK(is_text(list([[NSArray alloc] initWithObjects:@1, @2, @3, @4, @5, @6, @7, @8, nil]), "1;2;3;4;5;6;7;8;"));

  NSMutableSet *set = [[NSMutableSet alloc] init];
  for (id object : (const id[]){@"one", @1, text("one"), @1.0, @1.5, @"1", nil}) [set addObject:object];
  CHECK(is_text(list(set), "one;1;1.5;1;"));
  [set removeObject:text("one")];
  CHECK(is_text(list(set), "1;1.5;1;"));
}

GUEST_TEST(dictionaries_find_equal_keys) {
  NSDictionary *literal = @{@"name" : @"ball", @1 : @"number", @"1" : @"text", @2.5 : @YES, @"ボール" : @"wide"};
  CHECK([literal count] == 5 && is_text(literal[text("name")], "ball") && is_text(literal[@"ボール"], "wide"));
  CHECK(is_text(literal[@1.0], "number") && is_text(literal[@"1"], "text") && [literal[@2.5] boolValue]);
  CHECK(literal[@2] == nil && literal[@"nam"] == nil && [literal objectForKey:nil] == nil);
  CHECK(is_text([literal description], "<NSDictionary count=5>") && [[NSDictionary dictionary] count] == 0);

  NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
  for (int i = 0; i < 20; ++i) dictionary[[NSString stringWithFormat:@"k%d", i]] = [NSNumber numberWithInt:i];
  [dictionary setObject:@"new" forKey:@"k7"];
  [dictionary setValue:nil forKey:@"k8"];
  [dictionary removeObjectForKey:@"k9"];
  CHECK(is_text(list(dictionary), "k0;k1;k2;k3;k4;k5;k6;k7;k10;k11;k12;k13;k14;k15;k16;k17;k18;k19;"));
  CHECK(is_text(dictionary[@"k7"], "new") && [dictionary[@"k19"] intValue] == 19 && dictionary[@"k8"] == nil);
  NSMutableArray *keys = [dictionary allKeys];
  [dictionary removeAllObjects];
  CHECK([dictionary count] == 0 && dictionary[@"k0"] == nil && [keys count] == 18);
  NSObject *other = [NSObject new];  // objects of other classes are keys by their address
  dictionary[(id)other] = @3;
  CHECK([dictionary[(id)other] intValue] == 3 && dictionary[(id)[NSObject new]] == nil);
}

// ---- How a game ends ------------------------------------------------------------------------------------------------

extern "C" {
int64 read_past_the_end() { return [[[NSArray alloc] initWithObjects:@1, @2, nil] objectAtIndex:2] != nil; }

int64 change_while_looping() {
  NSMutableArray *array = [[NSMutableArray alloc] initWithObjects:@1, @2, nil];
  for (NSNumber *number in array) [array addObject:number];
  return 0;
}
}
