// Numbers and raw data.
#pragma once

#include <cstdint>

#include "objc/object.h"

namespace vlm {

enum class NumberKind : std::uint32_t { integer = 0, floating_point = 1 };

/// An instance of NSNumber. Both values are always set, each converted from the one that the number was made of.
struct NSNumber : ObjcObject {
  NumberKind kind;
  std::int64_t integer;
  double floating_point;
};
static_assert(sizeof(NSNumber) == 32);

NSNumber* ns_number_from_int64(std::int64_t value);
NSNumber* ns_number_from_double(double value);

/// Both values are equal: 2 made of an integer and 2.0 are, 2 and 2.5 are not, NaN is not even equal to itself.
inline bool ns_numbers_equal(const NSNumber& left, const NSNumber& right) {
  return left.floating_point == right.floating_point && left.integer == right.integer;
}

/// An instance of NSData.
struct NSData : ObjcObject {
  const void* bytes;
  std::uint64_t length;  // bytes
};
static_assert(sizeof(NSData) == 24);

}  // namespace vlm
