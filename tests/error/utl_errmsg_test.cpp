// Error output: reporting levels, the output pieces, catalogue lookup and the
// printing operations' effect on the stack.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"

namespace {

using Pieces = std::vector<std::string>;
Pieces g_pieces;  // every piece given to the output function
int Record(void *, const char *text) {
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
  // Prints down to the nearest barrier and returns the pieces written.
  Pieces Print() {
    g_pieces.clear();
    UTL_ERROR_PRINT(&g_pieces);
    return g_pieces;
  }
};

// A catalogue tree in a fresh temporary directory.
struct Catalogue {
  std::string root;
  Catalogue() {
    char pattern[] = "/tmp/qx_catalogue_XXXXXX";
    root = mkdtemp(pattern);
  }
  ~Catalogue() { std::system(("rm -rf " + root).c_str()); }
  void Add(const std::string &key, const std::string &text) {
    for (std::size_t slash = key.find('/'); slash != std::string::npos;
         slash = key.find('/', slash + 1))
      mkdir((root + "/" + key.substr(0, slash)).c_str(), 0755);
    std::ofstream(root + "/" + key) << text;
  }
};

void RecordListEmpty() {
  UTL_ERROR_SET("UTL", "LIST", "FATAL", "LIST_EMPTY", "UTL_LIST_CHANGE");
  UTL_ERROR_ADD_TRACE("UTL_LIST_APPEND (0)");
}

const std::string kLevel3 =
    "\nUTL-LIST-F-LIST_EMPTY\n<No Message Available>\n\n\n"
    "Traceback:  UTL_LIST_CHANGE\n"
    "            UTL_LIST_APPEND (0)\n";

TEST_F(ErrorOutput, EachLevelWritesItsPiecesAndPrintUnwinds) {
  const std::pair<int, Pieces> rows[] = {
      {0, {}},
      {1, {"LIST_EMPTY - ", "<No Message Available>", "\n", "\n"}},
      {2, {"\nUTL-LIST-F-LIST_EMPTY\n", "<No Message Available>", "\n", "\n"}},
      {3,
       {"\nUTL-LIST-F-LIST_EMPTY\n", "<No Message Available>", "\n", "\n", "\n",
        "Traceback:  UTL_LIST_CHANGE\n", "            UTL_LIST_APPEND (0)\n"}},
  };
  for (const auto &[level, pieces] : rows) {
    EXPECT_EQ(UTL_ERROR_SET_REPORTING(level), level);
    RecordListEmpty();
    EXPECT_EQ(Print(), pieces) << level;
    EXPECT_EQ(UTL_ERROR_IS_SET() + qxtest::TraceFill(), 0);
  }
  EXPECT_EQ(UTL_ERROR_SET_REPORTING(4), 4);  // out of range: level 3 stays
  EXPECT_EQ(UTL_ERROR_SET_REPORTING(-1), -1);
  RecordListEmpty();
  Print();
  EXPECT_EQ(Joined(), kLevel3);
}

TEST_F(ErrorOutput, HigherEntriesIndentUnderTheBottomTracebackAndStopAtABarrier) {
  RecordListEmpty();
  UTL_ERROR_SET("QX", "3D_GEOM", "warning", "Zero length vector", "QX_3DVEC_UNIT");
  UTL_ERROR_SET_MESSAGE("while placing atom 7");
  UTL_ERROR_ADD_TRACE("place_atom (2)");
  Print();
  EXPECT_EQ(Joined(), kLevel3 +
                          "\nQX-3D_GEOM-w-Zero length vector\n<No Message Available>\n"
                          "while placing atom 7\n\n"
                          "            QX_3DVEC_UNIT\n            place_atom (2)\n");
  UTL_ERROR_SET("UTL", "A", "FATAL", "OUTER", "outer");
  UTL_ERROR_PUSH();
  UTL_ERROR_SET("UTL", "B", "INFO", "INNER", "inner");
  Print();
  EXPECT_EQ(Joined(), "\nUTL-B-I-INNER\n<No Message Available>\n\n\n            inner\n");
  UTL_ERROR_POP();
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "OUTER");
}

TEST_F(ErrorOutput, ShowWritesTheWholeStackToStderrAndKeepsIt) {
  UTL_ERROR_DEFINE_OUTPUT_MSG(nullptr);  // back to the standard stream writer
  {
    qxtest::CaptureStream err(stderr);
    UTL_ERROR_SHOW();
    EXPECT_EQ(err.Text(), "No Data Present on Error Stack\n");
  }
  RecordListEmpty();
  UTL_ERROR_PUSH();
  qxtest::CaptureStream err(stderr);
  UTL_ERROR_SHOW();
  // The empty barrier entry is written too; its header stops at the empty
  // severity's terminator.
  EXPECT_EQ(err.Text(), kLevel3 + "\n--<No Message Available>\n\n\n");
  UTL_ERROR_POP();
  EXPECT_STREQ(UTL_ERROR_EXCEPTION_CODE(), "LIST_EMPTY");
}

TEST_F(ErrorOutput, DumpEmptiesEverythingButKeepsTheHighestLinesReserved) {
  UTL_ERROR_SET("UTL", "A", "FATAL", "ONE", "one");
  UTL_ERROR_PUSH();
  UTL_ERROR_SET("UTL", "B", "FATAL", "TWO", "two");
  UTL_ERROR_ADD_TRACE("two (1)");
  UTL_ERROR_SET_REPORTING(1);
  g_pieces.clear();
  UTL_ERROR_DUMP(&g_pieces);
  EXPECT_EQ(Joined(), "ONE - <No Message Available>\n\nTWO - <No Message Available>\n\n");
  EXPECT_EQ(qxtest::StackTop() + UTL_ERROR_IS_SET(), 0);
  EXPECT_EQ(qx::error::g_stack.entries[1].barrier, 0);
  EXPECT_EQ(qxtest::TraceFill(), 1);  // first line of the highest entry written
}

TEST_F(ErrorOutput, MessageWritesTextTraceAndAClosingLine) {
  RecordListEmpty();
  g_pieces.clear();
  EXPECT_EQ(UTL_ERROR_MESSAGE(&g_pieces, "main (4)", "Could not build the list."), 7);
  EXPECT_EQ(Joined(), "Could not build the list.\n" + kLevel3 + "            main (4)\n\n");
  EXPECT_EQ(UTL_ERROR_IS_SET(), 0);
  // Without an error the trace becomes a program error.
  UTL_ERROR_SET_REPORTING(1);
  g_pieces.clear();
  UTL_ERROR_MESSAGE(&g_pieces, "caller", nullptr);
  EXPECT_EQ(Joined(), "PROGRAM_ERROR - <No Message Available>\n\n\n");
  // Level 0 writes only the text; an empty pool only the closing line.
  UTL_ERROR_SET_REPORTING(0);
  RecordListEmpty();
  g_pieces.clear();
  UTL_ERROR_MESSAGE(&g_pieces, nullptr, "lead");
  EXPECT_EQ(g_pieces, (Pieces{"lead", "\n", "\n"}));
  g_pieces.clear();
  UTL_ERROR_MESSAGE(&g_pieces, nullptr, nullptr);
  EXPECT_EQ(g_pieces, Pieces{"\n"});
}

TEST_F(ErrorOutput, MessageSkipsItsTraceWhenThePoolIsFull) {
  UTL_ERROR_SET("UTL", "T", "FATAL", "FULL", "r");
  for (int i = 1; i < 23; ++i)
    UTL_ERROR_ADD_TRACE("t");
  g_pieces.clear();
  UTL_ERROR_MESSAGE(&g_pieces, "no room", nullptr);
  EXPECT_EQ(Joined().find("no room"), std::string::npos);
}

TEST_F(ErrorOutput, CatalogueTextStopsAtTheFirstSectionLine) {
  Catalogue tree;
  tree.Add("utl/list/list_empty", "The list has no node.\nPass the head.\n@DETAIL\nhidden\n");
  ASSERT_EQ(UTL_ERROR_ADD_TREE(tree.root.c_str()), 1);
  UTL_ERROR_SET_REPORTING(2);
  RecordListEmpty();
  UTL_ERROR_SET_MESSAGE("node 3");
  EXPECT_EQ(Print(), (Pieces{"\nUTL-LIST-F-LIST_EMPTY\n", "The list has no node.\n",
                             "Pass the head.\n", "node 3", "\n"}));
}

TEST_F(ErrorOutput, CatalogueLookupOrder) {
  // Keys in the first and second registered trees, and the text expected.
  const std::tuple<const char *, const char *, const char *> rows[] = {
      {"utl/list/list_empty", "generic/list_empty", "1:utl/list/list_empty\n"},
      {"generic/list_empty", "utl/list/list_empty", "1:generic/list_empty\n"},
      {"", "utl/list/list_empty", "2:utl/list/list_empty\n"},
      {"utl/list/other", "", "<No Message Available>"},
  };
  UTL_ERROR_SET_REPORTING(2);
  for (const auto &[first_key, second_key, expected] : rows) {
    Catalogue first, second;
    if (*first_key) first.Add(first_key, std::string("1:") + first_key + "\n");
    if (*second_key) second.Add(second_key, std::string("2:") + second_key + "\n");
    UTL_ERROR_ADD_TREE(first.root.c_str());
    UTL_ERROR_ADD_TREE(second.root.c_str());
    RecordListEmpty();
    EXPECT_EQ(Print().at(1), expected);
    UTL_ERROR_REMOVE_TREE(first.root.c_str());
    UTL_ERROR_REMOVE_TREE(second.root.c_str());
  }
}

TEST_F(ErrorOutput, OverlongTreeSaysBufferTooSmallAndFallsBack) {
  Catalogue good;
  good.Add("generic/list_empty", "never reached\n");
  const std::string long_tree = "/" + std::string(110, 'd');  // 111 + 3 + 4 + 10 + 10 > 128
  UTL_ERROR_ADD_TREE(long_tree.c_str());
  UTL_ERROR_ADD_TREE(good.root.c_str());
  UTL_ERROR_SET_REPORTING(1);
  RecordListEmpty();
  qxtest::CaptureStream out(stdout);
  Print();
  EXPECT_EQ(out.Text(), "Buffer too small\n");
  EXPECT_EQ(Joined(), "LIST_EMPTY - <No Message Available>\n\n");
}

TEST_F(ErrorOutput, RemoveTreeKeepsTheOthersInOrder) {
  Catalogue trees[3];
  for (int i = 0; i < 3; ++i)
    trees[i].Add("generic/e", "from " + std::to_string(i) + "\n");
  UTL_ERROR_SET_REPORTING(2);
  auto text = [this] {
    UTL_ERROR_SET("UTL", "T", "FATAL", "E", "r");
    return Print().at(1);
  };
  for (const auto &tree : trees)
    UTL_ERROR_ADD_TREE(tree.root.c_str());
  UTL_ERROR_REMOVE_TREE("/nowhere");
  EXPECT_EQ(text(), "from 0\n");
  UTL_ERROR_REMOVE_TREE(trees[0].root.c_str());  // head: the successor moves into it
  EXPECT_EQ(text(), "from 1\n");
  UTL_ERROR_REMOVE_TREE(trees[2].root.c_str());  // tail
  UTL_ERROR_REMOVE_TREE(trees[1].root.c_str());  // the only one
  EXPECT_EQ(text(), "<No Message Available>");
  UTL_ERROR_ADD_TREE(trees[2].root.c_str());
  EXPECT_EQ(text(), "from 2\n");
}

TEST_F(ErrorOutput, AddTreeReportsAllocationFailures) {
  for (unsigned long nth : {1ul, 2ul}) {
    {
      qxtest::FailAllocation fail(nth);
      EXPECT_EQ(UTL_ERROR_ADD_TREE("/tmp"), 0);
    }
    EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
    EXPECT_EQ(qxtest::TopError().traces.back(), "UTL_ERROR_ADD_TREE");
    UTL_ERROR_CLEAR();
  }
  EXPECT_EQ(UTL_ERROR_ADD_TREE("/tmp"), 1);
  EXPECT_EQ(UTL_ERROR_DEFINE_OUTPUT_MSG(Record), &Record);
}

}  // namespace
