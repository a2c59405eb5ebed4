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
enum class Small : unsigned short {};
enum class Plain : int {};
enum class Large : long long {};
struct Object;  // passed by reference alone

// Struct templates: S1<int>, S3<float, float, float>, ... list their fields to v.template field<T>(offset). P2 and P3
// are packed; G2 is an instance of a generic type as far as metadata is concerned.
#define FIELD(Type, name) v.template field<Type>(__builtin_offsetof(Self, name));
#define EACH(...)                           \
  using IsStruct = int;                     \
  template <class V>                        \
  static void each(V&& v) {                 \
    __VA_ARGS__                             \
  }
template <class A>
struct S1 {
  A a;
  using Self = S1;
  EACH(FIELD(A, a))
};
#define PAIR(name, attributes)    \
  template <class A, class B>     \
  struct attributes name {        \
    A a;                          \
    B b;                          \
    using Self = name;            \
    EACH(FIELD(A, a) FIELD(B, b)) \
  };
PAIR(S2, )
PAIR(G2, )
PAIR(P2, __attribute__((packed)))
PAIR(A2, alignas(16))
template <class A, class B, class C>
struct S3 {
  A a;
  B b;
  C c;
  using Self = S3;
  EACH(FIELD(A, a) FIELD(B, b) FIELD(C, c))
};
template <class A, class B, class C, class D>
struct S4 {
  A a;
  B b;
  C c;
  D d;
  using Self = S4;
  EACH(FIELD(A, a) FIELD(B, b) FIELD(C, c) FIELD(D, d))
};
template <class A, class B, class C, class D, class E, class F, class G, class H>
struct S8 {
  A a;
  B b;
  C c;
  D d;
  E e;
  F f;
  G g;
  H h;
  using Self = S8;
  EACH(FIELD(A, a) FIELD(B, b) FIELD(C, c) FIELD(D, d) FIELD(E, e) FIELD(F, f) FIELD(G, g) FIELD(H, h))
};

using Bytes3 = S3<Byte, Byte, Byte>;
using Vector2 = S2<float, float>;
using Vector3 = S3<float, float, float>;
using Wrapped = S1<S1<float>>;
using Fields = List<bool, char16_t, signed char, Byte, short, unsigned short, int, unsigned, long long,
                    unsigned long long, float, float, float, double, double, void*, Tiny, Plain, Object*, Vector2,
                    Vector3, Wrapped, Bytes3, S2<double, char>, S2<int, float>>;

// Structs of random fields, of at most 64 bytes.
template <unsigned K, unsigned J>
using Field = Fields::At<hash(K, J)>;
template <unsigned K>
using Random8 =
    S8<Field<K, 0>, Field<K, 1>, Field<K, 2>, Field<K, 3>, Field<K, 4>, Field<K, 5>, Field<K, 6>, Field<K, 7>>;
template <unsigned K>
using Random4 = S4<Field<K, 0>, Field<K, 1>, Field<K, 2>, Field<K, 3>>;
template <class T>
struct Only {
  using Type = T;
};
template <bool, class A, class B>
struct If {
  using Type = A;
};
template <class A, class B>
struct If<false, A, B> {
  using Type = B;
};
template <unsigned K, unsigned Shape = hash(K, 50) % 5>
struct Random {
  using Type = typename If<sizeof(Random8<K>) <= slot_size, Random8<K>, Random4<K>>::Type;
};
template <unsigned K>
struct Random<K, 0> {
  using Type = S1<Field<K, 0>>;
};
template <unsigned K>
struct Random<K, 1> {
  using Type = S2<Field<K, 0>, Field<K, 1>>;
};
template <unsigned K>
struct Random<K, 2> {
  using Type = S3<Field<K, 0>, Field<K, 1>, Field<K, 2>>;
};
template <unsigned K>
struct Random<K, 3> {
  using Type = Random4<K>;
};
constexpr unsigned random_structs = 192;

using Scalars = List<bool, char16_t, signed char, Byte, short, unsigned short, int, unsigned, long long,
                     unsigned long long, float, float, float, double, double, void*, Tiny, Small, Plain, Large,
                     Object*, int*, float*, Vector3*>;
// Shapes that the random ones may miss: each odd size, both classes in either order, alignments.
using Chosen = List<Vector2, Vector3, S4<float, float, float, float>, Bytes3, S2<Bytes3, S2<Byte, Byte>>,
                    S2<Bytes3, Bytes3>, S2<Bytes3, S4<Byte, Byte, Byte, Byte>>, S4<Byte, Byte, Byte, Byte>,
                    S2<long long, double>, S2<double, long long>, S2<double, double>, S2<float, double>,
                    S3<int, float, double>, S2<Wrapped, Wrapped>, S3<Vector2, float, short>, S3<double, double, double>,
                    P2<char, float>, P2<char, double>, P2<int, short>, P2<short, Vector2>, P2<float, Bytes3>,
                    A2<long long, double>, A2<Vector3, Vector3>, A2<long long, long long>, G2<float, float>,
                    G2<int, double>, S2<G2<float, float>, float>,
                    S8<double, double, double, double, double, double, double, double>,
                    S4<Vector3, Vector3, Vector3, Vector3>>;

template <unsigned H, unsigned Kind = hash(H, 60) % 8>
struct Pick {
  using Type = Scalars::At<hash(H, 61)>;
};
template <unsigned H>
struct Pick<H, 0> {
  using Type = Chosen::At<hash(H, 62)>;
};
template <unsigned H>
struct Pick<H, 1> : Random<hash(H, 63) % random_structs> {};
template <unsigned H>
struct Pick<H, 2> : Random<hash(H, 64) % random_structs> {};

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
  using Argument = typename If<instance && P == 0, Only<Object*>, Pick<hash(I, P)>>::Type::Type;
  using Result = typename If<hash(I, 73) % 10 == 0, Only<void>, Pick<hash(I, 74)>>::Type::Type;
};

template <unsigned... I>
struct Numbers {};
template <class T, T... I>
struct ToNumbers {
  using Type = Numbers<I...>;
};
template <unsigned N>
using UpTo = typename __make_integer_seq<ToNumbers, unsigned, N>::Type;

}  // namespace signatures
