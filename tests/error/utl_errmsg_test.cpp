// Error output: reporting levels, the output pieces, catalogue lookup and the
// printing operations' effect on the stack.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

// Output function that keeps every piece it is given.
std::vector<std::string> g_pieces;
int g_stream_seen = 0;
int Record(void *stream, const char *text) {
  g_stream_seen = (stream == &g_pieces);
  g_pieces.emplace_back(text);
  return 7;
}

std::string Joined() {
  std::string all;
  for (const auto &piece : g_pieces)
    all += piece;
  return all;
}

class ErrorOutput : public ::testing::Test {
 protected:
  void SetUp() override { UTL_ERROR_DEFINE_OUTPUT_MSG(Record); }
  void *Stream() { return &g_pieces; }
};

// A catalogue tree in a fresh temporary directory.
class Catalogue {
 public:
  Catalogue() {
    char pattern[] = "/tmp/qx_catalogue_XXXXXX";
    root_ = mkdtemp(pattern);
  }
  ~Catalogue() { std::system(("rm -rf " + root_).c_str()); }
  void Add(const std::string &key, const std::string &text) {
    std::string path = root_;
    std::size_t start = 0, slash;
    while ((slash = key.find('/', start)) != std::string::npos) {
      mkdir((root_ + "/" + key.substr(0, slash)).c_str(), 0755);
      start = slash + 1;
    }
    std::ofstream(root_ + "/" + key) << text;
  }
  const char *Root() const { return root_.c_str(); }

 private:
  std::string root_;
};

void RecordListEmpty() {
  UTL_ERROR_SET("UTL", "LIST", "FATAL", "LIST_EMPTY", "UTL_LIST_CHANGE");
  UTL_ERROR_ADD_TRACE("UTL_LIST_APPEND (0)");
}

TEST_F(ErrorOutput, EachLevelWritesItsPieces) {
  struct Row {
    int level;
    std::vector<std::string> pieces;
  };
  const Row rows[] = {
      {0, {}},
      {1, {"LIST_EMPTY - ", "<No Message Available>", "\n", "\n"}},
      {2, {"\nUTL-LIST-F-LIST_EMPTY\n", "<No Message Available>", "\n", "\n"}},
      {3,
       {"\nUTL-LIST-F-LIST_EMPTY\n", "<No Message Available>", "\n", "\n", "\n",
        "Traceback:  UTL_LIST_CHANGE\n", "            UTL_LIST_APPEND (0)\n"}},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.level);
    EXPECT_EQ(UTL_ERROR_SET_REPORTING(row.level), row.level);
    RecordListEmpty();
    g_pieces.clear();
    UTL_ERROR_PRINT(Stream());
    EXPECT_EQ(g_pieces, row.pieces);
    EXPECT_EQ(UTL_ERROR_IS_SET(), 0);  // printed or not, the errors are gone
    EXPECT_EQ(qxtest::TraceFill(), 0);
  }
}

TEST_F(ErrorOutput, ReportingLevelOutsideRangeIsIgnored) {
  UTL_ERROR_SET_REPORTING(1);
  EXPECT_EQ(UTL_ERROR_SET_REPORTING(4), 4);
  EXPECT_EQ(UTL_ERROR_SET_REPORTING(-1), -1);
  RecordListEmpty();
  g_pieces.clear();
  UTL_ERROR_PRINT(Stream());
  ASSERT_FALSE(g_pieces.empty());
  EXPECT_EQ(g_pieces[0], "LIST_EMPTY - ");
}

TEST_F(ErrorOutput, StackedEntriesIndentUnderTheBottomTraceback) {
  RecordListEmpty();
  UTL_ERROR_SET("QX", "3D_GEOM", "warning", "Zero length vector", "QX_3DVEC_UNIT");
  UTL_ERROR_SET_MESSAGE("while placing atom 7");
  UTL_ERROR_ADD_TRACE("place_atom (2)");
  g_pieces.clear();
  UTL_ERROR_PRINT(Stream());
  EXPECT_TRUE(g_stream_seen);
  EXPECT_EQ(Joined(),
            "\nUTL-LIST-F-LIST_EMPTY\n<No Message Available>\n\n\n"
            "Traceback:  UTL_LIST_CHANGE\n"
            "            UTL_LIST_APPEND (0)\n"
            "\nQX-3D_GEOM-w-Zero length vector\n<No Message Available>\n"
            "while placing atom 7\n\n"
            "            QX_3DVEC_UNIT\n"
            "            place_atom (2)\n");
}

TEST_F(ErrorOutput, PrintStopsAtTheNearestBarrier) {
  UTL_ERROR_SET("UTL", "A", "FATAL", "OUTER", "outer");
  UTL_ERROR_PUSH();
  UTL_ERROR_SET("UTL", "B", "INFO", "INNER", "inner");
  g_pieces.clear();
  UTL_ERROR_PRINT(Stream());
  const std::string text = Joined();
  EXPECT_NE(text.find("UTL-B-I-INNER"), std::string::npos);
  EXPECT_EQ(text.find("OUTER"), std::string::npos);
  UTL_ERROR_POP();
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "OUTER");
}

TEST_F(ErrorOutput, ShowWritesEverythingToStderrAndKeepsTheStack) {
  UTL_ERROR_DEFINE_OUTPUT_MSG(nullptr);  // back to the standard stream writer
  RecordListEmpty();
  UTL_ERROR_PUSH();
  qxtest::CaptureStream err(stderr);
  UTL_ERROR_SHOW();
  EXPECT_EQ(err.Text(), std::string("\nUTL-LIST-F-LIST_EMPTY\n<No Message Available>\n\n\n"
                                    "Traceback:  UTL_LIST_CHANGE\n"
                                    "            UTL_LIST_APPEND (0)\n"
                                    // The empty barrier entry is written too; its header stops
                                    // at the empty severity's terminator.
                                    "\n--<No Message Available>\n\n\n"));
  EXPECT_EQ(qxtest::StackTop(), 1);
  UTL_ERROR_POP();
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "LIST_EMPTY");
}

TEST_F(ErrorOutput, ShowOnAnEmptyStackSaysSo) {
  qxtest::CaptureStream err(stderr);
  UTL_ERROR_SHOW();
  EXPECT_EQ(err.Text(), "No Data Present on Error Stack\n");
  EXPECT_TRUE(g_pieces.empty());
}

TEST_F(ErrorOutput, DumpEmptiesEverythingButKeepsTheHighestLinesReserved) {
  UTL_ERROR_SET("UTL", "A", "FATAL", "ONE", "one");
  UTL_ERROR_PUSH();
  UTL_ERROR_SET("UTL", "B", "FATAL", "TWO", "two");
  UTL_ERROR_ADD_TRACE("two (1)");
  UTL_ERROR_SET_REPORTING(1);
  g_pieces.clear();
  UTL_ERROR_DUMP(Stream());
  EXPECT_EQ(Joined(), "ONE - <No Message Available>\n\nTWO - <No Message Available>\n\n");
  EXPECT_EQ(qxtest::StackTop(), 0);
  EXPECT_EQ(qx::error::g_stack.entries[1].barrier, 0);
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  EXPECT_EQ(qxtest::TraceFill(), 1);  // first line of the highest entry written
  UTL_ERROR_POP();                    // no barrier is left
  EXPECT_EQ(qxtest::StackTop(), 0);
}

TEST_F(ErrorOutput, MessageAddsItsTraceAndEndsWithAnEmptyLine) {
  RecordListEmpty();
  g_pieces.clear();
  EXPECT_EQ(UTL_ERROR_MESSAGE(Stream(), "main (4)", "Could not build the list."), 7);
  EXPECT_EQ(Joined(),
            "Could not build the list.\n"
            "\nUTL-LIST-F-LIST_EMPTY\n<No Message Available>\n\n\n"
            "Traceback:  UTL_LIST_CHANGE\n"
            "            UTL_LIST_APPEND (0)\n"
            "            main (4)\n"
            "\n");
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
}

TEST_F(ErrorOutput, MessageWithoutErrorRecordsAProgramError) {
  UTL_ERROR_SET_REPORTING(1);
  g_pieces.clear();
  UTL_ERROR_MESSAGE(Stream(), "caller", nullptr);
  EXPECT_EQ(Joined(), "PROGRAM_ERROR - <No Message Available>\n\n\n");
}

TEST_F(ErrorOutput, MessageAtLevelZeroWritesOnlyItsText) {
  UTL_ERROR_SET_REPORTING(0);
  RecordListEmpty();
  g_pieces.clear();
  UTL_ERROR_MESSAGE(Stream(), nullptr, "lead");
  EXPECT_EQ(g_pieces, (std::vector<std::string>{"lead", "\n", "\n"}));
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  g_pieces.clear();
  UTL_ERROR_MESSAGE(Stream(), nullptr, nullptr);  // empty pool: one line end
  EXPECT_EQ(g_pieces, std::vector<std::string>{"\n"});
}

TEST_F(ErrorOutput, MessageSkipsItsTraceWhenThePoolIsFull) {
  UTL_ERROR_SET_REPORTING(3);
  UTL_ERROR_SET("UTL", "T", "FATAL", "FULL", "r");
  for (int i = 1; i < 23; ++i)
    UTL_ERROR_ADD_TRACE("t");
  g_pieces.clear();
  UTL_ERROR_MESSAGE(Stream(), "no room", nullptr);
  EXPECT_EQ(Joined().find("no room"), std::string::npos);
}

TEST_F(ErrorOutput, CatalogueTextReplacesTheFallback) {
  Catalogue tree;
  tree.Add("utl/list/list_empty",
           "The list has no node.\nPass the head you were given.\n@DETAIL\nhidden\n");
  ASSERT_EQ(UTL_ERROR_ADD_TREE(tree.Root()), 1);
  UTL_ERROR_SET_REPORTING(2);
  RecordListEmpty();
  UTL_ERROR_SET_MESSAGE("node 3");
  g_pieces.clear();
  UTL_ERROR_PRINT(Stream());
  EXPECT_EQ(g_pieces,
            (std::vector<std::string>{"\nUTL-LIST-F-LIST_EMPTY\n", "The list has no node.\n",
                                      "Pass the head you were given.\n", "node 3", "\n"}));
}

TEST_F(ErrorOutput, CatalogueLookupOrder) {
  struct Row {
    const char *first_tree_key;   // in the first registered tree (or null)
    const char *second_tree_key;  // in the second tree (or null)
    const char *expected;
  };
  constexpr Row kRows[] = {
      {"utl/list/list_empty", "generic/list_empty", "first:utl/list/list_empty\n"},
      {"generic/list_empty", "utl/list/list_empty", "first:generic/list_empty\n"},
      {nullptr, "utl/list/list_empty", "second:utl/list/list_empty\n"},
      {"utl/list/other", nullptr, "<No Message Available>"},
  };
  UTL_ERROR_SET_REPORTING(2);
  for (const Row &row : kRows) {
    Catalogue first, second;
    if (row.first_tree_key)
      first.Add(row.first_tree_key, std::string("first:") + row.first_tree_key + "\n");
    if (row.second_tree_key)
      second.Add(row.second_tree_key, std::string("second:") + row.second_tree_key + "\n");
    if (row.first_tree_key && row.second_tree_key == nullptr) first.Add("generic/unrelated", "x\n");
    UTL_ERROR_ADD_TREE(first.Root());
    UTL_ERROR_ADD_TREE(second.Root());
    RecordListEmpty();
    g_pieces.clear();
    UTL_ERROR_PRINT(Stream());
    ASSERT_GE(g_pieces.size(), 2u);
    EXPECT_EQ(g_pieces[1], row.expected);
    UTL_ERROR_REMOVE_TREE(first.Root());
    UTL_ERROR_REMOVE_TREE(second.Root());
  }
}

TEST_F(ErrorOutput, OverlongTreeSaysBufferTooSmallAndFallsBack) {
  Catalogue good;
  good.Add("generic/list_empty", "never reached\n");
  const std::string long_tree = "/" + std::string(110, 'd');  // 111 + 3 + 4 + 10 + 10 > 128
  UTL_ERROR_ADD_TREE(long_tree.c_str());
  UTL_ERROR_ADD_TREE(good.Root());
  UTL_ERROR_SET_REPORTING(1);
  RecordListEmpty();
  g_pieces.clear();
  qxtest::CaptureStream out(stdout);
  UTL_ERROR_PRINT(Stream());
  EXPECT_EQ(out.Text(), "Buffer too small\n");
  EXPECT_EQ(Joined(), "LIST_EMPTY - <No Message Available>\n\n");
}

TEST_F(ErrorOutput, RemoveTreeKeepsTheOthersInOrder) {
  Catalogue a, b, c;
  a.Add("generic/e", "from a\n");
  b.Add("generic/e", "from b\n");
  c.Add("generic/e", "from c\n");
  UTL_ERROR_SET_REPORTING(2);
  auto first_text = [this] {
    UTL_ERROR_SET("UTL", "T", "FATAL", "E", "r");
    g_pieces.clear();
    UTL_ERROR_PRINT(Stream());
    return g_pieces.size() > 1 ? g_pieces[1] : std::string();
  };
  for (const Catalogue *tree : {&a, &b, &c})
    UTL_ERROR_ADD_TREE(tree->Root());
  UTL_ERROR_REMOVE_TREE("/nowhere");
  EXPECT_EQ(first_text(), "from a\n");
  UTL_ERROR_REMOVE_TREE(a.Root());  // head: the successor moves into it
  EXPECT_EQ(first_text(), "from b\n");
  UTL_ERROR_REMOVE_TREE(c.Root());  // tail
  EXPECT_EQ(first_text(), "from b\n");
  UTL_ERROR_REMOVE_TREE(b.Root());  // the only one
  EXPECT_EQ(first_text(), "<No Message Available>");
  UTL_ERROR_ADD_TREE(c.Root());
  EXPECT_EQ(first_text(), "from c\n");
}

TEST_F(ErrorOutput, AddTreeReportsAllocationFailures) {
  for (unsigned long nth : {1ul, 2ul}) {
    {
      qxtest::FailAllocation fail(nth);
      EXPECT_EQ(UTL_ERROR_ADD_TREE("/tmp"), 0);
    }
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    const auto traces = qxtest::TopError().traces;
    EXPECT_EQ(traces.back(), "UTL_ERROR_ADD_TREE");
    UTL_ERROR_CLEAR();
  }
  EXPECT_EQ(UTL_ERROR_ADD_TREE("/tmp"), 1);
}

TEST_F(ErrorOutput, DefineOutputReturnsItsArgument) {
  EXPECT_EQ(UTL_ERROR_DEFINE_OUTPUT_MSG(Record), &Record);
}

}  // namespace
