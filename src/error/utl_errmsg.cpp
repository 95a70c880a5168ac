// utl_error output: printing the error stack and the message catalogue.
//
// Every piece of text goes through the replaceable output function, one call
// per piece, except "Buffer too small" (standard output) and "No Data Present
// on Error Stack" (standard error, through PrintErrorLine), which are written
// directly. Catalogue trees are a singly linked list in order of registration;
// for each tree the specific key "product/facility/code" is tried before
// "generic/code", both in lower case, and the first existing file wins. Only
// the lines before the first line that starts with "@" are shown.
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "common/error_record.h"
#include "common/fixed_text.h"
#include "error/error_stack.h"
#include "utl_error.h"
#include "utl_mem.h"
#include "utl_str.h"

namespace qx::error {
namespace {

constexpr const char *kTag = "utl_error";
constexpr std::size_t kPathBuffer = 128;
constexpr std::size_t kLineBuffer = 512;

struct TreeNode {
  char *path;
  TreeNode *next;
};

int g_level = 3;
TreeNode *g_trees = nullptr;

int WriteToStream(void *stream, const char *text) {
  std::fputs(text, static_cast<std::FILE *>(stream));
  return 1;
}

UTL_ERROR_OUTPUT_FUNC g_output = WriteToStream;

int Out(void *stream, const char *text) {
  return g_output(stream, text);
}

void LowerCase(char *text) {
  for (; *text != '\0'; ++text)
    *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
}

bool ExistsUnder(const char *tree, const char *key, char (&path)[kPathBuffer]) {
  FormatText(path, sizeof path, "%s/%s", tree, key);
  return access(path, F_OK) == 0;
}

// Opens the catalogue file of an entry, or returns null. The two keys depend
// on the entry alone and are built once; each tree tries them in turn.
std::FILE *OpenCatalogueFile(const Entry &entry) {
  char specific[kPathBuffer];
  char generic[kPathBuffer];
  FormatText(specific, sizeof specific, "%s/%s/%s", entry.product, entry.facility, entry.code);
  LowerCase(specific);
  FormatText(generic, sizeof generic, "generic/%s", entry.code);
  LowerCase(generic);
  const std::size_t key_length =
      std::strlen(entry.product) + std::strlen(entry.facility) + std::strlen(entry.code);
  char path[kPathBuffer];
  for (const TreeNode *tree = g_trees; tree != nullptr; tree = tree->next) {
    if (tree->path == nullptr) continue;
    if (std::strlen(tree->path) + key_length + 10 > kPathBuffer) {
      std::fputs("Buffer too small\n", stdout);
      return nullptr;
    }
    if (ExistsUnder(tree->path, specific, path) || ExistsUnder(tree->path, generic, path))
      return std::fopen(path, "rb");
  }
  return nullptr;
}

void WriteCatalogueText(void *stream, std::FILE *file) {
  char line[kLineBuffer];
  while (std::fgets(line, sizeof line, file) != nullptr && line[0] != '@')
    Out(stream, line);
  std::fclose(file);
}

// Header, catalogue text and message of one entry.
void WriteEntry(void *stream, const Entry &entry) {
  std::FILE *file = OpenCatalogueFile(entry);
  char header[kPathBuffer + 32];
  if (g_level == 1) {
    FormatText(header, sizeof header, "%s - ", entry.code);
  } else {
    FormatText(header, sizeof header, "\n%s-%s-%c-%s\n", entry.product, entry.facility,
               entry.severity[0], entry.code);
  }
  Out(stream, header);
  if (file != nullptr) {
    WriteCatalogueText(stream, file);
  } else {
    Out(stream, "<No Message Available>");
    Out(stream, "\n");
  }
  if (entry.message[0] != '\0') Out(stream, entry.message);
  Out(stream, "\n");
}

// Trace lines of entry e; only entry 0 carries the "Traceback:" word.
void WriteTraces(void *stream, int e) {
  const Entry &entry = g_stack.entries[e];
  char line[kTraceWidth + 16];
  Out(stream, "\n");
  for (int i = 0; i < entry.trace_count; ++i) {
    const int index = entry.first_trace + i;
    if (index < 0 || index >= kTraceLines) break;
    const bool headed = e == 0 && i == 0;
    FormatText(line, sizeof line, headed ? "Traceback:  %s\n" : "            %s\n",
               g_stack.traces[index]);
    Out(stream, line);
  }
}

void WriteEntryAtLevel(void *stream, int e) {
  if (g_level == 0) return;
  WriteEntry(stream, g_stack.entries[e]);
  if (g_level == 3) WriteTraces(stream, e);
}

// Writes the entries from the nearest barrier (or entry 0) up to `top`.
void WriteDownToBarrier(void *stream) {
  if (g_level == 0) return;
  int lowest = g_stack.top;
  while (lowest > 0 && !g_stack.entries[lowest].barrier)
    --lowest;
  for (int e = lowest; e <= g_stack.top; ++e)
    WriteEntryAtLevel(stream, e);
}

// The common tail of UTL_ERROR_PRINT and UTL_ERROR_MESSAGE: writes the
// entries down to the nearest barrier, then unwinds them if an error is set.
void PrintDownToBarrier(void *stream) {
  WriteDownToBarrier(stream);
  if (TopEntry().is_set) UnwindToBarrier();
}

void AppendMessageTrace(const char *trace) {
  if (TopEntry().is_set && g_stack.fill >= kTraceLines) return;
  AppendTrace(trace);
}

void RemoveTreeNode(TreeNode *node, TreeNode *previous) {
  UTL_DMEM_FREE(node->path, kTag, __LINE__);
  if (TreeNode *successor = node->next; successor != nullptr) {
    // The historical list keeps the node and pulls its successor into it.
    node->path = successor->path;
    node->next = successor->next;
    UTL_DMEM_FREE(successor, kTag, __LINE__);
    return;
  }
  if (previous != nullptr)
    previous->next = nullptr;
  else
    g_trees = nullptr;
  UTL_DMEM_FREE(node, kTag, __LINE__);
}

}  // namespace
}  // namespace qx::error

using qx::error::g_stack;
using qx::error::TopEntry;

extern "C" {

int UTL_ERROR_SET_REPORTING(int level) {
  if (level >= 0 && level <= 3) qx::error::g_level = level;
  return level;
}

UTL_ERROR_OUTPUT_FUNC UTL_ERROR_DEFINE_OUTPUT_MSG(UTL_ERROR_OUTPUT_FUNC output) {
  qx::error::g_output = output != nullptr ? output : qx::error::WriteToStream;
  return output;
}

int UTL_ERROR_ADD_TREE(const char *directory) {
  using qx::error::TreeNode;
  auto *node =
      static_cast<TreeNode *>(UTL_DMEM_CALLOC(1, sizeof(TreeNode), qx::error::kTag, __LINE__));
  if (node == nullptr) {
    UTL_ERROR_ADD_TRACE("UTL_ERROR_ADD_TREE");
    return 0;
  }
  TreeNode **link = &qx::error::g_trees;
  while (*link != nullptr)
    link = &(*link)->next;
  *link = node;
  node->path = UTL_DSTR_SAVE(directory, qx::error::kTag, __LINE__);
  if (node->path == nullptr) {
    UTL_ERROR_ADD_TRACE("UTL_ERROR_ADD_TREE");
    return 0;
  }
  return 1;
}

void UTL_ERROR_REMOVE_TREE(const char *directory) {
  if (directory == nullptr) return;
  qx::error::TreeNode *previous = nullptr;
  for (auto *node = qx::error::g_trees; node != nullptr; previous = node, node = node->next) {
    if (node->path != nullptr && std::strcmp(node->path, directory) == 0) {
      qx::error::RemoveTreeNode(node, previous);
      return;
    }
  }
}

void UTL_ERROR_SHOW(void) {
  if (g_stack.fill == 0) {
    qx::PrintErrorLine("No Data Present on Error Stack\n");
    return;
  }
  for (int e = 0; e <= g_stack.top; ++e)
    qx::error::WriteEntryAtLevel(stderr, e);
}

void UTL_ERROR_PRINT(void *stream) {
  if (g_stack.fill == 0) return;
  qx::error::PrintDownToBarrier(stream);
}

void UTL_ERROR_DUMP(void *stream) {
  if (g_stack.fill == 0) return;
  for (int e = 0; e <= g_stack.top; ++e) {
    qx::error::WriteEntryAtLevel(stream, e);
    qx::error::Entry &entry = g_stack.entries[e];
    // Deliberately the fill count ends at the highest entry's first line,
    // not at 0: the lines below it stay reserved, as they always have.
    g_stack.fill = entry.first_trace;
    qx::error::EmptyEntry(entry);
    entry.barrier = 0;
  }
  g_stack.top = 0;
}

int UTL_ERROR_MESSAGE(void *stream, const char *trace, const char *text) {
  if (text != nullptr) {
    qx::error::Out(stream, text);
    qx::error::Out(stream, "\n");
  }
  if (trace != nullptr) qx::error::AppendMessageTrace(trace);
  if (g_stack.fill == 0) return qx::error::Out(stream, "\n");
  qx::error::PrintDownToBarrier(stream);
  return qx::error::Out(stream, "\n");
}

}  // extern "C"
