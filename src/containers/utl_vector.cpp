// utl_vector: typed vectors (32-bit integers, doubles or plain 32-bit values)
// and their conversions to and from bit sets.
//
// A vector is two allocations tagged utl_vector: the record and its data. A
// record of an unknown type keeps type 0 and no data. Unlike the set routines,
// misuse here is reported by a fixed line on standard error rather than through
// the error stack, as callers of this family expect. Integer arithmetic is
// carried out in 64 bits and wrapped or saturated back into 32, so no element
// value can make it undefined.
#include "utl_vector.h"

#include <climits>
#include <cstddef>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "common/error_record.h"
#include "containers/set_words.h"
#include "utl_mem.h"

namespace qx::vector {
namespace {

constexpr const char *kTag = "utl_vector";

bool IsNumeric(int type) {
  return type == UTL_VECTOR_INT || type == UTL_VECTOR_DOUBLE;
}

unsigned int ElementBytes(int type) {
  switch (type) {
    case UTL_VECTOR_INT:
    case UTL_VECTOR_WORD:
      return 4;
    case UTL_VECTOR_DOUBLE:
      return 8;
    default:
      return 0;
  }
}

// In size_t: a vector of 2^29 doubles or more already exceeds 32 bits.
std::size_t DataBytes(const UtlVector *v) {
  return std::size_t{ElementBytes(v->type)} * static_cast<std::size_t>(v->length);
}

void ReportUnknownOperation() {
  PrintErrorLine("Error: Do not know how to perform this operation with provided data type\n");
}

void ReportNotCumulative() {
  PrintErrorLine("Error: Not cumulative data type\n");
  ReportUnknownOperation();
}

// Truncates toward zero, saturating at the int limits; NaN gives 0.
int ToInt(double x) {
  if (std::isnan(x)) return 0;
  if (x >= 2147483647.0) return INT_MAX;
  if (x <= -2147483648.0) return INT_MIN;
  return static_cast<int>(x);
}

// Two's-complement wrap of a 64-bit sum into 32 bits.
int Wrap(long long x) {
  return static_cast<int>(static_cast<std::uint32_t>(x));
}

int *Ints(const UtlVector *v) {
  return static_cast<int *>(v->data);
}
double *Doubles(const UtlVector *v) {
  return static_cast<double *>(v->data);
}

// A type-1 vector of the members of set in ascending order; the core of
// UTL_SET_TO_VECTOR and UtlVectorFromSet.
UtlVector *MembersOf(const UTL_SET *set) {
  UtlVector *vector = UtlVectorAlloc(UTL_SET_CARDINALITY(set), UTL_VECTOR_INT);
  if (vector == nullptr) return nullptr;
  int i = 0;
  for (int e = UTL_SET_NEXT(set, -1); e >= 0; e = UTL_SET_NEXT(set, e))
    Ints(vector)[i++] = e;
  return vector;
}

// Element i of vector as a set element; false for a type-2 NaN.
bool ElementAsInt(const UtlVector *v, int i, int *e) {
  if (v->type != UTL_VECTOR_DOUBLE) {
    *e = Ints(v)[i];
    return true;
  }
  if (std::isnan(Doubles(v)[i])) return false;
  *e = ToInt(Doubles(v)[i]);
  return true;
}

}  // namespace
}  // namespace qx::vector

using namespace qx::vector;

extern "C" {

UtlVector *UtlVectorAlloc(int length, int type) {
  auto *vector = static_cast<UtlVector *>(UTL_DMEM_ALLOC(sizeof(UtlVector), kTag, __LINE__));
  if (vector == nullptr) return nullptr;
  vector->length = length < 0 ? 0 : length;
  vector->type = ElementBytes(type) != 0 ? type : 0;
  vector->data = nullptr;
  if (vector->type != 0) {
    vector->data = UTL_DMEM_CALLOC(static_cast<unsigned int>(vector->length),
                                   ElementBytes(vector->type), kTag, __LINE__);
    if (vector->data == nullptr) {
      UTL_DMEM_FREE(vector, kTag, __LINE__);
      return nullptr;
    }
  }
  return vector;
}

void UtlVectorClear(UtlVector *vector) {
  if (vector->data != nullptr) std::memset(vector->data, 0, DataBytes(vector));
}

UtlVector *UtlVectorCopy(const UtlVector *vector) {
  UtlVector *copy = UtlVectorAlloc(vector->length, vector->type);
  if (copy != nullptr && copy->data != nullptr)
    std::memcpy(copy->data, vector->data, DataBytes(vector));
  return copy;
}

void UtlVectorFree(UtlVector *vector) {
  if (vector == nullptr) return;
  UTL_DMEM_FREE(vector->data, kTag, __LINE__);
  UTL_DMEM_FREE(vector, kTag, __LINE__);
}

int UtlVectorAdd(const UtlVector *a, const UtlVector *b, UtlVector *result) {
  if (a->length != b->length || a->length != result->length) {
    qx::PrintErrorLine("Error: two vectors differ in length\n");
    return 0;
  }
  if (a->type != b->type || a->type != result->type) {
    qx::PrintErrorLine("Error: two vectors differ in type\n");
    return 0;
  }
  if (!IsNumeric(a->type)) {
    ReportNotCumulative();
    return 0;
  }
  for (int i = 0; i < a->length; ++i) {
    if (a->type == UTL_VECTOR_INT)
      Ints(result)[i] = Wrap(static_cast<long long>(Ints(a)[i]) + Ints(b)[i]);
    else
      Doubles(result)[i] = Doubles(a)[i] + Doubles(b)[i];
  }
  return 1;
}

double UtlVectorSum(const UtlVector *vector) {
  if (!IsNumeric(vector->type)) {
    ReportNotCumulative();
    return 0.0;
  }
  double sum = 0.0;
  for (int i = 0; i < vector->length; ++i)
    sum += vector->type == UTL_VECTOR_INT ? Ints(vector)[i] : Doubles(vector)[i];
  return sum;
}

int UtlVectorOperation(UtlVector *vector, char op, double x) {
  if (!IsNumeric(vector->type)) {
    ReportUnknownOperation();
    return 0;
  }
  if (op != '+' && op != '-' && op != '*' && op != '/') return 0;
  const long long step = ToInt(x);
  for (int i = 0; i < vector->length; ++i) {
    if (vector->type == UTL_VECTOR_DOUBLE) {
      double &d = Doubles(vector)[i];
      d = op == '+' ? d + x : op == '-' ? d - x : op == '*' ? d * x : d / x;
    } else {
      int &v = Ints(vector)[i];
      if (op == '+' || op == '-')
        v = Wrap(op == '+' ? v + step : v - step);
      else
        v = ToInt(op == '*' ? v * x : v / x);
    }
  }
  return 1;
}

UtlVector *UtlVectorFromSet(const UTL_SET *set) {
  return MembersOf(set);
}

UtlVector *UTL_SET_TO_VECTOR(const UTL_SET *set) {
  UtlVector *vector = MembersOf(set);
  if (vector == nullptr) UTL_ERROR_ADD_TRACE("UTL_SET_TO_VECTOR");
  return vector;
}

UTL_SET *UtlSetFromVector(const UtlVector *vector, int n) {
  UTL_SET *set = qx::set::NewSetFor(n, "UtlSetFromVector");
  if (set == nullptr || vector->data == nullptr) return set;
  for (int i = 0; i < vector->length; ++i) {
    int e = -1;
    ElementAsInt(vector, i, &e);
    UTL_SET_INSERT(set, e);
  }
  return set;
}

}  // extern "C"
