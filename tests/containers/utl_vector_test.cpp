// Typed vectors: allocation by type, arithmetic with its conversions, the
// standard-error messages of misuse, and the conversions to and from sets.
#include "utl_vector.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_set.h"

namespace {

struct VectorDeleter {
  void operator()(UtlVector *v) const { UtlVectorFree(v); }
};
using VectorPtr = std::unique_ptr<UtlVector, VectorDeleter>;

VectorPtr Ints(std::vector<int> values) {
  VectorPtr v(UtlVectorAlloc(static_cast<int>(values.size()), UTL_VECTOR_INT));
  std::memcpy(v->data, values.data(), values.size() * sizeof(int));
  return v;
}

VectorPtr Doubles(std::vector<double> values) {
  VectorPtr v(UtlVectorAlloc(static_cast<int>(values.size()), UTL_VECTOR_DOUBLE));
  std::memcpy(v->data, values.data(), values.size() * sizeof(double));
  return v;
}

std::vector<int> IntsOf(const UtlVector *v) {
  const int *data = static_cast<const int *>(v->data);
  return std::vector<int>(data, data + v->length);
}

std::vector<double> DoublesOf(const UtlVector *v) {
  const double *data = static_cast<const double *>(v->data);
  return std::vector<double>(data, data + v->length);
}

TEST(Vector, AllocationByType) {
  struct Row {
    int length, type, stored_type, stored_length;
    bool has_data;
  };
  constexpr Row kRows[] = {
      {5, 1, 1, 5, true},  {5, 2, 2, 5, true}, {5, 3, 3, 5, true},  {5, 4, 0, 5, false},
      {5, 0, 0, 5, false}, {0, 1, 1, 0, true}, {-3, 2, 2, 0, true},
  };
  for (const Row &row : kRows) {
    VectorPtr v(UtlVectorAlloc(row.length, row.type));
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->type, row.stored_type) << row.type;
    EXPECT_EQ(v->length, row.stored_length) << row.type;
    EXPECT_EQ(v->data != nullptr, row.has_data) << row.type;
    if (row.stored_type == UTL_VECTOR_DOUBLE) {
      EXPECT_EQ(DoublesOf(v.get()), std::vector<double>(row.stored_length, 0.0));
    } else if (row.has_data) {
      EXPECT_EQ(IntsOf(v.get()), std::vector<int>(row.stored_length, 0));
    }
  }
  VectorPtr d = Doubles({1.5, -2.0});
  VectorPtr copy(UtlVectorCopy(d.get()));
  EXPECT_NE(copy->data, d->data);
  EXPECT_EQ(DoublesOf(copy.get()), (std::vector<double>{1.5, -2.0}));
  UtlVectorClear(copy.get());
  EXPECT_EQ(DoublesOf(copy.get()), (std::vector<double>{0.0, 0.0}));
  UtlVectorFree(nullptr);
}

TEST(Vector, AllocationFailuresLeakNothing) {
  for (unsigned long nth = 1;; ++nth) {
    UTL_ERROR_CLEAR();
    qxtest::FailAllocation fail(nth);
    VectorPtr v(UtlVectorAlloc(8, UTL_VECTOR_DOUBLE));
    if (v != nullptr) break;
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    ASSERT_LT(nth, 5u);
  }
}

TEST(Vector, MisuseIsReportedOnStandardError) {
  VectorPtr i3 = Ints({1, 2, 3}), i2 = Ints({1, 2}), d3 = Doubles({1, 2, 3});
  VectorPtr w3(UtlVectorAlloc(3, UTL_VECTOR_WORD)), none(UtlVectorAlloc(3, 9));
  const std::string kNotCumulative =
      "Error: Not cumulative data type\n"
      "Error: Do not know how to perform this operation with provided data type\n";
  struct Row {
    const char *what;
    std::function<double()> call;
    double result;
    std::string printed;
  };
  const Row kRows[] = {
      {"add lengths", [&] { return UtlVectorAdd(i3.get(), i2.get(), i3.get()); }, 0,
       "Error: two vectors differ in length\n"},
      {"add result length", [&] { return UtlVectorAdd(i3.get(), i3.get(), i2.get()); }, 0,
       "Error: two vectors differ in length\n"},
      {"add types", [&] { return UtlVectorAdd(i3.get(), d3.get(), i3.get()); }, 0,
       "Error: two vectors differ in type\n"},
      {"add words", [&] { return UtlVectorAdd(w3.get(), w3.get(), w3.get()); }, 0, kNotCumulative},
      {"sum words", [&] { return UtlVectorSum(w3.get()); }, 0.0, kNotCumulative},
      {"sum untyped", [&] { return UtlVectorSum(none.get()); }, 0.0, kNotCumulative},
      {"operate on words", [&] { return UtlVectorOperation(w3.get(), '+', 1.0); }, 0,
       "Error: Do not know how to perform this operation with provided data type\n"},
      {"unknown operation", [&] { return UtlVectorOperation(i3.get(), '%', 2.0); }, 0, ""},
      {"sum ints", [&] { return UtlVectorSum(i3.get()); }, 6.0, ""},
      {"sum doubles", [&] { return UtlVectorSum(d3.get()); }, 6.0, ""},
  };
  for (const Row &row : kRows) {
    qxtest::CaptureStream err(stderr);
    EXPECT_EQ(row.call(), row.result) << row.what;
    EXPECT_EQ(err.Text(), row.printed) << row.what;
  }
  EXPECT_EQ(IntsOf(i3.get()), (std::vector<int>{1, 2, 3}));  // untouched by the failures
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(Vector, Arithmetic) {
  VectorPtr a = Ints({1, -2, INT_MAX}), b = Ints({10, 20, 1}), sum(UtlVectorAlloc(3, 1));
  EXPECT_EQ(UtlVectorAdd(a.get(), b.get(), sum.get()), 1);
  EXPECT_EQ(IntsOf(sum.get()), (std::vector<int>{11, 18, INT_MIN}));  // wraps in 32 bits
  VectorPtr da = Doubles({0.5, 1.5}), db = Doubles({0.25, -3}), dsum(UtlVectorAlloc(2, 2));
  EXPECT_EQ(UtlVectorAdd(da.get(), db.get(), dsum.get()), 1);
  EXPECT_EQ(DoublesOf(dsum.get()), (std::vector<double>{0.75, -1.5}));

  const double kNan = std::numeric_limits<double>::quiet_NaN();
  struct IntRow {
    char op;
    double x;
    std::vector<int> before, after;
  };
  const IntRow kIntRows[] = {
      {'+', 2.9, {1, -5}, {3, -3}},                   // x converted to 2
      {'-', -1.7, {1, -5}, {2, -4}},                  // x converted to -1
      {'*', 2.5, {3, -3}, {7, -7}},                   // 7.5 and -7.5 truncate toward zero
      {'/', 2.0, {7, -7}, {3, -3}},                   // 3.5 and -3.5
      {'/', 0.0, {7, -7, 0}, {INT_MAX, INT_MIN, 0}},  // infinities saturate, NaN gives 0
      {'*', 1e10, {1, -1}, {INT_MAX, INT_MIN}},
      {'+', kNan, {4}, {4}},
      {'+', 1.0, {INT_MAX}, {INT_MIN}},
  };
  for (const IntRow &row : kIntRows) {
    VectorPtr v = Ints(row.before);
    EXPECT_EQ(UtlVectorOperation(v.get(), row.op, row.x), 1);
    EXPECT_EQ(IntsOf(v.get()), row.after) << row.op << " " << row.x;
  }
  VectorPtr d = Doubles({1.0, -3.0});
  for (char op : {'+', '*', '-', '/'})
    EXPECT_EQ(UtlVectorOperation(d.get(), op, 2.0), 1);
  EXPECT_EQ(DoublesOf(d.get()), (std::vector<double>{2.0, -2.0}));  // ((v + 2) * 2 - 2) / 2
}

TEST(Vector, ConversionsToAndFromSets) {
  UTL_SET *set = UTL_SET_CREATE(70);
  for (int e : {0, 5, 31, 32, 69})
    UTL_SET_INSERT(set, e);
  VectorPtr members(UtlVectorFromSet(set));
  VectorPtr also(UTL_SET_TO_VECTOR(set));
  EXPECT_EQ(members->type, UTL_VECTOR_INT);
  EXPECT_EQ(IntsOf(members.get()), (std::vector<int>{0, 5, 31, 32, 69}));
  EXPECT_EQ(IntsOf(also.get()), IntsOf(members.get()));

  UTL_SET *back = UtlSetFromVector(members.get(), 70);
  EXPECT_TRUE(UTL_SET_EQUAL(back, set));
  UTL_SET_DESTROY(back);

  VectorPtr wild = Doubles({2.9, -1.0, 3.0, std::numeric_limits<double>::quiet_NaN()});
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

  UTL_SET *empty = UTL_SET_CREATE(9);
  VectorPtr none(UTL_SET_TO_VECTOR(empty));
  EXPECT_EQ(none->length, 0);
  UTL_SET_DESTROY(empty);

  UTL_ERROR_CLEAR();
  {
    qxtest::FailAllocation fail(2);  // the vector's data
    EXPECT_EQ(UTL_SET_TO_VECTOR(set), nullptr);
  }
  EXPECT_EQ(qxtest::TopError().traces,
            (std::vector<std::string>{"UTL_MEM_CALLOC", "UTL_SET_TO_VECTOR"}));
  UTL_SET_DESTROY(set);
}

}  // namespace
