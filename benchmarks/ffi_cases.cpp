// The cases of managed_guest.cpp through libffi: a call by description into a closure that takes its arguments by
// description, which is what a library does that knows signatures only at run time.
#include <ffi.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "managed_cases.h"

namespace {

struct Vector3 {
  float x, y, z;
};
ffi_type* vector_fields[] = {&ffi_type_float, &ffi_type_float, &ffi_type_float, nullptr};
ffi_type vector_type = {0, 0, FFI_TYPE_STRUCT, vector_fields};

template <class T>
T get(void* argument) {
  return *static_cast<T*>(argument);
}

void add(ffi_cif*, void* result, void** arguments, void*) {
  *static_cast<ffi_arg*>(result) = static_cast<ffi_arg>(get<int>(arguments[0]) + get<int>(arguments[1]));
}
void move(ffi_cif*, void* result, void** arguments, void*) {
  const auto place = get<Vector3>(arguments[0]);
  *static_cast<Vector3*>(result) = {place.x + 1, place.y, place.z};
}
void mix(ffi_cif*, void* result, void** a, void*) {
  *static_cast<double*>(result) = get<int>(a[1]) + get<float>(a[2]) + get<double>(a[3]) + get<Vector3>(a[4]).y +
                                  static_cast<double>(get<long long>(a[5])) + get<double>(a[6]) + get<int>(a[7]) +
                                  get<float>(a[9]);
}

/// A closure and the description that both its caller and itself use.
struct Callable {
  Callable(void (*function)(ffi_cif*, void*, void**, void*), ffi_type* result, std::initializer_list<ffi_type*> types) {
    for (ffi_type* type : types) types_[count_++] = type;
    auto* const closure = static_cast<ffi_closure*>(ffi_closure_alloc(sizeof(ffi_closure), &code));
    if (closure == nullptr || ffi_prep_cif(&cif, FFI_DEFAULT_ABI, count_, result, types_) != FFI_OK ||
        ffi_prep_closure_loc(closure, &cif, function, nullptr, code) != FFI_OK) {
      std::abort();
    }
  }
  void call(void* result, void** arguments) { ffi_call(&cif, FFI_FN(code), result, arguments); }

  ffi_cif cif;
  void* code = nullptr;

 private:
  ffi_type* types_[10];
  unsigned count_ = 0;
};

Callable add_call(add, &ffi_type_sint, {&ffi_type_sint, &ffi_type_sint});
Callable move_call(move, &vector_type, {&vector_type});
Callable mix_call(mix, &ffi_type_double,
                  {&ffi_type_pointer, &ffi_type_sint, &ffi_type_float, &ffi_type_double, &vector_type, &ffi_type_sint64,
                   &ffi_type_double, &ffi_type_sint, &ffi_type_pointer, &ffi_type_float});

volatile double sink;

}  // namespace

extern "C" void run_case(std::int64_t which, std::int64_t times) {
  ffi_arg sum = 0;
  int three = 3, first = 1, sixth = 6;
  Vector3 place = {1, 2, 3};
  Vector3* reference = &place;
  void* object = nullptr;
  float weight = 2, last = 7;
  double time = 3, scale = 5, total = 0, part;
  long long key = 4;
  void* add_arguments[] = {&sum, &three};
  void* move_arguments[] = {&place};
  void* mix_arguments[] = {&object, &first, &weight, &time, &place, &key, &scale, &sixth, &reference, &last};
  for (std::int64_t i = 0; i < times; ++i) {
    if (which == 0) add_call.call(&sum, add_arguments);
    if (which == 1) {
      Vector3 moved[2];  // libffi writes whole words
      move_call.call(moved, move_arguments);
      place = moved[0];
    }
    if (which == 2) {
      mix_call.call(&part, mix_arguments);
      total += part;
    }
  }
  sink = static_cast<double>(sum) + place.x + total;
}
