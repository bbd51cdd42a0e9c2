// glibc's oldest symbol versions (.symver), dl_iterate_phdr(3) and getentropy(3), standing in
// for the glibc interfaces newer than 2.28 that the prebuilt Linux add-on would otherwise need.
//
// The prebuilt add-on is built against a newer glibc and must load on 2.28 (RHEL 8, Debian 10,
// Ubuntu 20.04: the glibc official Node binaries need). Its link sends every reference to a
// name in VEMORA_GLIBC_FLOOR_WRAPS (CMakeLists.txt), from its own code and from the static
// libstdc++ and libgcc alike, to __wrap_<name> here (ld's --wrap). Functions that only gained a
// new version (pthread_* and dl* moved into libc in 2.34) call their first version, which glibc
// keeps exporting for old binaries; interfaces that are new (stat as a symbol, 2.33; arc4random,
// 2.36; _dl_find_object, 2.35; __libc_single_threaded, 2.32) get what binaries built on glibc
// 2.28 used instead. The glibc floor test reads the binary's version needs and fails above 2.28.
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#if defined(__x86_64__)
#define VEMORA_GLIBC_FIRST "GLIBC_2.2.5"
// _STAT_VER_LINUX of glibc's x86 <bits/stat.h> before 2.33.
#define VEMORA_STAT_VER 1
#elif defined(__aarch64__)
#define VEMORA_GLIBC_FIRST "GLIBC_2.17"
// _STAT_VER_KERNEL of glibc's generic <bits/stat.h> before 2.33.
#define VEMORA_STAT_VER 0
#else
#error "no glibc floor for this architecture"
#endif

// __wrap_<name> calls <name> at the architecture's first glibc version.
#define VEMORA_AT_FIRST_VERSION(ret, name, params, ...)                     \
  ret vemora_first_##name params;                                           \
  __asm__(".symver vemora_first_" #name ", " #name "@" VEMORA_GLIBC_FIRST); \
  ret __wrap_##name params { return vemora_first_##name(__VA_ARGS__); }

namespace {

struct ObjectSearch {
  std::uintptr_t pc;
  dl_find_object* found;
};

int FindObjectOf(dl_phdr_info* info, size_t, void* data) {
  auto* search = static_cast<ObjectSearch*>(data);
  std::uintptr_t start = UINTPTR_MAX, end = 0;
  bool holds_pc = false;
  void* eh_frame = nullptr;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    const std::uintptr_t from = info->dlpi_addr + segment.p_vaddr;
    if (segment.p_type == PT_GNU_EH_FRAME) eh_frame = reinterpret_cast<void*>(from);
    if (segment.p_type != PT_LOAD) continue;
    const std::uintptr_t to = from + segment.p_memsz;
    if (from < start) start = from;
    if (to > end) end = to;
    if (search->pc >= from && search->pc < to) holds_pc = true;
  }
  if (!holds_pc) return 0;
  *search->found = dl_find_object{};
  search->found->dlfo_map_start = reinterpret_cast<void*>(start);
  search->found->dlfo_map_end = reinterpret_cast<void*>(end);
  search->found->dlfo_eh_frame = eh_frame;
  return 1;
}

}  // namespace

extern "C" {

VEMORA_AT_FIRST_VERSION(int, pthread_once, (pthread_once_t * once, void (*init)()), once, init)
// libstdc++ takes its address to learn whether threads are in use; they always are in Node.
VEMORA_AT_FIRST_VERSION(int, __pthread_key_create, (pthread_key_t * key, void (*destructor)(void*)),
                        key, destructor)
VEMORA_AT_FIRST_VERSION(void*, dlopen, (const char* file, int mode), file, mode)
VEMORA_AT_FIRST_VERSION(void*, dlsym, (void* handle, const char* name), handle, name)
VEMORA_AT_FIRST_VERSION(int, dlclose, (void* handle), handle)
VEMORA_AT_FIRST_VERSION(char*, dlerror, (void), )

// Before 2.33 <sys/stat.h> made these inline calls of __xstat and its kin, which glibc still
// exports; on 64-bit Linux struct stat64 is struct stat.
#define VEMORA_STAT_AS_BEFORE_2_33(name, target, Object)                        \
  int vemora_first_##target(int, Object, struct stat*);                         \
  __asm__(".symver vemora_first_" #target ", " #target "@" VEMORA_GLIBC_FIRST); \
  int __wrap_##name(Object object, struct stat* buf) {                          \
    return vemora_first_##target(VEMORA_STAT_VER, object, buf);                 \
  }

VEMORA_STAT_AS_BEFORE_2_33(stat, __xstat, const char*)
VEMORA_STAT_AS_BEFORE_2_33(lstat, __lxstat, const char*)
VEMORA_STAT_AS_BEFORE_2_33(fstat, __fxstat, int)
VEMORA_STAT_AS_BEFORE_2_33(stat64, __xstat64, const char*)
VEMORA_STAT_AS_BEFORE_2_33(lstat64, __lxstat64, const char*)
VEMORA_STAT_AS_BEFORE_2_33(fstat64, __fxstat64, int)

// libstdc++ skips atomic reference counting while this is nonzero; zero is always correct.
char __wrap___libc_single_threaded = 0;

// Only std::random_device calls it, and the add-on makes none; without entropy glibc's own
// arc4random ends the process too.
uint32_t __wrap_arc4random() {
  uint32_t value;
  if (getentropy(&value, sizeof value) != 0) std::abort();
  return value;
}

// libgcc's unwinder finds a frame's unwind table with it, and has no other way once built on
// 2.35 or later. dl_iterate_phdr is how it found them before; it reads only dlfo_eh_frame
// (dl_find_object(3)), and dlfo_link_map stays null.
int __wrap__dl_find_object(void* pc, dl_find_object* result) {
  ObjectSearch search{reinterpret_cast<std::uintptr_t>(pc), result};
  return dl_iterate_phdr(FindObjectOf, &search) == 1 ? 0 : -1;
}

}  // extern "C"
