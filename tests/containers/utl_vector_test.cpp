// Typed vectors: allocation, arithmetic, misuse texts and conversions to and from sets.
#include "utl_vector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_set.h"

namespace {

using VectorPtr = std::unique_ptr<UtlVector, decltype(&UtlVectorFree)>;
using Strings = std::vector<std::string>;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

constexpr auto Own = [](UtlVector *v) { return VectorPtr(v, UtlVectorFree); };
template <typename T>
VectorPtr Make(const std::vector<T> &values) {
  VectorPtr v = Own(UtlVectorAlloc(static_cast<int>(values.size()), sizeof(T) == 4 ? 1 : 2));
  std::memcpy(v->data, values.data(), values.size() * sizeof(T));
  return v;
}
template <typename T>
std::vector<T> Values(const UtlVector *v) {
  return {static_cast<const T *>(v->data), static_cast<const T *>(v->data) + v->length};
}

TEST(Vector, AllocationConversionsArithmeticAndMisuse) {
  // {length, type, type kept, length kept, zeroed bytes per element (0: no data)}
  constexpr int kAllocations[][5] = {{5, 1, 1, 5, 4}, {5, 2, 2, 5, 8}, {5, 3, 3, 5, 4},
                                     {5, 4, 0, 5, 0}, {0, 1, 1, 0, 4}, {-3, 2, 2, 0, 8}};
  for (const auto &[length, type, kept_type, kept_length, bytes] : kAllocations) {
    VectorPtr v = Own(UtlVectorAlloc(length, type));
    const auto *data = static_cast<const char *>(v->data);
    const std::ptrdiff_t zeros = std::count(data, data + kept_length * bytes, 0);
    EXPECT_EQ(std::make_tuple(v->type, v->length, data != nullptr, zeros),
              std::make_tuple(kept_type, kept_length, bytes != 0, kept_length * bytes));
  }
  VectorPtr cleared = Make<double>({1.5, -2.0}), copy = Own(UtlVectorCopy(cleared.get()));
  UtlVectorClear(cleared.get());
  EXPECT_EQ(Values<double>(copy.get()), (std::vector<double>{1.5, -2.0}));  // not shared
  EXPECT_EQ(Values<double>(cleared.get()), (std::vector<double>{0.0, 0.0}));
  // Members come back ascending; doubles truncate, what falls outside is refused.
  UTL_SET *set = UtlSetFromVector(Make<int>({69, 0, 32, 5, 31}).get(), 70);
  VectorPtr members = Own(UtlVectorFromSet(set)), also = Own(UTL_SET_TO_VECTOR(set));
  EXPECT_EQ(std::make_tuple(members->type, Values<int>(members.get()), Values<int>(also.get())),
            std::make_tuple(1, std::vector<int>{0, 5, 31, 32, 69}, Values<int>(members.get())));
  UTL_SET *partial = UtlSetFromVector(Make<double>({2.9, -1.0, 3.0, kNan}).get(), 3);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/SET/FATAL/OUT_RANGE");
  EXPECT_EQ(UTL_SET_CARDINALITY(partial) + UTL_SET_MEMBER(partial, 2), 2);
  {
    qxtest::FailAllocation fail(2);  // the vector's data, after its record
    EXPECT_EQ(UTL_SET_TO_VECTOR(set), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces, (Strings{"UTL_MEM_CALLOC", "UTL_SET_TO_VECTOR"}));
  EXPECT_EQ(UTL_SET_DESTROY(set) + UTL_SET_DESTROY(partial), 2);
  UTL_ERROR_CLEAR();
  VectorPtr a = Make<int>({1, -2, INT_MAX}), b = Make<int>({10, 20, 1}), d = Make<double>({1, -3});
  EXPECT_EQ(UtlVectorAdd(a.get(), b.get(), a.get()) + UtlVectorAdd(d.get(), d.get(), d.get()), 2);
  EXPECT_EQ(Values<int>(a.get()), (std::vector<int>{11, 18, INT_MIN}));  // wraps in 32 bits
  EXPECT_EQ(UtlVectorSum(a.get()) + UtlVectorSum(d.get()), 11.0 + 18 + INT_MIN - 4);
  EXPECT_EQ(UtlVectorOperation(d.get(), '+', 0.5) + UtlVectorOperation(d.get(), '/', 2.0), 2);
  EXPECT_EQ(Values<double>(d.get()), (std::vector<double>{1.25, -2.75}));  // in double
  // Integers: x truncated for + and -; * and / in double, truncated, saturated, NaN as 0.
  const std::tuple<char, double, int, int> kRows[] = {
      {'+', 2.9, 1, 3},       {'+', 2.9, -5, -3},      {'-', -1.7, 1, 2}, {'-', -1.7, -5, -4},
      {'*', 2.5, 3, 7},       {'*', 2.5, -3, -7},      {'/', 2.0, 7, 3},  {'/', 2.0, -7, -3},
      {'/', 0.0, 7, INT_MAX}, {'/', 0.0, -7, INT_MIN}, {'/', 0.0, 0, 0},  {'+', kNan, 4, 4}};
  for (const auto &[op, x, before, after] : kRows) {
    VectorPtr v = Make<int>({before});
    EXPECT_EQ(UtlVectorOperation(v.get(), op, x), 1);
    EXPECT_EQ(Values<int>(v.get()), std::vector<int>{after}) << op << " " << x << " " << before;
  }
  // Misuse is reported on the standard error stream, and fails.
  VectorPtr i2 = Make<int>({1, 2}), d3 = Make<double>({1, 2, 3}), w3 = Own(UtlVectorAlloc(3, 3));
  UtlVector *x = b.get(), *two = i2.get(), *dbl = d3.get(), *word = w3.get();
  const std::string kHow =
      "Error: Do not know how to perform this operation with provided data type\n";
  const std::tuple<std::function<double()>, std::string> kMisuse[] = {
      {[&] { return UtlVectorAdd(x, two, x); }, "Error: two vectors differ in length\n"},
      {[&] { return UtlVectorAdd(x, dbl, x); }, "Error: two vectors differ in type\n"},
      {[&] { return UtlVectorSum(word); }, "Error: Not cumulative data type\n" + kHow},
      {[&] { return UtlVectorOperation(word, '+', 1.0); }, kHow},
      {[&] { return UtlVectorOperation(x, '%', 2.0); }, ""}};  // changes nothing
  for (const auto &[call, printed] : kMisuse) {
    qxtest::CaptureStream err(stderr);
    EXPECT_EQ(call(), 0) << printed;
    EXPECT_EQ(err.Text(), printed);
  }
  EXPECT_EQ(Values<int>(x), (std::vector<int>{10, 20, 1}));  // untouched by the failures
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

}  // namespace
