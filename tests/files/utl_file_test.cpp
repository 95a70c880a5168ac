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

struct Record {
  std::string identity, routine, message;
};

Record Top() {
  const qxtest::ErrorView top = qxtest::TopError();
  return {qxtest::TopIdentity(), top.traces.empty() ? "" : top.traces[0], top.message};
}

void ExpectOneRecord(const char *identity, const char *routine) {
  EXPECT_EQ(qxtest::TopIdentity(), identity);
  EXPECT_EQ(qxtest::StackTop(), 0);
  EXPECT_EQ(qxtest::TopError().traces, std::vector<std::string>{routine});
}

TEST(FileStreams, ReadAndWriteRecords) {
  std::FILE *f = std::tmpfile();
  const char text[] = "0123456789";
  ASSERT_EQ(UTL_FILE_FWRITE(text, 1, 10, f), 1);
  ASSERT_EQ(UTL_FILE_FTELL(f), 10);
  ASSERT_EQ(UTL_FILE_FSEEK(f, 7, SEEK_SET), 1);
  char buf[10] = {};
  EXPECT_EQ(UTL_FILE_FREAD(buf, 1, 0, f), 1);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
  EXPECT_EQ(UTL_FILE_FREAD(buf, 1, 10, f), 0);  // only 3 remain
  ExpectOneRecord("UTL/FILES/WARNING/END_OF_FILE", "UTL_FILE_READ");
  EXPECT_EQ(std::string(buf, 3), "789");
  UTL_ERROR_CLEAR();
  ASSERT_EQ(UTL_FILE_FSEEK(f, -4, SEEK_END), 1);
  EXPECT_EQ(UTL_FILE_FREAD(buf, 2, 2, f), 1);
  EXPECT_EQ(std::string(buf, 4), "6789");
  EXPECT_EQ(UTL_FILE_FCLOSE(f), 1);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST(FileStreams, FailuresAreOneRecordEach) {
  struct Row {
    const char *name;
    int (*op)(std::FILE *f);
    int failure;
    const char *identity, *routine;
  };
  // Streams open for reading only: writes fail; reads of a write-only one fail.
  constexpr Row kRows[] = {
      {"write to read-only", [](std::FILE *f) { return UTL_FILE_FWRITE("abc", 1, 3, f); }, 0,
       "UTL/FILES/FATAL/FILE_WRITE_ERROR", "UTL_FILE_FWRITE"},
      {"seek before start", [](std::FILE *f) { return UTL_FILE_FSEEK(f, -5, SEEK_SET); }, 0,
       "UTL/FILES/FATAL/FILE_SEEK_ERROR", "UTL_FILE_FSEEK"},
      {"close twice over",
       [](std::FILE *f) {
         close(fileno(f));
         return UTL_FILE_FCLOSE(f);
       },
       0, "UTL/FILES/FATAL/FILE_CLOSE_ERROR", "UTL_FILE_FCLOSE"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    std::FILE *f = std::fopen("/proc/self/exe", "r");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(row.op(f), row.failure) << row.name;
    EXPECT_EQ(Top().identity, row.identity) << row.name;
    EXPECT_EQ(Top().routine, row.routine) << row.name;
    EXPECT_EQ(qxtest::StackTop(), 0) << row.name;
    if (row.routine != std::string("UTL_FILE_FCLOSE")) std::fclose(f);
  }
  UTL_ERROR_CLEAR();
  std::FILE *w = std::fopen("/dev/null", "w");
  char c;
  EXPECT_EQ(UTL_FILE_FREAD(&c, 1, 1, w), 0);
  ExpectOneRecord("UTL/FILES/WARNING/FILE_READ_ERROR", "UTL_FILE_FREAD");
  std::fclose(w);
  UTL_ERROR_CLEAR();
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::FILE *p = fdopen(fds[0], "r");
  EXPECT_LT(UTL_FILE_FTELL(p), 0);
  ExpectOneRecord("UTL/FILES/FATAL/FILE_SEEK_ERROR", "UTL_FILE_FTELL");
  std::fclose(p);
  close(fds[1]);
  UTL_ERROR_CLEAR();
}

TEST(FileDescriptors, OpenCloseAndReadPermission) {
  char dir[] = "/tmp/qxfileXXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string path = std::string(dir) + "/made";
  const mode_t old_mask = umask(022);
  const int fd = UTL_FILE_OPEN(path.c_str(), O_CREAT | O_WRONLY, 0);
  umask(old_mask);
  ASSERT_GE(fd, 0);
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  EXPECT_EQ(UTL_FILE_CLOSE(fd), 0);
  std::FILE *f = UTL_FILE_OPEN_FORTRAN(path.c_str());
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << qxtest::TopIdentity() << Top().routine;

  struct Row {
    const char *name;
    bool (*op)(const char *dir);
    const char *identity, *routine;
  };
  constexpr Row kRows[] = {
      {"empty path", [](const char *) { return UTL_FILE_OPEN("", O_RDONLY, 0) == -1; },
       "UTL/FILES/WARNING/FILE_OPEN_ERROR", "UTL_FILE_OPEN"},
      {"null path", [](const char *) { return UTL_FILE_OPEN(nullptr, O_RDONLY, 0) == -1; },
       "UTL/FILES/WARNING/FILE_OPEN_ERROR", "UTL_FILE_OPEN"},
      {"missing file",
       [](const char *d) {
         return UTL_FILE_OPEN((std::string(d) + "/no").c_str(), O_RDONLY, 0) == -1;
       },
       "UTL/FILES/WARNING/FILE_OPEN_ERROR", "UTL_FILE_OPEN"},
      {"bad descriptor", [](const char *) { return UTL_FILE_CLOSE(9999) == -1; },
       "UTL/FILES/FATAL/FILE_CLOSE_ERROR", "UTL_FILE_CLOSE"},
      {"unreadable",
       [](const char *d) {
         return UTL_FILE_OPEN_FORTRAN((std::string(d) + "/no").c_str()) == nullptr;
       },
       "UTL/FILES/WARNING/FILE_OPEN_ERROR", "UTL_FILE_OPEN_FORTRAN"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    EXPECT_TRUE(row.op(dir)) << row.name;
    EXPECT_EQ(Top().identity, row.identity) << row.name;
    EXPECT_EQ(Top().routine, row.routine) << row.name;
  }
  std::remove(path.c_str());
  rmdir(dir);
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
  void TearDown() override {
    std::string command = "rm -rf " + root_;
    (void)std::system(command.c_str());
  }
  void Touch(const std::string &relative) {
    std::FILE *f = std::fopen((root_ + "/" + relative).c_str(), "w");
    ASSERT_NE(f, nullptr) << relative;
    std::fputs(relative.c_str(), f);
    std::fclose(f);
  }
  // The result relative to the tree root, "" for a relative result, or "-".
  std::string Found(char *path) {
    if (path == nullptr) return "-";
    std::string text(path);
    UTL_DMEM_FREE(path, "test", __LINE__);
    return text.rfind(root_, 0) == 0 ? text.substr(root_.size()) : text;
  }
  std::string root_;
};

TEST_F(FileSearch, CandidatesInOrder) {
  struct Row {
    std::vector<const char *> files;  // relative to the root
    const char *name, *ext;
    const char *expected;  // as Found() gives it
  };
  const Row kRows[] = {
      {{"home/data.tab"}, "data", "tab", "/home/data.tab"},
      {{"home/data.tab"}, "data", ".tab", "/home/data.tab"},
      {{"home/data.tab", "work/data.tab"}, "data", "tab", "data.tab"},  // current directory first
      {{"work/data", "work/data.tab"}, "data", "tab", "data"},          // the name itself first
      {{"home/data", "work/data.tab"}, "data", "tab", "data.tab"},  // directory before candidate
      {{"work/data.old", "work/data.old.tab"}, "data.old", "tab", "data.old"},
      {{"work/data.old.tab", "work/data.tab"}, "data.old", "tab", "data.old.tab"},
      {{"work/data.old.tab"}, "data.old", ".tab", "data.old.tab"},  // no "..tab"
      {{"work/data.oldtab"}, "data.old", "tab", "-"},
      {{"work/data.tab"}, "data", nullptr, "-"},
      {{"work/data."}, "data", "", "data."},
      {{"tables/data.tab"}, "data", "tab", "/tables/data.tab"},  // value ends in "/": no "//"
  };
  for (const Row &row : kRows) {
    (void)std::system(
        ("rm -f " + root_ + "/work/* " + root_ + "/home/* " + root_ + "/tables/*").c_str());
    for (const char *f : row.files)
      Touch(f);
    UTL_ERROR_CLEAR();
    EXPECT_EQ(Found(UTL_FIND_FILE(row.name, row.ext, "", "QX_T_HOME", "QX_T_SLASH", nullptr)),
              row.expected)
        << row.name << " " << (row.ext ? row.ext : "(null)") << " " << row.files[0];
    EXPECT_FALSE(UTL_ERROR_IS_SET());
  }
}

TEST_F(FileSearch, DirectorySpecifications) {
  Touch("home/sub.txt");
  Touch("work/local.txt");
  const std::string home = root_ + "/home";
  const std::string home_slash = home + "/";
  struct Row {
    const char *spec;
    const char *name;
    std::string expected;
  };
  const Row kRows[] = {
      {home.c_str(), "sub", "/home/sub.txt"},        // a literal directory
      {home_slash.c_str(), "sub", "/home/sub.txt"},  // its "/" is not doubled
      {"QX_T_UNSET", "sub", "-"},                    // unset: taken literally
      {"", "local", "local.txt"},
      {"..", "home/sub", "../home/sub.txt"},
  };
  for (const Row &row : kRows)
    EXPECT_EQ(Found(UTL_FIND_FILE(row.name, "txt", row.spec, nullptr)), row.expected) << row.spec;
  // No specification at all: nothing is tried, not even the current directory.
  EXPECT_EQ(Found(UTL_FIND_FILE("local.txt", nullptr, nullptr)), "-");
}

TEST_F(FileSearch, FailureMessages) {
  struct Row {
    const char *name, *ext, *message;
  };
  constexpr Row kRows[] = {
      {"data", "tab", "File: datatab"},
      {"data.old", "tab", "File: data.old"},
      {"data", nullptr, "File: data"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_FILE_FIND(row.name, row.ext, "", "QX_T_HOME", nullptr), nullptr);
    ExpectOneRecord("UTL/FILES/WARNING/NONEXI_FILE", "UTL_FILE_FIND");
    EXPECT_EQ(Top().message, row.message);
  }
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_FIND_FILE("data", "tab", "", nullptr), nullptr);
  EXPECT_FALSE(UTL_ERROR_IS_SET());
}

TEST_F(FileSearch, LongPathsWorkAndOverlongOnesFailCleanly) {
  // About 700 characters of directories below the root.
  std::string deep = root_ + "/home";
  for (int i = 0; i < 3; ++i) {
    deep += "/" + std::string(200, static_cast<char>('a' + i));
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
  }
  std::FILE *f = std::fopen((deep + "/long.dat").c_str(), "w");
  std::fclose(f);
  setenv("QX_T_DEEP", deep.c_str(), 1);
  char *found = UTL_FILE_FIND("long", "dat", "QX_T_DEEP", nullptr);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(std::string(found), deep + "/long.dat");
  UTL_DMEM_FREE(found, "test", __LINE__);

  const std::string huge_name(UTL_FILE_PATH_LIMIT + 100, 'x');
  const std::string huge_dir = "/" + std::string(UTL_FILE_PATH_LIMIT - 2, 'd');
  EXPECT_EQ(UTL_FILE_FIND(huge_name.c_str(), "dat", "", nullptr), nullptr);
  EXPECT_EQ(Top().identity, "UTL/FILES/WARNING/NONEXI_FILE");
  EXPECT_EQ(Top().message.size(), 80u);  // cut to the message field
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_FIND_FILE("x", "dat", huge_dir.c_str(), nullptr), nullptr);
  EXPECT_EQ(UTL_FILE_FOPEN(huge_name.c_str(), "w", nullptr, nullptr), nullptr);
  EXPECT_EQ(Top().identity, "UTL/FILES/WARNING/FILE_OPEN_ERROR");
}

TEST_F(FileSearch, FopenSearchesOnlyForReading) {
  Touch("home/cell.dat");
  std::FILE *f = UTL_FILE_FOPEN("cell", "r", "dat", "", "QX_T_HOME", nullptr);
  ASSERT_NE(f, nullptr);
  char buf[32] = {};
  EXPECT_EQ(std::fgets(buf, sizeof buf, f), buf);
  EXPECT_STREQ(buf, "home/cell.dat");
  std::fclose(f);

  // A write mode opens the name as passed, whatever the directories say.
  f = UTL_FILE_FOPEN("cell.dat", "w", "dat", "QX_T_HOME", nullptr);
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_EQ(access((root_ + "/work/cell.dat").c_str(), F_OK), 0);

  // "$" names expand environment references first.
  f = UTL_FILE_FOPEN("${QX_T_HOME}/cell.dat", "rb", nullptr, "", nullptr);
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  f = UTL_FILE_FOPEN("$QX_T_HOME/cell", "r", "dat", "", nullptr);
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_FALSE(UTL_ERROR_IS_SET()) << qxtest::TopIdentity() << Top().routine;

  struct Row {
    const char *name, *mode;
  };
  constexpr Row kRows[] = {
      {"missing", "r"},
      {"$QX_T_UNSET/cell.dat", "r"},
      {"cell", "r+"},
      {"no/dir/x", "w"},
  };
  for (const Row &row : kRows) {
    UTL_ERROR_CLEAR();
    EXPECT_EQ(UTL_FILE_FOPEN(row.name, row.mode, nullptr, "", nullptr), nullptr) << row.name;
    ExpectOneRecord("UTL/FILES/WARNING/FILE_OPEN_ERROR", "UTL_FILE_FOPEN");
    EXPECT_EQ(Top().message, std::string("File: ") + row.name);
  }
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
