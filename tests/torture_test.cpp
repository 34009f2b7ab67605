// Every system call and allocation of a short life fails in its turn, once or from then on: the plug-in
// comes through and says what it has to say, and in the next life both cameras deliver again.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/select.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <system_error>

#include "support/allocations.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"
#include "support/small_cameras.h"

namespace {

enum class Call { socket, sendto, recvfrom, select, close, open, write, fsync, rename, thread, memory, end };

struct Plan {
    Call call = Call::end;
    long turn = 0;  // the call that fails, from 0
    bool lasting = false;
    int error = EIO;  // 0: half of a datagram is sent
    long seen = 0;
};
Plan plan;
long budget = 0;                          // calls until the worker stops; a lasting failure allows 500
std::vector<std::string> told, expected;  // log lines without addresses; sockets that the worker closed
std::string saving;    // Flushed, file synchronised, renamed, directory synchronised: their first letters
fd_set answered = {};  // the sockets of cameras that have answered
long slept = 0;        // nanoseconds

/// Whom a thread runs for: only what the plug-in calls fails, on the two threads that never run both.
enum Role { outsider, host, worker };
thread_local Role role = outsider;
struct As {
    explicit As(Role now) : before(role) { role = now; }
    ~As() { role = before; }
    const Role before;
};

bool fails(Call which) {
    if (role == outsider) return false;
    if (--budget < 0) g_Plugin->signal();
    if (which != plan.call) return false;
    const long number = plan.seen++;
    if (number == plan.turn && plan.lasting) budget = 500;
    errno = plan.error;
    return number == plan.turn || (plan.lasting && number > plan.turn);
}

void note(std::vector<std::string>& list, const std::string& text) {
    const As test(outsider);
    list.push_back(text);
}

/// What is logged of the failure, unless its error is the quiet one, and whether the link is closed.
int failed(const char* line, int quiet = -1, bool closed = false) {
    if (plan.error == quiet) return -1;
    note(expected, line + std::to_string(plan.error));
    if (closed) note(expected, "closed");
    errno = plan.error;
    return -1;
}

void check_inherited(bool inherited) {
    if (role != outsider && inherited) note(told, "children inherit a descriptor");
}

}  // namespace

// TinyXML itself drops the part of a copy that it has made when memory runs out in the middle; what
// the driver allocates is still watched.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libtinyxml\n";
}

void before_allocation() {
    if (fails(Call::memory)) throw std::bad_alloc();
}

// Link options put these in front of the C library's functions.
#define WRAPPED(result, name, parameters) \
    result __real_##name parameters;      \
    result __wrap_##name parameters

extern "C" {
WRAPPED(int, socket, (int domain, int type, int protocol)) {
    check_inherited((type & SOCK_CLOEXEC) == 0);
    if (fails(Call::socket)) return failed("75 create socket error ");
    const int descriptor = __real_socket(domain, type, protocol);
    if (role != outsider) FD_CLR(descriptor, &answered);
    return descriptor;
}
// "localhost" is camera 2, as long as it has not answered: from then on it has its own address.
WRAPPED(ssize_t, sendto,
        (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length)) {
    if (role == outsider) return __real_sendto(fd, data, size, flags, to, length);
    if (fails(Call::sendto)) {
        if (plan.error != 0) return failed("75 send error ", EAGAIN, true);
        note(expected, "50 sent " + std::to_string(size / 2) + " out of " + std::to_string(size));
        note(expected, "closed");
        return static_cast<ssize_t>(size / 2);
    }
    sockaddr_in peer = {};
    std::memcpy(&peer, to, sizeof(peer));
    if (peer.sin_addr.s_addr == htonl(INADDR_LOOPBACK)) {
        if (FD_ISSET(fd, &answered)) note(told, "not sent to where the answer came from");
        peer.sin_addr.s_addr = inet_addr(plendix::small_cameras(0, 2)[1].address.c_str());
    }
    return __real_sendto(fd, data, size, flags, reinterpret_cast<sockaddr*>(&peer), sizeof(peer));
}
WRAPPED(ssize_t, recvfrom, (int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length)) {
    if (fails(Call::recvfrom)) return failed("75 recv error ", EAGAIN, true);
    if (role != outsider) FD_SET(fd, &answered);
    return __real_recvfrom(fd, data, size, flags, from, length);
}
WRAPPED(int, select, (int count, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout)) {
    if (role != outsider && timeout->tv_sec * 1'000'000 + timeout->tv_usec != 20'000)
        note(told, "waits for another time");
    if (role != outsider) timeout->tv_usec = 1000;
    if (fails(Call::select)) return failed("75 select error ", EINTR);
    return __real_select(count, reads, writes, excepts, timeout);
}
WRAPPED(int, nanosleep, (const timespec* time, timespec* rest)) {
    if (role == outsider) return __real_nanosleep(time, rest);
    fails(Call::end);  // never: counted only
    slept += time->tv_nsec;
    return 0;
}
WRAPPED(int, close, (int fd)) {
    struct stat status = {};
    const bool socket = fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
    if (socket && role == worker) note(told, "closed");
    const int result = __real_close(fd);  // a failed close has closed all the same
    if (!fails(Call::close)) return result;
    return socket ? failed("75 close socket error ") : -1;
}
WRAPPED(int, open, (const char* name, int flags, ...)) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = va_arg(arguments, unsigned);
    va_end(arguments);
    check_inherited((flags & O_CLOEXEC) == 0);
    return fails(Call::open) ? -1 : __real_open(name, flags, mode);
}
WRAPPED(std::FILE*, fopen, (const char* name, const char* mode)) {
    check_inherited(std::strchr(mode, 'e') == nullptr);
    return __real_fopen(name, mode);
}
int write_out(std::FILE* file, int (*real)(std::FILE*)) {  // what a stream writes goes past the name write
    const bool writes = fileno(file) != -1 && (fcntl(fileno(file), F_GETFL) & O_ACCMODE) != O_RDONLY;
    if (role != outsider && writes) saving += 'F';
    const int result = real(file);
    return fails(Call::write) ? -1 : result;
}
WRAPPED(int, fflush, (std::FILE * file)) {
    return write_out(file, __real_fflush);
}
WRAPPED(int, fclose, (std::FILE * file)) {
    return write_out(file, __real_fclose);
}
WRAPPED(int, fsync, (int fd)) {
    struct stat status = {};
    fstat(fd, &status);
    saving += S_ISDIR(status.st_mode) ? 'd' : 'f';
    return fails(Call::fsync) ? -1 : 0;  // the disk's time is not the test's
}
WRAPPED(int, rename, (const char* from, const char* to)) {
    saving += 'r';
    return fails(Call::rename) ? -1 : __real_rename(from, to);
}
// The C++ library's start of a thread.
WRAPPED(void, _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE,
        (void* thread, void* state, void (*depend)())) {
    if (!fails(Call::thread))
        return __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
            thread, state, depend);
    note(expected, "75 create thread error " + std::to_string(EAGAIN));
    throw std::system_error(EAGAIN, std::generic_category());
}
}

namespace plendix {
namespace {

struct Tortured : CPlugin {
    void execute() override {
        const As test(worker);
        CPlugin::execute();
    }
};

class Torture : public testing::TestWithParam<int> {
protected:
    Torture() { fleet_.start(), ConnectHost(listen); }
    ~Torture() override { g_Plugin = nullptr; }
    /// Stops the worker when both cameras delivered, or one of them goes on without the other.
    static int listen(_EventParmsIn* in, _EventParmsOut*) {
        const As test(outsider);
        if (in->Kind == EventKindVideo) ++frames_[in->SourceId >> 8 & 1];
        if (delivered() || frames_[0] + frames_[1] == 10) g_Plugin->signal();
        static const std::regex line(".*level=.(..).>(127\\.[\\d.]* |localhost )?(.*)</log_msg>");
        const std::string text(static_cast<const char*>(in->Data), in->DataLength);
        if (in->Kind == EventKindLog && text.find("receiving video") == std::string::npos)
            told.push_back(std::regex_replace(text, line, "$1 $3"));
        return 0;
    }
    /// Loads without memory, passes without cameras, and saves without a place.
    void begin() {
        const As test(host);
        budget = 1000;
        g_Plugin = nullptr;
        for (plan = {Call::memory}; g_Plugin == nullptr; plan.seen = 0, ++plan.turn)
            load(listen);
        EXPECT_GT(plan.turn, 1);
        plan = Plan();
        slept = 0;
        g_Plugin->CheckDevices();
        EXPECT_EQ(slept, 20'000'000);
        std::ofstream("Plendix.xml.new") << "left by a run that was killed in its first save";
        plan = {Call::rename, 0, true};
        g_Plugin->PostConfig();
        EXPECT_TRUE(std::filesystem::is_empty("."));  // nothing is written in place either
        plan = Plan();
        unload();
        g_Plugin = &plugin_;
        ConnectHost(listen);
    }
    static bool delivered() { return frames_[0] > 0 && frames_[1] > 0; }
    void live() {
        const std::string channel = "Width='64' Height='32' Standard='0' Framerate='1000' Quality='" +
                                    std::to_string(4 + lives_++ % 2) + "'";  // a change to save
        const std::string cameras[] = {change(device(1, cameras_[0].address, channel)),
                                       change(device(2, "localhost", channel))};
        frames_[0] = frames_[1] = 0;
        told.clear(), expected.clear(), saving.clear(), saving.reserve(1000);
        budget = 20'000;
        {
            const As test(host);
            for (const std::string& text : cameras)
                post(text);
            for (int tries = 0; tries < 2 && !plugin_.running(); ++tries)
                open();
            plugin_.waitfor();  // it stops by itself
            close();
        }
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
        if (plan.call == Call::memory)
            EXPECT_THAT(told, testing::Each(testing::EndsWith(" failed: std::bad_alloc")));
        else
            EXPECT_EQ(told, expected);
    }
    /// A life with the given failure, and one without; the number of calls that the first one saw.
    long live_with(const Plan& failure) {
        plan = failure;
        live();
        EXPECT_TRUE(failure.lasting || frames_[0] + frames_[1] > 0);
        const long seen = plan.seen;
        plan = Plan();
        TiXmlDocument saved;
        EXPECT_TRUE(saved.LoadFile(szFileName));
        EXPECT_FALSE(std::filesystem::exists("Plendix.xml.new"));
        live();
        EXPECT_TRUE(delivered());
        EXPECT_THAT(saving, testing::MatchesRegex("(F+fF*rd)*"));
        return seen;
    }
    TemporaryFolder folder_;
    camera::Fleet fleet_{cameras_};
    Tortured plugin_;
    int lives_ = 0;
    static inline const auto cameras_ = small_cameras(0, 2);
    static inline int frames_[2];
};

// PLENDIX_TORTURE=full takes every call in its turn; otherwise about twenty, spread over the run.
TEST_P(Torture, EveryCallFailsOnceAndLastingly) {
    const auto call = static_cast<Call>(GetParam());
    begin();
    live_with(Plan());
    EXPECT_FALSE(saving.empty());
    const long calls = live_with({call, 1'000'000});
    ASSERT_GT(calls, 0);
    const long step = full_torture() ? 1 : calls / 20 + 1;
    const int errors[] = {EIO, EAGAIN, EINTR, EMFILE, ENOSPC, 0};
    for (long n = 0; n < calls; n += step) {
        const int error = errors[n / step % 6];
        SCOPED_TRACE("call " + std::to_string(n) + " error " + std::to_string(error));
        EXPECT_GT(live_with({call, n, false, error}), n / 4);
        live_with({call, n, true, error});
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, Torture, testing::Range(0, static_cast<int>(Call::end)));

}  // namespace
}  // namespace plendix
