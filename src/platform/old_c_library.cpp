// Only in the library that stands alone: what it would otherwise ask of new C libraries, under the names
// that the headers and the C++ library's objects ask for (in brackets the first version that has them).
// Hidden like all but the driver's eight functions: the host does not get them. Any thread.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" {

// 2.32. The C++ library counts references without atomic operations where it is true. The driver has
// a thread, and a host has them too.
extern char __libc_single_threaded;
char __libc_single_threaded = 0;

// 2.28. An old kernel (before 3.15) answers ENOSYS.
int renameat2(int old_folder, const char* old_name, int folder, const char* name, unsigned flags) noexcept {
    return static_cast<int>(syscall(SYS_renameat2, old_folder, old_name, folder, name, flags));
}

#if __GLIBC_PREREQ(2, 33)
// 2.33. Before, the headers had these two call functions that are told the version of the record.
constexpr int StatVersion = sizeof(void*) == 4 ? 3 : 1;
int versioned_stat(int version, const char* name, struct stat* status) noexcept __asm__("__xstat64");
int versioned_lstat(int version, const char* name, struct stat* status) noexcept __asm__("__lxstat64");

int stat(const char* name, struct stat* status) noexcept {  // "stat64" to the linker on 32-bit machines
    return versioned_stat(StatVersion, name, status);
}

int lstat(const char* name, struct stat* status) noexcept {
    return versioned_lstat(StatVersion, name, status);
}
#endif

#if __SIZEOF_POINTER__ == 4
struct KernelTime {  // the C library's timespec with 64-bit seconds has the same layout
    std::int64_t seconds;
    std::int64_t nanoseconds;
};

// 2.34. The calendar of kernels from 5.1 on goes beyond January 2038. The monotonic clock does not need
// it, and is read in every pass: one system call, on each kernel.
int __clock_gettime64(clockid_t clock, KernelTime* time) {
    if (clock == CLOCK_REALTIME && syscall(SYS_clock_gettime64, clock, time) == 0) return 0;
    timespec narrow{};
    if (syscall(SYS_clock_gettime, clock, &narrow) != 0) return -1;
    *time = {narrow.tv_sec, narrow.tv_nsec};
    return 0;
}
#endif

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
