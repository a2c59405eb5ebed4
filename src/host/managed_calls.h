// Managed calls: calls from game code into Windows functions that stand for managed methods. Those are internal calls
// of the player, and method callbacks, functions of a mod in place of a method's code; "icall" in a name means both.
// The two conventions pass numbers and value types differently, so a call is translated by what reflection says about
// the method.
//
//   game code --> record stub (the thunk) --> icall_entry --> dispatch_managed_call --> Windows function
//                 rax = IcallRecord           saves the       does what the record's
//                                             registers       CallPlan says
//
//   reflection.h         asks the game about methods and types
//   classify.cpp         type -> ArgClass: where System V passes it; method -> the classes of a record
//   call_plan.h          ArgClasses -> CallPlan: what to move where, decided once
//   managed_calls.cpp    thunks, and the calls through them
//   internal_calls.cpp   thunks for the player's functions; internal_call_names.cpp finds the methods behind them
//   method_callbacks.cpp thunks for mods' functions
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "host/call_plan.h"
#include "host/il2cpp_types.h"

namespace vlm {

constexpr int max_managed_arguments = 24;

/// A Windows function that game code calls as a managed method. Never freed.
struct IcallRecord {
  const char* name = nullptr;
  const void* target = nullptr;
  std::int32_t state = 0;  // 0 not resolved yet, 1 resolved, -1 failed; written once, under the dispatch lock
  std::int32_t argument_count = 0;
  ArgClass arguments[max_managed_arguments];  // the instance first, when there is one
  ArgClass result;
  std::atomic<const CallPlan*> plan = nullptr;  // set when the record is resolved; all is read-only from then on
};
static_assert(offsetof(IcallRecord, arguments) == 24 && offsetof(IcallRecord, result) == 24 + 24 * sizeof(ArgClass));

/// A thunk for an internal call; the method that the name denotes is looked up when it is called first. Ends the
/// process when memory is out.
void* make_icall_thunk(const char* name, const void* function);

/// The Windows function behind a thunk, or null for any other address. Probes memory before it reads.
const void* icall_native_of(const void* address);

/// The parts of making a thunk: a record in state 0, which keeps the name; the plan of a record whose classes are set;
/// the thunk of a record, resolved or not. The process ends when memory is out.
IcallRecord* make_record(const char* name, const void* function);
void plan_calls(IcallRecord& record);
void* make_thunk(const IcallRecord& record);

/// Where System V passes a value of this type. No type counts as void.
ArgClass classify_type(const Il2CppType* type);

/// Sets a record's argument and result classes to those of a method: the instance first, when there is one, then the
/// parameters, as many as there is room for.
void classify_method(const MethodInfo* method, IcallRecord& record);

/// The class of integers and pointers: references, by-reference parameters, instances.
inline constexpr ArgClass integer_class = {.kind = ArgKind::integer, .size = 8};

/// Finds the method that a record's name denotes and sets the record's state, classes and count. The game's reflection
/// functions run meanwhile: nothing may be held.
void resolve_icall_record(IcallRecord& record);

}  // namespace vlm
