// Arithmetic that can leave its type, by name. Everything that comes from a file or a caller goes through these
// helpers, so that no value, however hostile, traps or wraps unnoticed. Conversions from floating point behave as the
// 64-bit Arm instructions do on every target: they truncate toward zero, saturate at the ends of the type, and turn NaN
// into 0.
#ifndef ZMV_BASE_ARITH_H
#define ZMV_BASE_ARITH_H

#include <cstdint>
#include <limits>
#include <type_traits>

namespace zmv {

template <typename Integer, typename Real>
constexpr Integer SaturatingCast(Real value) {
  static_assert(std::is_integral_v<Integer> && std::is_floating_point_v<Real>);
  constexpr Real kLow = static_cast<Real>(std::numeric_limits<Integer>::min());
  // 2^bits, exact in float and double: the first value above the range.
  constexpr Real kBeyond = static_cast<Real>(std::numeric_limits<Integer>::max() / 2 + 1) * Real{2};
  if (!(value == value)) return 0;
  if (value <= kLow) return std::numeric_limits<Integer>::min();
  if (value >= kBeyond) return std::numeric_limits<Integer>::max();
  return static_cast<Integer>(value);
}

template <typename Real>
constexpr uint32_t SaturatingU32(Real value) {
  return SaturatingCast<uint32_t>(value);
}

template <typename Real>
constexpr int32_t SaturatingI32(Real value) {
  return SaturatingCast<int32_t>(value);
}

constexpr uint32_t SaturatingU32(uint64_t value) {
  return value > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(value);
}

// Integer division in which a zero divisor gives 0, as the Arm divide instruction does.
template <typename Integer>
constexpr Integer DivideOrZero(Integer dividend, Integer divisor) {
  static_assert(std::is_unsigned_v<Integer>);
  return divisor == 0 ? Integer{0} : static_cast<Integer>(dividend / divisor);
}

// a * b in `*out` and true when the product fits its type; otherwise false and `*out` is left alone.
template <typename Integer>
constexpr bool MulFits(Integer a, Integer b, Integer* out) {
  static_assert(std::is_unsigned_v<Integer>);
  if (b != 0 && a > std::numeric_limits<Integer>::max() / b) return false;
  *out = static_cast<Integer>(a * b);
  return true;
}

// (u32)((float)ticks * unit / (float)scale), in this order and in single precision; 0 when the scale is 0. The unit is
// 1000 for milliseconds and 1000000 for microseconds.
constexpr uint32_t TicksToUnits(uint32_t ticks, float unit, uint32_t scale) {
  if (scale == 0) return 0;
  return SaturatingU32(static_cast<float>(ticks) * unit / static_cast<float>(scale));
}

}  // namespace zmv

#endif
