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

// Result, errno and the file's identity, which would differ with a mismatched struct layout.
template <typename Arg>
auto Outcome(int (*call)(Arg, struct stat*), Arg arg) {
  struct stat buf {};
  const int result = call(arg, &buf);
  return std::make_tuple(result, result == 0 ? 0 : errno, buf.st_ino, buf.st_mode, buf.st_size);
}

TEST(GlibcFloor, StatFamilyAnswersAsGlibc) {
  for (const char* path : {"/proc/self/exe", "/proc/self/exe/x"}) {
    EXPECT_EQ(Outcome(__wrap_stat, path), Outcome(::stat, path)) << path;  // follows the link
    EXPECT_EQ(Outcome(__wrap_lstat, path), Outcome(::lstat, path)) << path;
  }
  const int fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(Outcome(__wrap_fstat, fd), Outcome(::fstat, fd));
  ::close(fd);
}

TEST(GlibcFloor, DlFunctionsAnswerAsGlibc) {
  void* libc = __wrap_dlopen("libc.so.6", RTLD_NOW);
  ASSERT_EQ(libc, ::dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD));
  EXPECT_EQ(__wrap_dlsym(libc, "getpid"), ::dlsym(libc, "getpid"));
  EXPECT_EQ(__wrap_dlsym(libc, "vemora_no_such_symbol"), nullptr);
  EXPECT_NE(std::string(__wrap_dlerror()).find("vemora_no_such_symbol"), std::string::npos);
  EXPECT_EQ(__wrap_dlclose(libc), 0);
  ::dlclose(libc);
}

TEST(GlibcFloor, FindsTheUnwindTableGlibcFinds) {
  const auto heap = std::make_unique<int>(0);
  // In this program, in libc, and on the heap, in no object.
  for (void* pc : {reinterpret_cast<void*>(&Outcome<int>), ::dlsym(RTLD_DEFAULT, "getpid"),
                   static_cast<void*>(heap.get())}) {
    dl_find_object ours{}, theirs{};
    const int expected = ::_dl_find_object(pc, &theirs);
    ASSERT_EQ(__wrap__dl_find_object(pc, &ours), expected) << pc;
    if (expected == 0) {
      EXPECT_EQ(ours.dlfo_eh_frame, theirs.dlfo_eh_frame) << pc;
      EXPECT_TRUE(ours.dlfo_map_start <= pc && pc < ours.dlfo_map_end) << pc;
    }
  }
}

}  // namespace
