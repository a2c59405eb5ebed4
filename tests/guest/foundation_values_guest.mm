// Strings, numbers and collections, with the literals and loops that the compiler has for them. What the library does
// not have is avoided: @[...] and @{} literals, messages to super, results that nobody takes.
#include "foundation.h"

static NSString_layout *layout(NSString *string) { return (NSString_layout *)(__bridge void *)string; }

static NSString *text(const char *utf8) { return [NSString stringWithUTF8String:utf8]; }

static NSData *data(const void *bytes, uint64 length) {
  NSData *data = [NSData alloc];
  auto *words = (NSData_layout *)(__bridge void *)data;
  words->bytes = bytes;
  words->length = length;
  return data;
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
  NSString *ascii = @"ball";
  CHECK(layout(ascii)->info == 0x7c8 && [ascii UTF8String] == layout(ascii)->data && [ascii length] == 4);
  CHECK([ascii class] == [NSString class]);

  NSString *wide = @"ボールé😀";
  CHECK(layout(wide)->info == 0x7d0 && layout(wide)->length == 6);
  CHECK([wide length] == 6);
  CHECK(layout(wide)->info == 0x7c8 && layout(wide)->length == 15);
  CHECK(strcmp([wide UTF8String], "ボールé😀") == 0 && [wide UTF8String] == layout(wide)->data);
  CHECK([@"ボール" isEqualToString:text("ボール")] && [@"ボール" hash] == [text("ボール") hash]);

  static const unsigned short lone_surrogate[] = {'a', 0xd83d, 'b', 0};
  NSString *ill = [NSString alloc];
  *layout(ill) = {layout(ill)->isa, 0x7d0, lone_surrogate, 3};
  CHECK(strcmp([ill UTF8String], "a\xef\xbf\xbd""b") == 0 && [ill length] == 3);
  *layout(ill) = {layout(ill)->isa, 0x7d0, lone_surrogate, 1ul << 40};  // more than there is
  CHECK(is_text(ill, ""));
}

GUEST_TEST(length_counts_utf16_units) {
  static constexpr struct {
    const char *text;
    uint64 units;
  } cases[] = {{"", 0}, {"abc", 3}, {"é", 1}, {"aéb", 3}, {"ボ", 1}, {"😀", 2}, {"a\xff", 2}};
  for (const auto &c : cases) CHECK([text(c.text) length] == c.units);
}

GUEST_TEST(equal_strings_have_equal_texts_and_hashes) {
  static constexpr const char *texts[] = {"",         "a",         "b",         "ab",         "key_0001", "key_0002",
                                          "kex_0001", "key_00010", "ykey_0001", "key__00017", "\xff\xfe", "é"};
  for (const char *left : texts) {
    for (const char *right : texts) {
      const bool same = left == right;
      CHECK([text(left) isEqual:text(right)] == same && [text(left) isEqualToString:text(right)] == same);
      CHECK(([text(left) hash] == [text(right) hash]) == same);
      CHECK([[NSArray arrayWithObject:text(left)] containsObject:text(right)] == same);
    }
    CHECK(![text(left) isEqual:nil] && ![text(left) isEqual:[NSObject new]] && ![text(left) isEqualToString:(id)@1]);
  }
  CHECK([@"" hash] == 0xcbf29ce484222325 && [@"a" hash] == 0xaf63dc4c8601ec8c);
}

GUEST_TEST(texts_are_numbers_as_atoi_and_atof_read_them) {
  static constexpr struct {
    const char *text;
    int small;
    long long large;
    double real;
  } cases[] = {
      {"", 0, 0, 0},
      {"42", 42, 42, 42},
      {" \t-7.5e1x", -7, -7, -75},
      {"0x10", 0, 0, 16},
      {"4294967298", 2, 4294967298, 4294967298.},
      {"99999999999999999999", -1, 9223372036854775807, 1e20},
      {"-99999999999999999999", 0, -9223372036854775807 - 1, -1e20},
      {"1e999", 1, 1, __builtin_inf()},
      {"two", 0, 0, 0},
  };
  for (const auto &c : cases) {
    NSString *string = text(c.text);
    CHECK([string intValue] == c.small && [string doubleValue] == c.real);
    CHECK([string longLongValue] == c.large && [string integerValue] == c.large);
  }
}

GUEST_TEST(strings_are_made_and_copied) {
  CHECK([NSString stringWithUTF8String:nullptr] == nil);
  NSMutableString *made = [NSMutableString stringWithUTF8String:"made"];
  CHECK([made class] == [NSMutableString class] && is_text(made, "made"));
  NSString *copy = [made copy];
  NSMutableString *mutable_copy = [@"constant" mutableCopy];
  CHECK(copy != made && [copy class] == [NSString class] && [copy description] == copy && [copy stringValue] == copy);
  [made appendString:@"-ボ"];
  [made appendString:made];
  [made appendString:nil];
  [made appendString:(id)@5];
  CHECK(is_text(made, "made-ボmade-ボ") && [made length] == 12 && is_text(copy, "made"));
  [mutable_copy appendString:@"!"];
  CHECK(is_text(mutable_copy, "constant!"));

  NSMutableString *empty = [[NSMutableString alloc] init];
  CHECK(layout(empty)->data == nullptr && is_text(empty, "") && layout(empty)->info == 0x7c8);
  NSMutableString *fresh = [NSMutableString new];
  [fresh appendString:@"text"];
  CHECK(is_text(fresh, "text") && [[NSMutableString new] hash] == [@"" hash]);

  NSString *string = [[NSString alloc] initWithString:made];
  CHECK(is_text(string, "made-ボmade-ボ") && [string initWithString:string] == string && [string length] == 12);
  CHECK(is_text([string initWithString:nil], "") && is_text([string initWithString:(id)@1], ""));

  GameString *game = [[GameString alloc] initWithString:@"12"];
  CHECK([game answer] == 42 && [@"12" isEqual:game] && [[GameString stringWithUTF8String:"1"] answer] == 41);
}

GUEST_TEST(strings_of_data_end_at_the_first_nul) {
  CHECK(is_text([[NSString alloc] initWithData:data("abcdef", 3) encoding:4], "abc"));
  NSString *cut = [[NSString alloc] initWithData:data("ab\0def", 6) encoding:4];
  CHECK(is_text(cut, "ab") && layout(cut)->length == 2);
  NSData *const none[] = {nil, data(nullptr, 0), data(nullptr, 9), (id)@"no data"};
  for (NSData *each : none) CHECK(is_text([[NSString alloc] initWithData:each encoding:4], ""));
  NSData *some = data("xyz", 3);
  CHECK([some length] == 3 && ((const char *)[some bytes])[2] == 'z');
}

GUEST_TEST(components_are_what_lies_between_separators) {
  static constexpr struct {
    const char *text, *separator;
    const char *pieces[5];
  } cases[] = {
      {"a,,b,", ",", {"a", "", "b", ""}},
      {"", ",", {""}},
      {",", ",", {"", ""}},
      {"no separator", ",", {"no separator"}},
      {"a, b, c", ", ", {"a", "b", "c"}},
      {"aaaaa", "aa", {"", "", "a"}},
      {"whole", "", {"whole"}},
      {"short", "longer than that", {"short"}},
      {"é\xff\xffü", "\xff", {"é", "", "ü"}},
  };
  for (const auto &c : cases) {
    NSMutableArray *pieces = [text(c.text) componentsSeparatedByString:text(c.separator)];
    NSUInteger count = 0;
    for (NSString *piece in pieces) {
      CHECK(count < 5 && c.pieces[count] != nullptr && strcmp([piece UTF8String], c.pieces[count]) == 0);
      ++count;
    }
    CHECK(count == 5 || c.pieces[count] == nullptr);
  }
  CHECK([[@"a,b" componentsSeparatedByString:nil] count] == 1);
  [[@"a" componentsSeparatedByString:@","] addObject:@"mutable"];
}

GUEST_TEST(formats_take_every_argument) {
  NSString *string = [NSString stringWithFormat:@"%d %s %@ %.2f %lld %c %@ %g %d %d%%", 1, "two", @"drei", 4.0, 5ll,
                                                '6', @7, 8.5, 9, 10];
  CHECK(strncmp([string UTF8String], "1 two drei 4.00 5 6 <NSNumber: 0x", 33) == 0);
  CHECK(strcmp([string UTF8String] + strlen([string UTF8String]) - 11, "> 8.5 9 10%") == 0);
  CHECK(is_text([NSString stringWithFormat:@"%@ ボ %@", nil, @"é"], "(null) ボ é"));
  CHECK([[NSMutableString stringWithFormat:@"x"] class] == [NSMutableString class]);
  CHECK(is_text([NSString stringWithFormat:nil], "") && is_text([NSString stringWithFormat:@""], ""));
  for (const uint64 length : (const uint64[]){2046, 2047, 2048, 5000}) {
    static char long_text[5001];
    for (uint64 i = 0; i < length; ++i) long_text[i] = 'a' + i % 23;
    long_text[length] = 0;
    string = [NSString stringWithFormat:@"%@", text(long_text)];
    CHECK([string length] == length && strcmp([string UTF8String], long_text) == 0);
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
      {@42, 42, 42, "42"},
      {@-1, -1, -1, "-1"},
      {@2.5, 2, 2.5, "2.5"},
      {@-2.75, -2, -2.75, "-2.75"},
      {@0.1, 0, 0.1, "0.10000000000000001"},
      {@1e20, -9223372036854775807 - 1, 1e20, "1e+20"},
      {@(-1e300), -9223372036854775807 - 1, -1e300, "-1.0000000000000001e+300"},
      {@(__builtin_inf()), -9223372036854775807 - 1, __builtin_inf(), "inf"},
      {@YES, 1, 1, "1"},
      {@NO, 0, 0, "0"},
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
  CHECK([@0.5 boolValue] && [@0.5 intValue] == 0 && ![@0.0 boolValue]);
  CHECK([@2 isEqual:@2.0] && ![@2 isEqual:@2.5] && ![@2 isEqual:@"2"] && ![@2 isEqual:nil]);
}

// ---- Collections ----------------------------------------------------------------------------------------------------

GUEST_TEST(arrays_keep_their_order) {
  NSMutableArray *array = [NSMutableArray arrayWithCapacity:3];
  for (int i = 0; i < 100; ++i) [array addObject:[NSNumber numberWithInt:i % 10]];
  [array addObject:nil];
  CHECK([array count] == 100 && [array[57] intValue] == 7 && [[array objectAtIndex:99] intValue] == 9);
  [array removeObject:@3];
  [array removeObject:@"3"];
  [array removeObject:nil];
  CHECK([array count] == 90 && ![array containsObject:@3] && [array[3] intValue] == 4 && [array[89] intValue] == 9);
  CHECK(is_text([array description], "<NSMutableArray count=90>"));
  [array removeAllObjects];
  CHECK([array count] == 0 && ![array containsObject:@1]);

  NSArray *list = [[NSArray alloc] initWithObjects:@"a", @2, @"c", @4, @"e", @6, @"g", @8, nil];
  CHECK([list count] == 8 && is_text(list[6], "g") && [list[7] intValue] == 8);
  CHECK([[[NSArray alloc] initWithObjects:nil] count] == 0 && [[NSArray array] count] == 0);
  CHECK([[NSArray arrayWithObject:nil] count] == 1 && [[NSArray arrayWithObject:nil] containsObject:nil]);
  CHECK([[[NSArray alloc] init] count] == 0);
}

GUEST_TEST(a_set_holds_equal_objects_once) {
  NSMutableSet *set = [[NSMutableSet alloc] init];
  const id objects[] = {@"one", @1, text("one"), @1.0, @1.5, @"1", nil};
  for (id object : objects) [set addObject:object];
  CHECK([set count] == 4 && [set containsObject:@"1"] && [set containsObject:@1.5]);
  [set removeObject:text("one")];
  CHECK([set count] == 3 && ![set containsObject:@"one"]);
}

GUEST_TEST(dictionaries_find_equal_keys) {
  NSDictionary *literal = @{@"name" : @"ball", @1 : @"number", @"1" : @"text", @2.5 : @YES, @"ボール" : @"wide"};
  CHECK([literal count] == 5 && is_text(literal[text("name")], "ball") && is_text(literal[@"ボール"], "wide"));
  CHECK(is_text(literal[@1], "number") && is_text(literal[@1.0], "number") && is_text(literal[@"1"], "text"));
  CHECK([literal[@2.5] boolValue] && literal[@2] == nil && literal[@"nam"] == nil && [literal objectForKey:nil] == nil);
  CHECK([literal class] == [NSDictionary class] && is_text([literal description], "<NSDictionary count=5>"));
  CHECK([[NSDictionary dictionary] count] == 0 && [NSDictionary dictionary][@"x"] == nil);

  NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
  for (int i = 0; i < 200; ++i) dictionary[[NSString stringWithFormat:@"key_%04d", i]] = [NSNumber numberWithInt:i];
  bool all = [dictionary count] == 200;
  for (int i = 0; i < 200; ++i) all &= [dictionary[[NSString stringWithFormat:@"key_%04d", i]] intValue] == i;
  CHECK(all && dictionary[@"key_0200"] == nil);
  [dictionary setObject:@"new" forKey:@"key_0007"];
  [dictionary setValue:nil forKey:@"key_0008"];
  [dictionary setObject:nil forKey:@"absent"];
  [dictionary removeObjectForKey:@"key_0009"];
  [dictionary removeObjectForKey:@"absent"];
  NSMutableArray *keys = [dictionary allKeys];
  CHECK([dictionary count] == 198 && [keys count] == 198 && is_text(dictionary[@"key_0007"], "new"));
  CHECK(is_text(keys[7], "key_0007") && is_text(keys[8], "key_0010") && is_text(keys[197], "key_0199"));
  CHECK([dictionary[@"key_0199"] intValue] == 199 && dictionary[@"key_0008"] == nil);
  [dictionary removeAllObjects];
  CHECK([dictionary count] == 0 && dictionary[@"key_0000"] == nil && [keys count] == 198);

  // What counts is a key's text when it is looked for; of two that became equal, the first.
  NSMutableString *key = [@"a" mutableCopy];
  dictionary[key] = @1;
  dictionary[@"ab"] = @2;
  CHECK([dictionary[@"a"] intValue] == 1 && [dictionary[@"ab"] intValue] == 2);
  [key appendString:@"b"];
  CHECK(dictionary[@"a"] == nil && [dictionary[@"ab"] intValue] == 1);
  // Objects of other classes are keys by their address.
  NSObject *other = [NSObject new];
  dictionary[(id)other] = @3;
  CHECK([dictionary[(id)other] intValue] == 3 && dictionary[(id)[NSObject new]] == nil);
}

GUEST_TEST(loops_see_every_element_and_count_changes) {
  NSMutableArray *array = [NSMutableArray array];
  for (int i = 0; i < 1000; ++i) [array addObject:[NSNumber numberWithInt:i]];
  long sum = 0;
  for (NSNumber *number in array) sum += [number longLongValue];
  CHECK(sum == 499500);
  NSMutableDictionary *dictionary = [NSMutableDictionary new];
  dictionary[@"x"] = @10;
  dictionary[@"y"] = @20;
  sum = 0;
  for (NSString *key in dictionary) sum = 100 * sum + [dictionary[key] intValue];
  CHECK(sum == 1020);
  for (id nothing in [NSArray array]) CHECK(nothing == nil && false);

  NSFastEnumerationState state = {};
  CHECK([array countByEnumeratingWithState:&state objects:nullptr count:0] == 1000);
  CHECK(state.itemsPtr[999] == array[999]);
  CHECK([array countByEnumeratingWithState:&state objects:nullptr count:0] == 0);
  state = {};
  [dictionary countByEnumeratingWithState:&state objects:nullptr count:0];
  struct Change {
    void (*make)(NSMutableDictionary *);
    bool counts;
  };
  static constexpr Change changes[] = {
      {[](NSMutableDictionary *d) { d[@"x"] = @11; }, true},
      {[](NSMutableDictionary *d) { d[@"z"] = @30; }, true},
      {[](NSMutableDictionary *d) { [d removeObjectForKey:@"z"]; }, true},
      {[](NSMutableDictionary *d) { [d removeObjectForKey:@"absent"]; }, false},
      {[](NSMutableDictionary *d) { [d setValue:nil forKey:@"absent"]; }, false},
      {[](NSMutableDictionary *d) { CHECK(d[@"x"] != nil && [d allKeys] != nil); }, false},
      {[](NSMutableDictionary *d) { [d removeAllObjects]; }, true},
  };
  for (const Change &change : changes) {
    const uint64 before = *state.mutationsPtr;
    change.make(dictionary);
    CHECK(*state.mutationsPtr == before + change.counts);
  }
}

// ---- How a game ends ------------------------------------------------------------------------------------------------

extern "C" {
int64 read_past_the_end() {
  return [[[NSArray alloc] initWithObjects:@1, @2, nil] objectAtIndex:2] != nil;
}

int64 change_while_looping() {
  NSMutableArray *array = [[NSMutableArray alloc] initWithObjects:@1, @2, nil];
  for (NSNumber *number in array) [array addObject:number];
  return 0;
}
}
