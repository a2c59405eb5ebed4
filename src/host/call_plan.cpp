#include "host/call_plan.h"

#include <cstddef>

#include "abi/entry_layout.h"

namespace vlm {
namespace {

/// Windows passes and returns such a value like an integer of its size; any other by address.
bool fits_windows_register(std::uint32_t size) { return size == 1 || size == 2 || size == 4 || size == 8; }

class Planner {
 public:
  explicit Planner(CallPlan& plan) : plan_(plan) {}

  void result(const ArgClass& result) {
    plan_.result_class = result;
    if (result.kind != ArgKind::value) return;
    using enum CallPlan::Result;
    const bool in_rax = fits_windows_register(result.size);
    if (result.in_memory) {
      // The caller's first integer argument is the address.
      plan_.result = in_rax ? rax_to_address : at_address;
      const Source address = take_integer();
      if (!in_rax) move(plan_.word_count++, address);
    } else {
      plan_.result = in_rax ? value_in_rax : value_in_array;
      if (!in_rax) plan_.addresses.push_back({plan_.word_count++, CallPlan::result_word});
    }
  }

  void argument(const ArgClass& argument) {
    switch (argument.kind) {
      case ArgKind::nothing: break;
      case ArgKind::integer: move(plan_.word_count++, take_integer()); break;
      case ArgKind::single_precision:
      case ArgKind::double_precision: move(plan_.word_count++, take_floating_point()); break;
      case ArgKind::value: value(argument); break;
    }
  }

 private:
  /// Where the caller put a word.
  struct Source {
    bool on_stack;
    std::size_t offset;  // bytes
  };

  void value(const ArgClass& argument) {
    const bool in_register = fits_windows_register(argument.size);
    const std::size_t words = (argument.size + 7) / 8;
    const std::size_t to = in_register ? plan_.word_count : next_value_word_;
    if (argument.in_memory || !registers_left_for(argument)) {
      if (argument.alignment > 8) stack_ = (stack_ + 15) & ~std::size_t{15};
      for (std::size_t i = 0; i < words; ++i) move(to + i, take_stack_word());
    } else {
      for (std::size_t i = 0; i < words; ++i) {
        const bool is_integer = argument.eightbyte_classes[i] == EightbyteClass::integer;
        move(to + i, is_integer ? take_integer() : take_floating_point());
      }
    }
    if (argument.size % 8 != 0) {
      plan_.cuts.push_back({static_cast<std::uint8_t>(to + words - 1), static_cast<std::uint8_t>(argument.size % 8)});
    }
    if (!in_register) {
      plan_.addresses.push_back({plan_.word_count, static_cast<std::uint8_t>(to)});
      next_value_word_ += CallPlan::words_per_value;
    }
    ++plan_.word_count;
  }

  /// A value is never split between registers and the stack.
  bool registers_left_for(const ArgClass& argument) const {
    std::size_t integers = 0;
    for (int i = 0; i < argument.eightbytes; ++i) integers += argument.eightbyte_classes[i] == EightbyteClass::integer;
    return integers_ + integers <= 6 && floating_points_ + argument.eightbytes - integers <= 8;
  }

  Source take_integer() { return integers_ < 6 ? Source{false, 8 * integers_++} : take_stack_word(); }
  Source take_floating_point() {
    return floating_points_ < 8 ? Source{false, SAVE_AREA_XMM + 16 * floating_points_++} : take_stack_word();
  }
  Source take_stack_word() {
    const Source source = {true, stack_};
    stack_ += 8;
    return source;
  }

  void move(std::size_t to, Source from) {
    plan_.moves.push_back({static_cast<std::uint8_t>(to), from.on_stack, static_cast<std::uint16_t>(from.offset)});
  }

  CallPlan& plan_;
  std::size_t integers_ = 0;         // integer argument registers taken
  std::size_t floating_points_ = 0;  // vector registers taken
  std::size_t stack_ = 0;            // bytes of stack arguments taken
  std::size_t next_value_word_ = CallPlan::first_value_word;
};

}  // namespace

CallPlan make_call_plan(std::span<const ArgClass> arguments, const ArgClass& result) {
  CallPlan plan;
  Planner planner(plan);
  planner.result(result);
  for (const ArgClass& argument : arguments) planner.argument(argument);
  return plan;
}

}  // namespace vlm
