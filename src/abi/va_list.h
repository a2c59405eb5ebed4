// The System V AMD64 variable argument list, as the variadic entries build it and as shim bodies read it.
//
// The host's own va_list is a bare pointer into the stack and cannot describe arguments that arrived in System V
// registers, so a body walks this structure by the rules of the System V ABI:
//
//   RegisterSaveArea                            overflow area (the caller's stack, 8 bytes per argument)
//   0    rdi rsi rdx rcx r8 r9                  arg, arg, arg, ...
//   48   xmm0 xmm1 ... xmm7 (16 bytes each)     ^ overflow_arg_area
//        ^ reg_save_area + gp_offset: next integer or pointer, while gp_offset < 48
//                        + fp_offset: next float or double, while fp_offset < 176
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "abi/entry_layout.h"

namespace vlm {

/// The argument registers of one System V call, in the order of the ABI's register save area.
struct RegisterSaveArea {
  std::uint64_t gp[6];  // rdi, rsi, rdx, rcx, r8, r9
  struct alignas(16) {
    std::uint64_t low;
    std::uint64_t high;
  } xmm[8];
};
static_assert(sizeof(RegisterSaveArea) == SAVE_AREA_SIZE && offsetof(RegisterSaveArea, xmm) == SAVE_AREA_XMM,
              "entries.S fills this block");

/// `va_list` of the System V AMD64 ABI. Copying the structure copies the position, as va_copy does.
struct SysvVaList {
  std::uint32_t gp_offset;  // bytes from reg_save_area to the next integer register's slot
  std::uint32_t fp_offset;  // bytes from reg_save_area to the next vector register's slot
  const std::byte* overflow_arg_area;
  const std::byte* reg_save_area;

  /// The next integer or pointer argument, cut to T. Integers narrower than 32 bits travel promoted to int.
  template <class T>
    requires(std::is_integral_v<T> || std::is_pointer_v<T>)
  T next() {
    std::uint64_t word;
    if (gp_offset < SAVE_AREA_XMM) {
      std::memcpy(&word, reg_save_area + gp_offset, sizeof word);
      gp_offset += 8;
    } else {
      word = take_stack_word();
    }
    if constexpr (std::is_pointer_v<T>) {
      return reinterpret_cast<T>(word);
    } else {
      return static_cast<T>(word);
    }
  }

  /// The next floating-point argument; a float travels promoted to double.
  double next_double() {
    std::uint64_t word;
    if (fp_offset < SAVE_AREA_SIZE) {
      std::memcpy(&word, reg_save_area + fp_offset, sizeof word);
      fp_offset += 16;
    } else {
      word = take_stack_word();
    }
    double value;
    std::memcpy(&value, &word, sizeof value);
    return value;
  }

  /// The 16 bytes of the next 80-bit extended argument, which always travels in memory, 16-byte aligned:
  /// 8 bytes of significand, then sign and exponent in the next two.
  const std::byte* next_long_double() {
    const std::byte* value = overflow_arg_area + (-reinterpret_cast<std::uintptr_t>(overflow_arg_area) & 15);
    overflow_arg_area = value + 16;
    return value;
  }

 private:
  std::uint64_t take_stack_word() {
    std::uint64_t word;
    std::memcpy(&word, overflow_arg_area, sizeof word);
    overflow_arg_area += 8;
    return word;
  }
};
static_assert(sizeof(SysvVaList) == 24 && offsetof(SysvVaList, gp_offset) == VA_LIST_GP_OFFSET &&
                  offsetof(SysvVaList, fp_offset) == VA_LIST_FP_OFFSET &&
                  offsetof(SysvVaList, overflow_arg_area) == VA_LIST_OVERFLOW_ARG_AREA &&
                  offsetof(SysvVaList, reg_save_area) == VA_LIST_REG_SAVE_AREA,
              "entries.S builds this structure");

}  // namespace vlm
