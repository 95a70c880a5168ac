// Typed vectors: allocation by type, arithmetic with its conversions, the
// standard-error texts of misuse, and the conversions to and from sets.
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
#include <type_traits>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_set.h"

namespace {

struct VectorDeleter {
  void operator()(UtlVector *v) const { UtlVectorFree(v); }
};
using VectorPtr = std::unique_ptr<UtlVector, VectorDeleter>;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

template <typename T>
VectorPtr Make(const std::vector<T> &values) {
  VectorPtr v(UtlVectorAlloc(static_cast<int>(values.size()), std::is_same_v<T, int> ? 1 : 2));
  std::memcpy(v->data, values.data(), values.size() * sizeof(T));
  return v;
}

template <typename T>
std::vector<T> Values(const UtlVector *v) {
  return {static_cast<const T *>(v->data), static_cast<const T *>(v->data) + v->length};
}

TEST(Vector, AllocationByTypeCopyAndClear) {
  // {length, type, type kept, length kept, zeroed bytes per element (0: no data)}
  constexpr int kRows[][5] = {{5, 1, 1, 5, 4}, {5, 2, 2, 5, 8}, {5, 3, 3, 5, 4}, {5, 4, 0, 5, 0},
                              {5, 0, 0, 5, 0}, {0, 1, 1, 0, 4}, {-3, 2, 2, 0, 8}};
  for (const auto &[length, type, kept_type, kept_length, bytes] : kRows) {
    VectorPtr v(UtlVectorAlloc(length, type));
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(std::make_tuple(v->type, v->length, v->data != nullptr),
              std::make_tuple(kept_type, kept_length, bytes != 0))
        << length << " " << type;
    const auto *data = static_cast<const unsigned char *>(v->data);
    EXPECT_EQ(std::count(data, data + kept_length * bytes, 0), kept_length * bytes);
  }
  VectorPtr d = Make<double>({1.5, -2.0}), copy(UtlVectorCopy(d.get()));
  EXPECT_NE(copy->data, d->data);
  EXPECT_EQ(Values<double>(copy.get()), (std::vector<double>{1.5, -2.0}));
  UtlVectorClear(copy.get());
  EXPECT_EQ(Values<double>(copy.get()), (std::vector<double>{0.0, 0.0}));
  EXPECT_EQ(Values<double>(d.get()), (std::vector<double>{1.5, -2.0}));
  UtlVectorFree(nullptr);
}

TEST(Vector, AllocationFailuresAreRecordedAndLeakNothing) {
  VectorPtr source = Make<int>({1, 2, 3});
  UTL_SET *set = UTL_SET_CREATE(40);
  UTL_SET_INSERT(set, 33);
  const std::function<UtlVector *()> kMakers[] = {
      [] { return UtlVectorAlloc(8, 2); }, [&] { return UtlVectorCopy(source.get()); },
      [&] { return UtlVectorFromSet(set); }, [&] { return UTL_SET_TO_VECTOR(set); }};
  for (const auto &make : kMakers) {
    for (unsigned long nth = 1;; ++nth) {
      UTL_ERROR_CLEAR();
      qxtest::FailAllocation fail(nth);
      VectorPtr v(make());
      if (v != nullptr) break;
      EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
      ASSERT_LT(nth, 5u);
    }
  }
  UTL_ERROR_CLEAR();
  {
    qxtest::FailAllocation fail(2);  // the vector's data
    EXPECT_EQ(UTL_SET_TO_VECTOR(set), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_MEM_CALLOC", "UTL_SET_TO_VECTOR"}));
  UTL_SET_DESTROY(set);
}

TEST(Vector, MisuseIsReportedOnStandardError) {
  UTL_ERROR_CLEAR();
  VectorPtr i3 = Make<int>({1, 2, 3}), i2 = Make<int>({1, 2}), d3 = Make<double>({1, 2, 3});
  VectorPtr w3(UtlVectorAlloc(3, UTL_VECTOR_WORD)), none(UtlVectorAlloc(3, 9));
  const std::string
      kHow = "Error: Do not know how to perform this operation with provided data type\n",
      kNotCumulative = "Error: Not cumulative data type\n" + kHow,
      kLength = "Error: two vectors differ in length\n";
  const std::tuple<std::function<double()>, double, std::string> kRows[] = {
      {[&] { return UtlVectorAdd(i3.get(), i2.get(), i3.get()); }, 0, kLength},
      {[&] { return UtlVectorAdd(i3.get(), i3.get(), i2.get()); }, 0, kLength},
      {[&] { return UtlVectorAdd(i3.get(), d3.get(), i3.get()); }, 0,
       "Error: two vectors differ in type\n"},
      {[&] { return UtlVectorAdd(w3.get(), w3.get(), w3.get()); }, 0, kNotCumulative},
      {[&] { return UtlVectorSum(w3.get()); }, 0.0, kNotCumulative},
      {[&] { return UtlVectorSum(none.get()); }, 0.0, kNotCumulative},
      {[&] { return UtlVectorOperation(w3.get(), '+', 1.0); }, 0, kHow},
      {[&] { return UtlVectorOperation(i3.get(), '%', 2.0); }, 0, ""},
      {[&] { return UtlVectorSum(i3.get()); }, 6.0, ""},
      {[&] { return UtlVectorSum(d3.get()); }, 6.0, ""},
  };
  for (const auto &[call, result, printed] : kRows) {
    qxtest::CaptureStream err(stderr);
    EXPECT_EQ(call(), result) << printed;
    EXPECT_EQ(err.Text(), printed);
  }
  EXPECT_EQ(Values<int>(i3.get()), (std::vector<int>{1, 2, 3}));  // untouched by the failures
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Vector, Arithmetic) {
  VectorPtr a = Make<int>({1, -2, INT_MAX}), b = Make<int>({10, 20, 1}), sum(UtlVectorAlloc(3, 1));
  EXPECT_EQ(UtlVectorAdd(a.get(), b.get(), sum.get()), 1);
  EXPECT_EQ(Values<int>(sum.get()), (std::vector<int>{11, 18, INT_MIN}));  // wraps in 32 bits
  VectorPtr da = Make<double>({0.5, 1.5}), db = Make<double>({0.25, -3}),
            dsum(UtlVectorAlloc(2, 2));
  EXPECT_EQ(UtlVectorAdd(da.get(), db.get(), dsum.get()), 1);
  EXPECT_EQ(Values<double>(dsum.get()), (std::vector<double>{0.75, -1.5}));
  // Integers: x converted toward zero for + and -; * and / in double, the result
  // truncated toward zero, saturated at the limits, NaN giving 0; sums wrap.
  const std::tuple<char, double, std::vector<int>, std::vector<int>> kRows[] = {
      {'+', 2.9, {1, -5}, {3, -3}},
      {'-', -1.7, {1, -5}, {2, -4}},
      {'*', 2.5, {3, -3}, {7, -7}},
      {'/', 2.0, {7, -7}, {3, -3}},
      {'/', 0.0, {7, -7, 0}, {INT_MAX, INT_MIN, 0}},
      {'*', 1e10, {1, -1}, {INT_MAX, INT_MIN}},
      {'+', kNan, {4}, {4}},
      {'+', 1.0, {INT_MAX}, {INT_MIN}}};
  for (const auto &[op, x, before, after] : kRows) {
    VectorPtr v = Make<int>(before);
    EXPECT_EQ(UtlVectorOperation(v.get(), op, x), 1);
    EXPECT_EQ(Values<int>(v.get()), after) << op << " " << x;
  }
  VectorPtr d = Make<double>({1.0, -3.0});
  for (char op : {'+', '*', '-', '/'})
    EXPECT_EQ(UtlVectorOperation(d.get(), op, 2.0), 1);
  EXPECT_EQ(Values<double>(d.get()), (std::vector<double>{2.0, -2.0}));  // ((v + 2) * 2 - 2) / 2
}

TEST(Vector, ConversionsToAndFromSets) {
  UTL_SET *set = UTL_SET_CREATE(70), *empty = UTL_SET_CREATE(9);
  for (int e : {0, 5, 31, 32, 69})
    UTL_SET_INSERT(set, e);
  VectorPtr members(UtlVectorFromSet(set)), also(UTL_SET_TO_VECTOR(set)),
      none(UTL_SET_TO_VECTOR(empty));
  EXPECT_EQ(members->type, UTL_VECTOR_INT);
  EXPECT_EQ(Values<int>(members.get()), (std::vector<int>{0, 5, 31, 32, 69}));
  EXPECT_EQ(Values<int>(also.get()), Values<int>(members.get()));
  EXPECT_EQ(none->length, 0);
  UTL_SET *back = UtlSetFromVector(members.get(), 70);
  EXPECT_TRUE(UTL_SET_EQUAL(back, set));
  UTL_SET_DESTROY(back);

  // Doubles truncate toward zero; what falls outside (NaN too) is refused and skipped.
  VectorPtr wild = Make<double>({2.9, -1.0, 3.0, kNan});
  UTL_SET *partial = UtlSetFromVector(wild.get(), 3);
  ASSERT_NE(partial, nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/SET/FATAL/OUT_RANGE");
  EXPECT_EQ(UTL_SET_CARDINALITY(partial), 1);
  EXPECT_TRUE(UTL_SET_MEMBER(partial, 2));
  UTL_SET_DESTROY(partial);
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UtlSetFromVector(members.get(), 0), nullptr);
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_SET_CREATE", "UtlSetFromVector"}));
  UTL_SET_DESTROY(set);
  UTL_SET_DESTROY(empty);
}

}  // namespace
