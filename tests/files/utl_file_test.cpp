// Tests of the file family: the records of the stream and descriptor
// wrappers, and the file search's candidates, order and failures. Each test
// runs in its own process, so the search tests work in a private directory.
#include "utl_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "qx_test.h"
#include "utl_error.h"
#include "utl_mem.h"

namespace {

// The top record as "identity in routine: message", "" when none is set.
std::string Top() {
  if (!UTL_ERROR_IS_SET()) return "";
  const qxtest::ErrorView top = qxtest::TopError();
  std::string text = qxtest::TopIdentity() + " in";
  for (const std::string &line : top.traces)
    text += " " + line;
  if (qxtest::StackTop() != 0) text += " (and more)";
  return top.message.empty() ? text : text + ": " + top.message;
}

using Stream = std::FILE *;

TEST(FileWrappers, SuccessesRecordNothing) {
  std::FILE *f = std::tmpfile();
  char buf[8] = {};
  EXPECT_EQ(UTL_FILE_FWRITE("0123456789", 1, 10, f), 1);
  EXPECT_EQ(UTL_FILE_FTELL(f), 10);
  EXPECT_EQ(UTL_FILE_FSEEK(f, -4, SEEK_END), 1);
  EXPECT_EQ(UTL_FILE_FREAD(buf, 1, 0, f), 1);
  EXPECT_EQ(UTL_FILE_FREAD(buf, 2, 2, f), 1);
  EXPECT_STREQ(buf, "6789");
  EXPECT_EQ(UTL_FILE_FCLOSE(f), 1);
  char dir[] = "/tmp/qxfileXXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string path = std::string(dir) + "/made";
  const mode_t old_mask = umask(022);
  const int fd = UTL_FILE_OPEN(path.c_str(), O_CREAT | O_WRONLY, 0);  // no mode: 0666 & ~umask
  umask(old_mask);
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  EXPECT_EQ(UTL_FILE_CLOSE(fd), 0);
  f = UTL_FILE_OPEN_FORTRAN(path.c_str());
  EXPECT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_EQ(Top(), "");
  std::remove(path.c_str());
  rmdir(dir);
}

TEST(FileWrappers, FailuresAreOneRecordEach) {
  struct Row {
    const char *record;
    bool (*op)(Stream exe);  // true when the wrapper gave its failure result
  };
  constexpr Row kRows[] = {
      {"WARNING/END_OF_FILE in UTL_FILE_READ",
       [](Stream f) {
         char buf[10];
         return UTL_FILE_FSEEK(f, -3, SEEK_END) && !UTL_FILE_FREAD(buf, 1, 10, f);
       }},
      {"WARNING/FILE_READ_ERROR in UTL_FILE_FREAD",
       [](Stream) {
         std::FILE *f = std::fopen("/dev/null", "w");
         char c;
         const bool failed = !UTL_FILE_FREAD(&c, 1, 1, f);
         return std::fclose(f) == 0 && failed;
       }},
      {"FATAL/FILE_WRITE_ERROR in UTL_FILE_FWRITE",
       [](Stream f) { return !UTL_FILE_FWRITE("a", 1, 1, f); }},
      {"FATAL/FILE_SEEK_ERROR in UTL_FILE_FSEEK",
       [](Stream f) { return !UTL_FILE_FSEEK(f, -5, SEEK_SET); }},
      {"FATAL/FILE_SEEK_ERROR in UTL_FILE_FTELL",
       [](Stream) {
         int fds[2];
         std::FILE *f = pipe(fds) == 0 ? fdopen(fds[0], "r") : nullptr;
         const bool failed = UTL_FILE_FTELL(f) < 0;
         return std::fclose(f) == 0 && close(fds[1]) == 0 && failed;
       }},
      {"FATAL/FILE_CLOSE_ERROR in UTL_FILE_FCLOSE",
       [](Stream) {
         std::FILE *f = std::fopen("/proc/self/exe", "r");
         return close(fileno(f)) == 0 && !UTL_FILE_FCLOSE(f);
       }},
      {"WARNING/FILE_OPEN_ERROR in UTL_FILE_OPEN",
       [](Stream) { return UTL_FILE_OPEN("", O_RDONLY, 0) == -1; }},
      {"WARNING/FILE_OPEN_ERROR in UTL_FILE_OPEN",
       [](Stream) { return UTL_FILE_OPEN(nullptr, O_RDONLY, 0) == -1; }},
      {"WARNING/FILE_OPEN_ERROR in UTL_FILE_OPEN",
       [](Stream) { return UTL_FILE_OPEN("/none/x", O_RDONLY, 0) == -1; }},
      {"FATAL/FILE_CLOSE_ERROR in UTL_FILE_CLOSE",
       [](Stream) { return UTL_FILE_CLOSE(9999) == -1; }},
      {"WARNING/FILE_OPEN_ERROR in UTL_FILE_OPEN_FORTRAN",
       [](Stream) { return UTL_FILE_OPEN_FORTRAN("/none/x") == nullptr; }},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    std::FILE *exe = std::fopen("/proc/self/exe", "r");
    EXPECT_TRUE(row.op(exe)) << row.record;
    EXPECT_EQ(Top(), std::string("UTL/FILES/") + row.record);
    std::fclose(exe);
  }
}

// ---- File search -----------------------------------------------------------

// A private tree: the test's current directory is "work", HOME-like
// directories sit beside it, reachable through variables or literal paths.
class FileSearch : public testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/qxfindXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    root_ = dir;
    for (const char *d : {"/work", "/home", "/tables"})
      mkdir((root_ + d).c_str(), 0755);
    ASSERT_EQ(chdir((root_ + "/work").c_str()), 0);
    setenv("QX_T_HOME", (root_ + "/home").c_str(), 1);
    setenv("QX_T_SLASH", (root_ + "/tables/").c_str(), 1);
    unsetenv("QX_T_UNSET");
    UTL_ERROR_CLEAR();
  }
  void TearDown() override { (void)std::system(("rm -rf " + root_).c_str()); }
  void Touch(const std::string &relative) {
    std::FILE *f = std::fopen((root_ + "/" + relative).c_str(), "w");
    ASSERT_NE(f, nullptr) << relative;
    std::fputs(relative.c_str(), f);
    std::fclose(f);
  }
  // The path found (relative to the tree root when under it), then any record.
  std::string Found(char *path) {
    std::string text = path ? path : "";
    if (path != nullptr) UTL_DMEM_FREE(path, "test", __LINE__);
    return (text.rfind(root_, 0) == 0 ? text.substr(root_.size()) : text) + Top();
  }
  std::string root_;
};

// Each row runs the silent and the recording search through up to three
// directories; a failed search shows as its record's message.
TEST_F(FileSearch, CandidatesInOrderAndFailureMessages) {
  struct Row {
    std::vector<const char *> files;  // relative to the root
    const char *name, *ext, *dirs[3];
    const char *expected;  // the path found, or the record's message
  };
  const Row kRows[] = {
      {{"home/data.tab"}, "data", "tab", {"", "QX_T_HOME"}, "/home/data.tab"},
      {{"home/data.tab"}, "data", ".tab", {"", "QX_T_HOME"}, "/home/data.tab"},  // no "..tab"
      {{"home/data.tab", "work/data.tab"}, "data", "tab", {"", "QX_T_HOME"}, "data.tab"},
      {{"work/data", "work/data.tab"}, "data", "tab", {""}, "data"},  // the name itself first
      {{"home/data", "work/data.tab"}, "data", "tab", {"", "QX_T_HOME"}, "data.tab"},
      {{"work/data.old", "work/data.old.tab"}, "data.old", "tab", {""}, "data.old"},
      {{"work/data.old.tab", "work/data.tab"}, "data.old", "tab", {""}, "data.old.tab"},
      {{"work/data.old.tab"}, "data.old", ".tab", {""}, "data.old.tab"},
      {{"work/data.oldtab"}, "data.old", "tab", {""}, "File: data.old"},
      {{"work/data.tab"}, "data", nullptr, {""}, "File: data"},
      {{"work/data."}, "data", "", {""}, "data."},
      {{"tables/data.tab"}, "data", "tab", {"QX_T_SLASH"}, "/tables/data.tab"},  // no "//"
      {{"home/sub.txt"}, "sub", "txt", {"../home"}, "../home/sub.txt"},          // literal
      {{"home/sub.txt"}, "sub", "txt", {"QX_T_UNSET"}, "File: subtxt"},          // taken literally
      {{"work/local.txt"}, "local.txt", nullptr, {}, "File: local.txt"},  // no directory at all
  };
  for (const Row &row : kRows) {
    (void)std::system(("rm -f " + root_ + "/*/*").c_str());
    for (const char *f : row.files)
      Touch(f);
    UTL_ERROR_CLEAR();
    const std::string expected = row.expected;
    const bool missing = expected.rfind("File: ", 0) == 0;
    const char *const *d = row.dirs;
    EXPECT_EQ(Found(UTL_FIND_FILE(row.name, row.ext, d[0], d[1], d[2], nullptr)),
              missing ? "" : expected);
    EXPECT_EQ(Found(UTL_FILE_FIND(row.name, row.ext, d[0], d[1], d[2], nullptr)),
              missing ? "UTL/FILES/WARNING/NONEXI_FILE in UTL_FILE_FIND: " + expected : expected);
  }
}

TEST_F(FileSearch, LongPathsWorkAndOverlongOnesFailCleanly) {
  std::string deep = root_ + "/home";  // about 700 characters of directories
  for (int i = 0; i < 3; ++i) {
    deep += "/" + std::string(200, static_cast<char>('a' + i));
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
  }
  std::fclose(std::fopen((deep + "/long.dat").c_str(), "w"));
  setenv("QX_T_DEEP", deep.c_str(), 1);
  EXPECT_EQ(Found(UTL_FILE_FIND("long", "dat", "QX_T_DEEP", nullptr)),
            deep.substr(root_.size()) + "/long.dat");

  const std::string huge_name(UTL_FILE_PATH_LIMIT + 100, 'x');
  const std::string huge_dir = "/" + std::string(UTL_FILE_PATH_LIMIT - 2, 'd');
  EXPECT_EQ(UTL_FILE_FIND(huge_name.c_str(), "dat", "", nullptr), nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/FILES/WARNING/NONEXI_FILE");
  EXPECT_EQ(qxtest::TopError().message.size(), 80u);  // cut to the message field
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_FIND_FILE("x", "dat", huge_dir.c_str(), nullptr), nullptr);
  EXPECT_EQ(UTL_FILE_FOPEN(huge_name.c_str(), "w", nullptr, nullptr), nullptr);
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/FILES/WARNING/FILE_OPEN_ERROR");
}

TEST_F(FileSearch, FopenSearchesOnlyForReading) {
  Touch("home/cell.dat");
  struct Row {
    const char *name, *mode, *dir;
    const char *expected;  // the first line read, "" after writing, or the name in the record
  };
  const char *kFailed = "UTL/FILES/WARNING/FILE_OPEN_ERROR in UTL_FILE_FOPEN: File: ";
  constexpr Row kRows[] = {
      {"cell", "r", "QX_T_HOME", "home/cell.dat"},
      {"cell", "r+", "QX_T_HOME", "home/cell.dat"},
      {"${QX_T_HOME}/cell.dat", "rb", "", "home/cell.dat"},  // references expanded first
      {"$QX_T_HOME/cell", "r", "", "home/cell.dat"},
      {"cell.dat", "w", "QX_T_HOME", ""},  // opened as passed, in "work"
      {"missing", "r", "QX_T_HOME", "missing"},
      {"$QX_T_UNSET/cell.dat", "r", "", "$QX_T_UNSET/cell.dat"},
      {"no/dir/x", "w", "", "no/dir/x"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    std::FILE *f = UTL_FILE_FOPEN(row.name, row.mode, "dat", row.dir, nullptr);
    char line[32] = {};
    if (f != nullptr && row.mode[0] == 'r') (void)std::fgets(line, sizeof line, f);
    if (f != nullptr) std::fclose(f);
    EXPECT_EQ(line + Top(), f ? row.expected : kFailed + std::string(row.expected)) << row.name;
  }
  EXPECT_EQ(access((root_ + "/work/cell.dat").c_str(), F_OK), 0);
}

TEST_F(FileSearch, CopyFailureIsTraced) {
  Touch("work/here.txt");
  {
    qxtest::FailAllocation fail(1);
    EXPECT_EQ(UTL_FILE_FIND("here", "txt", "", nullptr), nullptr);
  }
  EXPECT_EQ(qxtest::TopIdentity(), "UTL/MEM/FATAL/NO_MEMORY");
  EXPECT_EQ(qxtest::TopError().traces.back(), "UTL_FILE_FIND (0)");
  UTL_ERROR_CLEAR();
  EXPECT_EQ(Found(UTL_FILE_FIND("here", "txt", "", nullptr)), "here.txt");
}

}  // namespace
