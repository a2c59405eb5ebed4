// Some thousand signatures, the same for the guest that calls and for the Windows program that is called: types and
// their order come from a hash of the case's number. Struct types list their fields, so metadata can be made of them.
// No standard header: macOS code includes this too.
#pragma once

namespace signatures {

using Byte = unsigned char;
constexpr unsigned case_count = 2000;
constexpr unsigned slot_size = 64;  // bytes of a case's argument or result
constexpr unsigned max_arguments = 24;

constexpr unsigned hash(unsigned a, unsigned b) {
  unsigned long long x = (a * 0x9E3779B97F4A7C15ull) ^ ((b + 1) * 0xC2B2AE3D27D4EB4Full);
  x = (x ^ (x >> 29)) * 0xBF58476D1CE4E5B9ull;
  return static_cast<unsigned>((x ^ (x >> 32)) >> 3);
}

template <class... T>
struct List {
  static constexpr unsigned count = sizeof...(T);
  template <unsigned N>
  using At = __type_pack_element<N % count, T...>;
};

// ---- Types ---------------------------------------------------------------------------------------------------------

enum class Tiny : signed char {};
enum class Plain : int {};
struct Object;   // passed by reference alone, as are
struct Array;    // arrays, which values hold by reference, and
struct Generic;  // classes that are instances of a generic type

// Struct templates: S1<int>, S3<float, float, float>, ... list their fields to v.template operator()<T>(offset). P2
// is packed.
#define MEMBER(Type, name) Type name;
#define FIELD(Type, name) v.template operator()<Type>(__builtin_offsetof(Self, name));
#define LIST(...) __VA_ARGS__
#define STRUCT(name, attributes, parameters, members) \
  template <LIST parameters>                          \
  struct attributes name {                            \
    members(MEMBER) using Self = name;                \
    using IsStruct = int;                             \
    static void each(auto&& v) { members(FIELD) }     \
  };
#define MEMBERS_1(X) X(A, a)
#define MEMBERS_2(X) MEMBERS_1(X) X(B, b)
#define MEMBERS_3(X) MEMBERS_2(X) X(C, c)
#define MEMBERS_4(X) MEMBERS_3(X) X(D, d)
STRUCT(S1, , (class A), MEMBERS_1)
STRUCT(S2, , (class A, class B), MEMBERS_2)
STRUCT(P2, __attribute__((packed)), (class A, class B), MEMBERS_2)
STRUCT(A2, alignas(16), (class A, class B), MEMBERS_2)
STRUCT(S3, , (class A, class B, class C), MEMBERS_3)
STRUCT(S4, , (class A, class B, class C, class D), MEMBERS_4)

// What compiled C# makes of explicit layout: a union of the fields, each behind bytes of padding.
template <class T, unsigned Offset>
struct __attribute__((packed)) At {
  Byte before[Offset];
  T field;
};
template <class T>
struct __attribute__((packed)) At<T, 0> {
  T field;
};
template <class A, unsigned AtA, class B, unsigned AtB, class C, unsigned AtC>
union alignas(A) alignas(B) alignas(C) Explicit {
  At<A, AtA> a;
  At<B, AtB> b;
  At<C, AtC> c;
  using IsStruct = int;
  using IsExplicit = int;
  static void each(auto&& v) {
    v.template operator()<A>(AtA);
    v.template operator()<B>(AtB);
    v.template operator()<C>(AtC);
  }
};
// And of a size that is more than the field needs: an array in a value.
template <class A, unsigned Size>
union Sized {
  A a;
  Byte bytes[Size];
  using IsStruct = int;
  static void each(auto&& v) { v.template operator()<A>(0); }
};

using Bytes3 = S3<Byte, Byte, Byte>;
using Vector2 = S2<float, float>;
using Vector3 = S3<float, float, float>;
using Wrapped = S1<S1<float>>;
using TwoFloats = Explicit<float, 0, float, 4, float, 0>;
using Quad = A2<Vector2, Vector2>;
using Fields =
    List<bool, char16_t, signed char, Byte, short, unsigned short, int, unsigned, long long, unsigned long long, float,
         float, float, double, double, void*, Tiny, Plain, Object*, Vector2, Vector3, Wrapped, Bytes3, S2<double, Byte>,
         S2<int, float>, Generic*, Array*, TwoFloats, Sized<float, 8>, P2<Byte, float>, Quad>;

// Structs of random fields, of at most 64 bytes.
template <unsigned K, unsigned J>
using Field = Fields::At<hash(K, J)>;
template <unsigned K>
struct Random {
  using Type = typename List<S1<Field<K, 0>>, S2<Field<K, 0>, Field<K, 1>>, S3<Field<K, 0>, Field<K, 1>, Field<K, 2>>,
                             S4<Field<K, 0>, Field<K, 1>, Field<K, 2>, Field<K, 3>>>::template At<hash(K, 50)>;
};
constexpr unsigned random_structs = 192;

using Scalars =
    List<bool, char16_t, signed char, Byte, short, unsigned short, int, unsigned, long long, unsigned long long, float,
         float, float, double, double, void*, Tiny, Plain, Object*, Generic*, Array*, int*, float*, Vector3*>;
// Shapes that the random ones may miss: odd sizes, both classes in either order, alignments.
using Chosen = List<Vector2, Vector3, Bytes3, S2<Bytes3, S2<Byte, Byte>>, S2<Bytes3, Bytes3>, S2<long long, double>,
                    S2<double, long long>, S2<double, double>, S3<int, float, double>, S2<Wrapped, Wrapped>,
                    S3<double, double, double>, P2<Byte, double>, P2<float, Bytes3>,
                    Explicit<float, 0, double, 8, float, 4>, Explicit<int, 1, float, 0, float, 0>,
                    Explicit<double, 40, Byte, 3, Object*, 8>, Sized<double, 16>, S2<Generic*, double>, Quad,
                    A2<long long, double>, A2<long long, long long>, S4<Vector3, Vector3, Vector3, Vector3>>;

template <class T>
struct Only {
  using Type = T;
};
template <unsigned H>
using Scalar = Only<Scalars::At<hash(H, 61)>>;
/// The last two kinds are for an instance, and for no result.
template <unsigned H, unsigned Kind>
using Pick = typename List<Only<Chosen::At<hash(H, 62)>>, Random<hash(H, 63) % random_structs>,
                           Random<hash(H, 64) % random_structs>, Scalar<H>, Scalar<H>, Scalar<H>, Scalar<H>, Scalar<H>,
                           Only<Object*>, Only<void>>::template At<Kind>::Type;

// ---- Cases ---------------------------------------------------------------------------------------------------------

/// Every fourth case is a method callback: its function gets the method, too, as its last argument.
constexpr bool is_method_callback(unsigned number) { return number % 4 == 3; }

template <unsigned I>
struct Case {
  static constexpr bool instance = hash(I, 70) % 2 == 0;
  static constexpr unsigned count = [] {  // the instance counts
    const unsigned wanted = hash(I, 71) % 3 == 0 ? hash(I, 72) % (max_arguments + 1) : hash(I, 72) % 9;
    if (is_method_callback(I)) return (wanted > 22 ? 22 : wanted) + instance;
    return wanted < instance ? 1u : wanted;
  }();
  template <unsigned P>
  using Argument = Pick<hash(I, P), instance && P == 0 ? 8 : hash(hash(I, P), 60) % 8>;
  using Result = Pick<hash(I, 74), hash(I, 73) % 10 == 0 ? 9 : hash(hash(I, 74), 60) % 8>;
};

template <class T, T... I>
struct Numbers {};
template <unsigned N>
using UpTo = __make_integer_seq<Numbers, unsigned, N>;

}  // namespace signatures
