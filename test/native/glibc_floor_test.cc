// The stand-ins of platform/linux/glibc_floor.cc against glibc's own functions on this machine,
// success and failure alike: the portable add-on gets them in place of the originals.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <tuple>

extern "C" {
int __wrap_stat(const char* path, struct stat* buf);
int __wrap_lstat(const char* path, struct stat* buf);
int __wrap_fstat(int fd, struct stat* buf);
void* __wrap_dlopen(const char* file, int mode);
void* __wrap_dlsym(void* handle, const char* name);
int __wrap_dlclose(void* handle);
char* __wrap_dlerror();
int __wrap__dl_find_object(void* pc, dl_find_object* result);
}

namespace {

using Stat = int (*)(const char*, struct stat*);

// Result, errno and the file's identity, which tell a mismatched struct layout apart.
auto Outcome(int result, const struct stat& buf) {
  const bool ok = result == 0;
  return std::make_tuple(result, ok ? 0 : errno, ok ? buf.st_dev : 0, ok ? buf.st_ino : 0,
                         ok ? buf.st_mode : 0, ok ? buf.st_size : 0, ok ? buf.st_mtim.tv_nsec : 0);
}

TEST(GlibcFloor, StatFamilyAnswersAsGlibc) {
  const struct {
    const char* name;
    Stat ours;
    Stat glibc;
    const char* path;
  } rows[] = {
      {"stat_follows_the_link", __wrap_stat, ::stat, "/proc/self/exe"},
      {"lstat_reads_the_link", __wrap_lstat, ::lstat, "/proc/self/exe"},
      {"stat_of_a_directory", __wrap_stat, ::stat, "/proc/self"},
      {"stat_missing_file", __wrap_stat, ::stat, "/proc/self/no-such-file"},
      {"lstat_not_a_directory", __wrap_lstat, ::lstat, "/proc/self/exe/x"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    struct stat ours {
    }, theirs{};
    const auto expected = Outcome(row.glibc(row.path, &theirs), theirs);
    EXPECT_EQ(Outcome(row.ours(row.path, &ours), ours), expected);
  }
  const int fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  for (const int row : {fd, -1}) {
    SCOPED_TRACE(row);
    struct stat ours {
    }, theirs{};
    const auto expected = Outcome(::fstat(row, &theirs), theirs);
    EXPECT_EQ(Outcome(__wrap_fstat(row, &ours), ours), expected);
  }
  ::close(fd);
}

TEST(GlibcFloor, DlFunctionsAnswerAsGlibc) {
  void* libc = __wrap_dlopen("libc.so.6", RTLD_NOW);
  ASSERT_NE(libc, nullptr);
  EXPECT_EQ(libc, ::dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD));
  EXPECT_EQ(__wrap_dlsym(libc, "getpid"), ::dlsym(libc, "getpid"));
  EXPECT_EQ(__wrap_dlsym(libc, "vemora_no_such_symbol"), nullptr);
  EXPECT_NE(std::string(__wrap_dlerror()).find("vemora_no_such_symbol"), std::string::npos);
  EXPECT_EQ(__wrap_dlerror(), nullptr);
  EXPECT_EQ(__wrap_dlopen("libvemora-no-such-library.so", RTLD_NOW), nullptr);
  EXPECT_NE(std::string(__wrap_dlerror()).find("libvemora-no-such-library.so"), std::string::npos);
  EXPECT_EQ(__wrap_dlclose(libc), 0);
  ::dlclose(libc);
}

TEST(GlibcFloor, FindsTheUnwindTableGlibcFinds) {
  const auto heap = std::make_unique<int>(0);
  const struct {
    const char* name;
    void* pc;
  } rows[] = {
      {"this_program", reinterpret_cast<void*>(&Outcome)},
      {"libc", ::dlsym(RTLD_DEFAULT, "getpid")},
      {"libstdcxx", ::dlsym(RTLD_DEFAULT, "__cxa_throw")},
      {"heap_in_no_object", heap.get()},
      {"null", nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    dl_find_object ours{}, theirs{};
    const int expected = ::_dl_find_object(row.pc, &theirs);
    ASSERT_EQ(__wrap__dl_find_object(row.pc, &ours), expected);
    if (expected != 0) continue;
    EXPECT_EQ(ours.dlfo_eh_frame, theirs.dlfo_eh_frame);
    EXPECT_LE(ours.dlfo_map_start, row.pc);
    EXPECT_GT(ours.dlfo_map_end, row.pc);
  }
}

}  // namespace
