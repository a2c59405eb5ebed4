// Managed code that calls internal calls, for managed_bench.cpp.
#include "managed_cases.h"
#include "reflection_runtime.h"

namespace {

using Vector = S3<float, float, float>;

using Add = int(int, int);
using Move = Vector(Vector);
using Mix = double(Object*, int, float, double, Vector, long long, double, int, Vector*, float);

template <class Function>
struct MethodOf;
template <class Result, class... A>
struct MethodOf<Result(A...)> {
  static constexpr const Type* (*parameters[])() = {&TypeOf<A>::get...};
  static constexpr Method make(const char* name) {
    return {name, false, 0x1000, sizeof...(A), parameters, &TypeOf<Result>::get};
  }
};

const Method methods[] = {MethodOf<Add>::make("Add"), MethodOf<Move>::make("Move"), MethodOf<Mix>::make("Mix")};
const Class bench = {.name = "Bench", .methods = methods, .method_count = 3};
const Image image = {{&bench, nullptr}};

template <class Function>
Function* internal_call(const char* name) {
  return reinterpret_cast<Function*>(il2cpp_resolve_icall(name));
}

}  // namespace

const Image* reflection::assemblies[] = {&image, nullptr};

extern "C" {
int32 il2cpp_init(const char*) { return 0; }

/// What the forwarder calls that an internal call is compared with.
int64 il2cpp_class_get_type_token(int64 a, int64 b) { return a + b; }

volatile double sink;

void run_case(int64 which, int64 times) {
  static Add* const add = internal_call<Add>("Bench::Add");
  static Move* const move = internal_call<Move>("Bench::Move");
  static Mix* const mix = internal_call<Mix>("Bench::Mix");
  int sum = 0;
  Vector place = {1, 2, 3};
  double total = 0;
  for (int64 i = 0; i < times; ++i) {
    if (which == 0) sum = add(sum, 3);
    if (which == 1) place = move(place);
    if (which == 2) total += mix(nullptr, 1, 2, 3, place, 4, 5, 6, &place, 7);
  }
  sink = sum + place.a + total;
}
}
