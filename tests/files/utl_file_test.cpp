// Tests of the file family: the wrappers' records, and the file search's candidates and failures.
#include "utl_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
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

TEST(Files, WrappersAndSearchSucceedSilentlyFailWithOneRecordEach) {
  std::FILE *f = std::tmpfile();
  char buf[8] = {};
  EXPECT_TRUE(UTL_FILE_FWRITE("0123456789", 1, 10, f) && UTL_FILE_FTELL(f) == 10 &&
              UTL_FILE_FSEEK(f, -4, SEEK_END) && UTL_FILE_FREAD(buf, 1, 0, f) &&
              UTL_FILE_FREAD(buf, 2, 2, f) && UTL_FILE_FCLOSE(f) && buf == std::string("6789"));
  const std::string path = testing::TempDir() + "qxfile_made" + std::to_string(getpid());
  umask(022);
  const int fd = UTL_FILE_OPEN(path.c_str(), O_CREAT | O_WRONLY, 0);  // no mode: 0666 & ~umask
  f = UTL_FILE_OPEN_FORTRAN(path.c_str());
  EXPECT_TRUE(std::filesystem::status(path).permissions() == std::filesystem::perms(0644) && f &&
              !std::fclose(f));
  EXPECT_TRUE(UTL_FILE_CLOSE(fd) == 0 && Top().empty() && std::remove(path.c_str()) == 0);
  // Each operation gets a readable file and a write-only pipe; true on its failure result.
  using F = FILE *;
  constexpr std::tuple<const char *, const char *, bool (*)(F, F)> kRows[] = {
      {"WARNING/END_OF_FILE", "READ",
       [](F f, F) { return UTL_FILE_FSEEK(f, 0, SEEK_END) && !UTL_FILE_FREAD(&f, 1, 1, f); }},
      {"WARNING/FILE_READ_ERROR", "FREAD", [](F, F p) { return !UTL_FILE_FREAD(&p, 1, 1, p); }},
      {"FATAL/FILE_WRITE_ERROR", "FWRITE", [](F f, F) { return !UTL_FILE_FWRITE("a", 1, 1, f); }},
      {"FATAL/FILE_SEEK_ERROR", "FSEEK", [](F f, F) { return !UTL_FILE_FSEEK(f, -5, SEEK_SET); }},
      {"FATAL/FILE_SEEK_ERROR", "FTELL", [](F, F p) { return UTL_FILE_FTELL(p) == -1; }},
      {"FATAL/FILE_CLOSE_ERROR", "FCLOSE",
       [](F f, F) { return fputc(0, f = fopen("/dev/full", "w")) == 0 && !UTL_FILE_FCLOSE(f); }},
      {"WARNING/FILE_OPEN_ERROR", "OPEN",
       [](F, F) { return UTL_FILE_OPEN("/none/x", 0, 0) == -1; }},
      {"FATAL/FILE_CLOSE_ERROR", "CLOSE", [](F, F) { return UTL_FILE_CLOSE(9999) == -1; }},
      {"WARNING/FILE_OPEN_ERROR", "OPEN_FORTRAN",
       [](F, F) { return !UTL_FILE_OPEN_FORTRAN("/none/x"); }},
  };
  std::FILE *pipe = popen("cat >/dev/null", "w");
  for (const auto &[record, routine, op] : kRows) {
    UTL_ERROR_CLEAR();
    std::FILE *exe = std::fopen("/proc/self/exe", "r");
    EXPECT_TRUE(op(exe, pipe)) << routine;
    EXPECT_EQ(Top(), std::string("UTL/FILES/") + record + " in UTL_FILE_" + routine);
    std::fclose(exe);
  }
  pclose(pipe);
  // The search, in a private tree: the current directory is "work", beside "home".
  const std::string root = testing::TempDir() + "qxfind" + std::to_string(getpid());
  for (const char *d : {"/work", "/home"})
    std::filesystem::create_directories(root + d);
  ASSERT_EQ(chdir((root + "/work").c_str()), 0);
  setenv("QX_T_HOME", (root + "/home/").c_str(), 1);  // no "//" after it
  auto touch = [&](const std::string &file) { std::ofstream(root + "/" + file) << file; };
  auto found = [&](char *path) {  // relative to the root when under it, then any record
    const std::string text = path ? path : "";
    if (path != nullptr) UTL_DMEM_FREE(path, "test", __LINE__);
    return (text.rfind(root, 0) == 0 ? text.substr(root.size()) : text) + Top();
  };
  // Files, name, extension, directories; the path found, or the recording search's message.
  const std::tuple<std::vector<const char *>, const char *, const char *,
                   std::array<const char *, 3>, const char *>
      kFinds[] = {
          {{"work/s..t", "home/s.t"}, "s", ".t", {"", "QX_T_HOME"}, "/home/s.t"},  // never "..t"
          {{"home/data.tab", "work/data.tab"}, "data", "tab", {"", "QX_T_HOME"}, "data.tab"},
          {{"work/data", "work/data.tab"}, "data", "tab", {""}, "data"},  // the name itself first
          {{"home/data", "work/data.tab"}, "data", "tab", {"", "QX_T_HOME"}, "data.tab"},
          {{"work/local.txt"}, "local.txt", nullptr, {}, "File: local.txt"},  // no directory at all
          {{"work/data.old.tab", "work/data.tab"}, "data.old", "tab", {""}, "data.old.tab"},
          {{"work/data.old.tab"}, "data.old", ".tab", {""}, "data.old.tab"},
          {{"work/data.oldtab"}, "data.old", "tab", {""}, "File: data.old"},
          {{"work/data.tab"}, "data", nullptr, {""}, "File: data"},
          {{"home/sub.txt"}, "sub", "txt", {"../home"}, "../home/sub.txt"},      // literal
          {{"home/sub.txt"}, "sub", "txt", {"QX_T_NEVER_SET"}, "File: subtxt"},  // taken literally
          {{"work/data."}, "data", "", {""}, "data."},  // found: no record left
      };
  for (const auto &[files, name, ext, d, expected] : kFinds) {
    for (const char *f : files)
      touch(f);
    UTL_ERROR_CLEAR();
    const bool missing = std::string(expected).rfind("File: ", 0) == 0;
    EXPECT_EQ(found(UTL_FIND_FILE(name, ext, d[0], d[1], d[2], nullptr)), missing ? "" : expected);
    EXPECT_EQ(found(UTL_FILE_FIND(name, ext, d[0], d[1], d[2], nullptr)),
              missing ? std::string("UTL/FILES/WARNING/NONEXI_FILE in UTL_FILE_FIND: ") + expected
                      : expected);
    for (const char *f : files)
      std::filesystem::remove(root + "/" + f);
  }
  // A path of several hundred characters is found like any other.
  std::string deep = "/home";
  for (char c = 'a'; c < 'h'; ++c)
    deep += "/" + std::string(90, c);
  std::filesystem::create_directories(root + deep);
  touch(deep.substr(1) + "/cell.dat");
  EXPECT_EQ(found(UTL_FIND_FILE("cell", "dat", (root + deep).c_str(), nullptr)),
            deep + "/cell.dat");
  // Over-long paths fail cleanly, the message cut to its field.
  const std::string kOpenFailed = "UTL/FILES/WARNING/FILE_OPEN_ERROR in UTL_FILE_FOPEN: File: ";
  const std::string huge(UTL_FILE_PATH_LIMIT + 100, 'x'), cut = huge.substr(0, 74);
  std::string near = huge.substr(0, UTL_FILE_PATH_LIMIT - 1);  // fits; with the name it does not
  near[0] = '/';
  EXPECT_TRUE(!UTL_FILE_FIND(huge.c_str(), "dat", "", nullptr) &&
              !UTL_FIND_FILE("x", "dat", near.c_str(), nullptr));
  EXPECT_EQ(Top(), "UTL/FILES/WARNING/NONEXI_FILE in UTL_FILE_FIND: File: " + cut);
  UTL_ERROR_CLEAR();
  EXPECT_EQ(UTL_FILE_FOPEN(huge.c_str(), "w", nullptr, nullptr), nullptr);
  EXPECT_EQ(Top(), kOpenFailed + cut);
  // Opening searches only for reading: the line read, "" after writing, or the name in the record.
  touch("home/cell.dat");
  constexpr std::tuple<const char *, const char *, const char *, const char *> kOpens[] = {
      {"cell", "r+", "QX_T_HOME", "home/cell.dat"},
      {"${QX_T_HOME}/cell.dat", "rb", "", "home/cell.dat"},  // references expanded first
      {"$QX_T_HOME/cell", "r", "", "home/cell.dat"},
      {"$QX_T_NEVER_SET/cell.dat", "r", "", "$QX_T_NEVER_SET/cell.dat"},
      {"cell.dat", "w", "QX_T_HOME", ""},  // opened as passed, in "work"
  };
  for (const auto &[name, mode, dir, expected] : kOpens) {
    UTL_ERROR_CLEAR();
    std::FILE *f = UTL_FILE_FOPEN(name, mode, "dat", dir, nullptr);
    char line[32] = {};
    EXPECT_EQ((f && std::fgets(line, sizeof line, f) ? line : "") + Top(),
              f ? expected : kOpenFailed + expected)
        << name;
    if (f != nullptr) std::fclose(f);
  }
  EXPECT_TRUE(std::filesystem::exists(root + "/work/cell.dat"));
  qxtest::FailAllocation fail(1);  // the copy of the path found
  EXPECT_EQ(found(UTL_FILE_FIND("cell", "dat", "QX_T_HOME", nullptr)),
            "UTL/MEM/FATAL/NO_MEMORY in UTL_MEM_ALLOC UTL_DSTR_SAVE UTL_FILE_FIND (0)");
  std::filesystem::remove_all(root);
}

}  // namespace
