// Which words one call of a managed method moves, and where to. Decided once per method, so a call is a few copies.
//
// A call works on one array of words:
//
//   0      1      ...    25    26, 27        28 .. 35           36 .. 43           ...
//   the Windows arguments      the result    8 words for a      for a second       ...
//                              in memory     value by address
//
//   moves      words from the caller's registers and stack into arguments and values
//   cuts       values that do not fill their last word: what is behind them becomes zero
//   addresses  arguments that are the address of a value in the array
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vlm {

enum class ArgKind : std::uint8_t { nothing = 0, integer = 1, single_precision = 2, double_precision = 3, value = 4 };
enum class EightbyteClass : std::uint8_t { integer = 0, floating_point = 1 };

/// Where the System V AMD64 ABI passes an argument or a result (section 3.2.3 of the ABI).
struct ArgClass {
  ArgKind kind = ArgKind::nothing;
  std::uint8_t eightbytes = 0;  // of a value in registers: how many, rounded up
  EightbyteClass eightbyte_classes[2] = {};
  std::uint8_t in_memory = 0;   // of a value: 1 when it is passed on the stack, or returned at an address
  std::uint32_t size = 0;       // bytes
  std::uint32_t alignment = 0;  // bytes
};
static_assert(sizeof(ArgClass) == 16);

/// The largest value that is passed as an argument, in bytes.
constexpr std::uint32_t max_value_argument = 64;

struct CallPlan {
  static constexpr unsigned result_word = 26, first_value_word = 28, words_per_value = 8;
  static constexpr unsigned array_size = first_value_word + 24 * words_per_value;

  struct Move {
    std::uint8_t to;     // word
    bool from_stack;     // or from the register save area
    std::uint16_t from;  // offset in bytes
  };
  struct Cut {
    std::uint8_t word;
    std::uint8_t bytes;  // that stay
  };
  struct Address {
    std::uint8_t to;  // word
    std::uint8_t of;  // word
  };
  /// How the Windows function returns its result, and where it goes.
  enum class Result : std::uint8_t {
    registers,       // a number, a pointer or nothing: the same registers in both conventions
    value_in_rax,    // to the registers of its eightbytes
    value_in_array,  // the same, from result_word on, whose address was passed
    at_address,      // where the caller wants it, whose address was passed on
    rax_to_address,  // the function returns it in rax, the caller wants it in memory
  };

  std::uint8_t word_count = 0;  // Windows arguments
  Result result = Result::registers;
  ArgClass result_class{};
  std::vector<Move> moves;
  std::vector<Cut> cuts;
  std::vector<Address> addresses;
};

/// The plan of a method with at most 24 arguments, none a value of more than max_value_argument bytes.
CallPlan make_call_plan(std::span<const ArgClass> arguments, const ArgClass& result);

}  // namespace vlm
