/* Preloaded into a recorder: a wall clock that stands where a test sets it, while the monotonic one runs
 * on. PLENDIX_WALL_CLOCK names a file with one number of 64 bits: nanoseconds from the monotonic clock to
 * the wall clock, read at every look. Files that are written get their time from it, as they would. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

static const volatile int64_t* offset_ns;
static int (*kernel_clock)(clockid_t, struct timespec*);

__attribute__((constructor)) static void map_offset(void) {
    const char* const name = getenv("PLENDIX_WALL_CLOCK");
    *(void**)&kernel_clock = dlsym(RTLD_NEXT, "clock_gettime");
    const int file = name ? open(name, O_RDONLY | O_CLOEXEC) : -1;
    void* const mapped = mmap(NULL, sizeof(int64_t), PROT_READ, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) _exit(2);
    close(file);
    offset_ns = mapped;
}

int clock_gettime(clockid_t clock, struct timespec* time) {
    const int wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    if (!offset_ns) return (int)syscall(SYS_clock_gettime, clock, time);
    if (!wall) return kernel_clock(clock, time);
    kernel_clock(CLOCK_MONOTONIC, time);
    const int64_t ns = (int64_t)time->tv_sec * 1000000000 + time->tv_nsec + *offset_ns;
    time->tv_sec = ns / 1000000000;
    time->tv_nsec = ns % 1000000000;
    return 0;
}

int gettimeofday(struct timeval* time, void* zone) {
    (void)zone;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / 1000;
    return 0;
}

time_t time(time_t* result) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (result) *result = now.tv_sec;
    return now.tv_sec;
}

static ssize_t stamped(int file, ssize_t result) {
    struct timespec times[2] = {{0, UTIME_OMIT}, {0, 0}};
    struct stat status;
    if (result < 0 || !offset_ns || fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return result;
    clock_gettime(CLOCK_REALTIME, &times[1]);
    futimens(file, times);
    return result;
}

ssize_t write(int file, const void* bytes, size_t count) {
    return stamped(file, syscall(SYS_write, file, bytes, count));
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t at) {
    return stamped(file, syscall(SYS_pwrite64, file, bytes, count, at));
}

ssize_t pwritev(int file, const struct iovec* parts, int count, off_t at) {
    return stamped(file, syscall(SYS_pwritev, file, parts, count, at, 0));
}

int ftruncate(int file, off_t length) {
    return (int)stamped(file, syscall(SYS_ftruncate, file, length));
}
