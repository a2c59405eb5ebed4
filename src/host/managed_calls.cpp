#include "host/managed_calls.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

#include "abi/entries.h"
#include "abi/stubs.h"
#include "diag/log.h"
#include "support/locks.h"
#include "support/record_counts.h"
#include "tls/x87.h"

namespace vlm {
namespace {

constinit SrwLock dispatch_lock;  // held while a record that is resolved is published; a leaf

const ArgClass* oversized_argument(const IcallRecord& record) {
  for (int i = 0; i < record.argument_count; ++i) {
    const ArgClass& argument = record.arguments[i];
    if (argument.kind == ArgKind::value && argument.size > max_value_argument) return &argument;
  }
  return nullptr;
}

/// The first call of a record, or a call that met the first one. Nothing is held while the game's reflection functions
/// run, which may throw, and nothing while a message box lets the game's windows go on calling.
const CallPlan& resolve(IcallRecord& record) {
  IcallRecord found;
  found.name = record.name;
  resolve_icall_record(found);
  if (found.state == -1) fatal_error("cannot determine the signature of internal call %s", record.name);
  if (const ArgClass* const argument = oversized_argument(found)) {
    fatal_error("struct argument of %u bytes in %s is too large", argument->size, record.name);
  }
  const std::lock_guard guard(dispatch_lock);
  if (record.state == 0) {  // else another thread has come to the same
    std::ranges::copy(found.arguments, record.arguments);
    record.argument_count = found.argument_count;
    record.result = found.result;
    record.state = 1;
    plan_calls(record);
    ++record_counts.calls;
  }
  return *record.plan.load(std::memory_order_acquire);
}

void cut(std::uint64_t& word, unsigned bytes) { word &= ~std::uint64_t{0} >> (64 - 8 * bytes); }

/// A value's eightbytes, in the registers of their classes. One that the value does not have is zero.
void return_eightbytes(const ArgClass& value, std::uint64_t words[2], ManagedResult& result) {
  if (value.size % 8 != 0) cut(words[value.eightbytes - 1], value.size % 8);
  std::uint64_t* const integers[2] = {&result.rax, &result.rdx};
  std::uint64_t* const floating_points[2] = {&result.xmm0, &result.xmm1};
  int integer = 0, floating_point = 0;
  for (int i = 0; i < 2; ++i) {
    const bool is_integer = value.eightbyte_classes[i] == EightbyteClass::integer;
    *(is_integer ? integers[integer++] : floating_points[floating_point++]) = words[i];
  }
}

}  // namespace

IcallRecord* make_record(const char* name, const void* function) {
  auto* const record = new (std::nothrow) IcallRecord;
  if (record == nullptr) fatal_error("no memory for internal call %s", name);
  record->name = name;
  record->target = function;
  return record;
}

void plan_calls(IcallRecord& record) {
  const std::span arguments(record.arguments, static_cast<std::size_t>(record.argument_count));
  record.plan.store(new CallPlan(make_call_plan(arguments, record.result)), std::memory_order_release);
}

void* make_thunk(const IcallRecord& record) {
  return make_record_stub(&record, reinterpret_cast<const void*>(&icall_entry));
}

void* make_icall_thunk(const char* name, const void* function) {
  const char* const copy = strdup(name);
  if (copy == nullptr) fatal_error("no memory for internal call %s", name);
  return make_thunk(*make_record(copy, function));
}

const void* icall_native_of(const void* address) {
  const void* const record = record_of_stub(address, reinterpret_cast<const void*>(&icall_entry));
  return record != nullptr ? static_cast<const IcallRecord*>(record)->target : nullptr;
}

}  // namespace vlm

extern "C" void dispatch_managed_call(vlm::IcallRecord* record, const vlm::RegisterSaveArea* registers,
                                      const std::uint64_t* stack, vlm::ManagedResult* result) {
  using namespace vlm;
  const CallPlan* ready = record->plan.load(std::memory_order_acquire);
  const CallPlan& plan = ready != nullptr ? *ready : resolve(*record);

  alignas(16) std::uint64_t words[CallPlan::array_size];
  const std::byte* const sources[2] = {reinterpret_cast<const std::byte*>(registers),
                                       reinterpret_cast<const std::byte*>(stack)};
  for (const CallPlan::Move& move : plan.moves) {
    std::memcpy(&words[move.to], sources[move.from_stack] + move.from, sizeof words[0]);
  }
  for (const CallPlan::Cut& each : plan.cuts) cut(words[each.word], each.bytes);
  for (const CallPlan::Address& address : plan.addresses) {
    words[address.to] = reinterpret_cast<std::uint64_t>(&words[address.of]);
  }
  words[CallPlan::result_word] = words[CallPlan::result_word + 1] = 0;

  std::uint64_t returned[2];
  {
    const WindowsX87 of_callee;
    call_win64(returned, record->target, words, plan.word_count);
  }
  *result = {.rax = returned[0], .rdx = 0, .xmm0 = returned[1], .xmm1 = 0};

  const std::uint64_t result_address = registers->gp[0];
  switch (plan.result) {
    case CallPlan::Result::registers: break;
    case CallPlan::Result::value_in_rax: {
      std::uint64_t value[2] = {returned[0], 0};
      return_eightbytes(plan.result_class, value, *result);
      break;
    }
    case CallPlan::Result::value_in_array:
      return_eightbytes(plan.result_class, &words[CallPlan::result_word], *result);
      break;
    case CallPlan::Result::rax_to_address:
      std::memcpy(reinterpret_cast<void*>(result_address), returned, plan.result_class.size);
      [[fallthrough]];
    case CallPlan::Result::at_address: result->rax = result_address; break;
  }
}
