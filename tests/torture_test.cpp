// Every system call and allocation of a short run fails in its turn, once or from then on: the
// plug-in comes through, and when the failures end, both cameras deliver again.
#include <gmock/gmock.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "camera/fleet.h"
#include "device/device.h"
#include "plugin/Plendix.h"
#include "plugin/settings.h"
#include "support/allocations.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"

namespace {

enum Call {
    socket_call,
    sendto_call,
    recvfrom_call,
    select_call,
    close_call,
    open_call,
    write_call,
    fsync_call,
    rename_call,
    new_call
};

// Only the thread that runs the plug-in fails; the simulated cameras do not.
struct Plan {
    Call call = new_call;
    long turn = -1;  // the call that fails, from 0; negative: none
    bool lasting = false;
    int error = EIO;
    long seen = 0;
    bool armed = false;  // the plug-in is running, not the test
    bool fails(Call which) {
        if (!armed || which != call || turn < 0) return false;
        const long number = seen++;
        return number == turn || (lasting && number > turn);
    }
};
thread_local Plan plan;

struct Armed {
    Armed() { plan.armed = true; }
    ~Armed() { plan.armed = false; }
};

template <class Result>
bool fail(Call which, Result& result) {
    if (!plan.fails(which)) return false;
    errno = plan.error;
    result = -1;
    return true;
}

}  // namespace

// TinyXML itself drops the part of a copy that it has made when memory runs out in the middle; what
// the driver allocates is still watched.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libtinyxml\n";
}

void before_allocation() {
    if (plan.fails(new_call)) throw std::bad_alloc();
}

extern "C" {
int __real_socket(int, int, int);
ssize_t __real_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
ssize_t __real_recvfrom(int, void*, size_t, int, sockaddr*, socklen_t*);
int __real_select(int, fd_set*, fd_set*, fd_set*, timeval*);
int __real_close(int);
int __real_open(const char*, int, ...);
int __real_fflush(std::FILE*);
int __real_fclose(std::FILE*);
int __real_fsync(int);
int __real_rename(const char*, const char*);

int __wrap_socket(int domain, int type, int protocol) {
    int result = 0;
    return fail(socket_call, result) ? result : __real_socket(domain, type, protocol);
}
ssize_t __wrap_sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length) {
    ssize_t result = 0;
    return fail(sendto_call, result) ? result : __real_sendto(fd, data, size, flags, to, length);
}
ssize_t __wrap_recvfrom(int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length) {
    ssize_t result = 0;
    return fail(recvfrom_call, result) ? result : __real_recvfrom(fd, data, size, flags, from, length);
}
int __wrap_select(int count, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout) {
    int result = 0;
    return fail(select_call, result) ? result : __real_select(count, reads, writes, excepts, timeout);
}
int __wrap_close(int fd) {
    int result = __real_close(fd);  // a failed close has closed all the same
    fail(close_call, result);
    return result;
}
int __wrap_open(const char* name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = va_arg(arguments, unsigned);
    va_end(arguments);
    int result = 0;
    return fail(open_call, result) ? result : __real_open(name, flags, mode);
}
int __wrap_fflush(std::FILE* file) {  // what a stream writes goes past the name write
    int result = __real_fflush(file);
    fail(write_call, result);
    return result;
}
int __wrap_fclose(std::FILE* file) {
    int result = __real_fclose(file);
    fail(write_call, result);
    return result;
}
int __wrap_fsync(int fd) {
    int result = 0;
    return fail(fsync_call, result) ? result : __real_fsync(fd);
}
int __wrap_rename(const char* from, const char* to) {
    int result = 0;
    return fail(rename_call, result) ? result : __real_rename(from, to);
}
}

namespace plendix {
namespace {

// The worker's loop, turn by turn on the test's own thread.
class HandDriven : public CPlugin {
public:
    void turn() {
        const Armed armed;
        processmsgs();
        try {
            CheckDevices();
        } catch (...) {
            TraceException("Pass");
        }
    }
};

class Torture : public testing::TestWithParam<Call> {
protected:
    Torture() : fleet_({config("1"), config("2")}) {
        fleet_.start();
        ConnectHost([](_EventParmsIn* in, _EventParmsOut*) {
            if (in->Kind == EventKindVideo) ++frames_[(in->SourceId >> 8) & 1];
            return 0;
        });
    }
    ~Torture() override { g_Plugin = nullptr; }
    /// The address of a camera, which differs between the cases: they run side by side.
    static std::string address(const std::string& number) {
        return "127.31." + std::to_string(GetParam()) + "." + number;
    }
    static camera::Config config(const char* number) {
        camera::Config config;
        config.address = address(number);
        config.sensor_width = 320;
        config.sensor_height = 240;
        return config;
    }
    void change_devices(const std::string& devices) {
        const std::string text = change(devices);
        const Armed armed;
        try {
            post(plugin_, text);
        } catch (const std::bad_alloc&) {  // the exports keep it from the host
        }
    }
    void add_cameras() {
        for (const int number : {1, 2})
            change_devices(device(number, address(std::to_string(number)),
                                  "Width='64' Height='32' Standard='0' Framerate='1000'"));
    }
    /// Turns until both cameras delivered frames, at most a number of them.
    bool run(int frames, int turns) {
        frames_[0] = frames_[1] = 0;
        while (turns-- > 0 && (frames_[0] < frames || frames_[1] < frames))
            plugin_.turn();
        return turns >= 0;
    }
    /// One run with the given failure; the number of calls it saw of that kind.
    long run_with(Plan failure) {
        plan = failure;
        add_cameras();
        run(1, failure.lasting ? 20 : 400);
        EXPECT_TRUE(failure.lasting || frames_[0] + frames_[1] > 0) << "call " << failure.turn;
        change_devices("<Device Number='2' ipAddress=''/>");
        plugin_.turn();
        const long seen = plan.seen;
        plan = Plan();
        TiXmlDocument saved;
        EXPECT_TRUE(failure.turn < 0 || saved.LoadFile(szFileName)) << "call " << failure.turn;
        EXPECT_FALSE(std::filesystem::exists("Plendix.xml.new"));
        for (auto& device : plugin_.m_Devices)  // what was lost on the way has been waited for
            if (device && device->m_dwSendTime != 0) device->m_dwSendTime -= 10'001;
        add_cameras();
        EXPECT_TRUE(run(1, 4000)) << "call " << failure.turn;
        change_devices("<Device Number='1' ipAddress=''/><Device Number='2' ipAddress=''/>");
        plugin_.turn();
        return seen;
    }
    TemporaryFolder folder_;
    camera::Fleet fleet_;
    HandDriven plugin_;
    CPlugin* const installed_ = (g_Plugin = &plugin_);
    static inline int frames_[2];
};

// PLENDIX_TORTURE=full takes every call in its turn; otherwise about twenty, spread over the run.
TEST_P(Torture, EveryCallFailsOnceAndLastingly) {
    const bool full = full_torture();
    const long calls = run_with({GetParam(), 1000000});
    ASSERT_GT(calls, 0);
    const long step = full ? 1 : calls / 20 + 1;
    const int errors[] = {EIO, EAGAIN, EINTR, EMFILE, ENOSPC};
    for (long n = 0; n < calls; n += step) {
        const int error = errors[n / step % 5];
        EXPECT_GT(run_with({GetParam(), n, false, error}), n / 4);
        run_with({GetParam(), n, true, error});
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, Torture,
                         testing::Values(socket_call, sendto_call, recvfrom_call, select_call, close_call,
                                         open_call, write_call, fsync_call, rename_call, new_call));

}  // namespace
}  // namespace plendix
