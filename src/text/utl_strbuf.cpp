// utl_str, string buffers: a growable text that callers append to.
//
// The record (data, end, capacity, initial size, increment) is allocated
// zeroed; data stays null until the first addition, which allocates the
// initial size, or the text's length plus the increment when the text does
// not fit. Later additions grow by the larger of the increment and the
// shortfall. `end` always points at the terminating NUL. Adding a null text
// moves end one past the current terminator and writes a new one, so the old
// terminator stays inside as a separator: a buffer can hold several
// NUL-separated texts, and callers build such lists on purpose. Stealing
// hands the text over, shrunk to fit, and the next addition starts afresh.
#include <climits>
#include <cstdint>
#include <cstring>

#include "common/error_record.h"
#include "utl_mem.h"
#include "utl_str.h"

namespace qx::strbuf {
namespace {

constexpr const char *kTag = "utl_str";
constexpr int kDefaultSize = 128;

// Allocates the first block for an addition of n bytes.
bool AllocateFirst(UTL_STR_BUFF *buffer, std::size_t n) {
  const std::uint64_t capacity =
      n >= static_cast<std::size_t>(buffer->initial_size)
          ? static_cast<std::uint64_t>(n) + static_cast<std::uint64_t>(buffer->increment)
          : static_cast<std::uint64_t>(buffer->initial_size);
  if (capacity > INT_MAX) return false;
  auto *data =
      static_cast<char *>(UTL_DMEM_ALLOC(static_cast<unsigned int>(capacity), kTag, __LINE__));
  if (data == nullptr) return false;
  *data = '\0';
  buffer->data = data;
  buffer->end = data;
  buffer->capacity = static_cast<int>(capacity);
  return true;
}

// Makes room for n more bytes and a terminator. A text that lies inside the
// buffer itself (adding the buffer to itself) is followed through the move.
bool Reserve(UTL_STR_BUFF *buffer, std::size_t n, const char **text) {
  if (buffer->data == nullptr) return AllocateFirst(buffer, n);
  const std::int64_t used = buffer->end - buffer->data;
  const std::int64_t needed =
      used + static_cast<std::int64_t>(n) + 1 - static_cast<std::int64_t>(buffer->capacity);
  if (needed <= 0) return true;
  const std::int64_t capacity =
      buffer->capacity + (buffer->increment > needed ? buffer->increment : needed);
  if (capacity > INT_MAX) return false;
  const auto at = reinterpret_cast<std::uintptr_t>(*text);
  const bool inside = *text != nullptr && at >= reinterpret_cast<std::uintptr_t>(buffer->data) &&
                      at <= reinterpret_cast<std::uintptr_t>(buffer->end);
  const std::int64_t offset = inside ? *text - buffer->data : 0;
  auto *grown = static_cast<char *>(
      UTL_DMEM_REALLOC(buffer->data, static_cast<unsigned int>(capacity), kTag, __LINE__));
  if (grown == nullptr) return false;
  buffer->data = grown;
  buffer->end = grown + used;
  buffer->capacity = static_cast<int>(capacity);
  if (inside) *text = grown + offset;
  return true;
}

}  // namespace
}  // namespace qx::strbuf

using namespace qx::strbuf;

extern "C" {

UTL_STR_BUFF *UTL_STR_BUFF_CREATE(int initial_size, int increment) {
  auto *buffer =
      static_cast<UTL_STR_BUFF *>(UTL_DMEM_CALLOC(1, sizeof(UTL_STR_BUFF), kTag, __LINE__));
  if (buffer == nullptr) {
    return qx::TraceAndFail("UTL_STR_BUFF_CREATE", static_cast<UTL_STR_BUFF *>(nullptr));
  }
  buffer->initial_size = initial_size < 1 ? kDefaultSize : initial_size;
  buffer->increment = increment <= 0 ? kDefaultSize : increment;
  return buffer;
}

char *UTL_STR_BUFF_ADD(UTL_STR_BUFF *buffer, const char *text) {
  if (buffer == nullptr) return qx::TraceAndFail("UTL_STR_BUFF_ADD", static_cast<char *>(nullptr));
  const std::size_t n = text != nullptr ? std::strlen(text) : 1;
  if (!Reserve(buffer, n, &text)) {
    return qx::TraceAndFail("UTL_STR_BUFF_ADD", static_cast<char *>(nullptr));
  }
  if (text != nullptr) {
    std::memmove(buffer->end, text, n + 1);
    buffer->end += n;
  } else {
    // The old terminator stays as a separator before a new, empty text.
    *++buffer->end = '\0';
  }
  return buffer->data;
}

const char *UTL_STR_BUFF_GET(UTL_STR_BUFF *buffer) {
  return buffer == nullptr || buffer->data == nullptr ? "" : buffer->data;
}

UTL_STR_BUFF *UTL_STR_BUFF_CLEAR(UTL_STR_BUFF *buffer) {
  if (buffer == nullptr) return nullptr;
  buffer->end = buffer->data;
  if (buffer->data != nullptr) *buffer->data = '\0';
  return buffer;
}

char *UTL_STR_BUFF_STEAL(UTL_STR_BUFF *buffer) {
  if (buffer == nullptr || buffer->data == nullptr) return nullptr;
  const auto used = static_cast<unsigned int>(buffer->end - buffer->data);
  auto *text = static_cast<char *>(UTL_DMEM_REALLOC(buffer->data, used + 1, kTag, __LINE__));
  if (text == nullptr) return qx::TraceAndFail("UTL_STR_BUFF_STEAL", text);
  // Capacity, initial size and increment stay; the next addition starts anew.
  buffer->data = nullptr;
  buffer->end = nullptr;
  return text;
}

int UTL_STR_BUFF_DESTROY(UTL_STR_BUFF *buffer) {
  if (buffer == nullptr) return UTL_DMEM_FREE(nullptr, kTag, __LINE__);
  if (buffer->data != nullptr) UTL_DMEM_FREE(buffer->data, kTag, __LINE__);
  return UTL_DMEM_FREE(buffer, kTag, __LINE__);
}

}  // extern "C"
