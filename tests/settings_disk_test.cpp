// The settings file on disks that are full, read-only or not replaceable.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "device/device.h"
#include "plugin/settings.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

/// In a mount namespace of this process's own; skips where the system does not allow one.
class SettingsOnDisk : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directory("disk");
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "disk", "tmpfs", 0, "size=16k") != 0)
            GTEST_SKIP() << "no mounts of our own: " << std::strerror(errno);
        mounted.push_back(fs::absolute("disk"));
        fs::current_path("disk");
        have_cameras(1);
    }
    ~SettingsOnDisk() override {
        fs::current_path(folder.name);
        for (auto place = mounted.rbegin(); place != mounted.rend(); ++place)
            umount2(place->c_str(), MNT_DETACH);
    }
    void mount_at(const fs::path& place, const char* source, const char* type, unsigned long flags,
                  const char* options) {
        ASSERT_EQ(mount(source, place.c_str(), type, flags, options), 0) << place;
        mounted.push_back(fs::absolute(place));
    }
    void have_cameras(unsigned count) {
        for (unsigned number = 1; number <= MaxDevices; ++number)
            host.plugin().m_Devices[number - 1] =
                number <= count ? std::make_unique<CDevice>(number) : nullptr;
        host.plugin().PostConfig();
        sent = host.documents(EventKindConfig).back();
    }
    static std::string saved() {
        TiXmlDocument document;
        EXPECT_TRUE(document.LoadFile(szFileName));
        std::string line;
        line << document;
        return line;
    }

    TemporaryFolder folder;
    RecordingHost host;
    std::vector<fs::path> mounted;
    std::string sent;
};

TEST_F(SettingsOnDisk, SurviveAFullOne) {
    const std::string before = sent;
    for (const unsigned cameras : {2U, 100U}) {  // fits into the file's last page, or does not
        std::ofstream filler("filler");
        for (int page = 0; page < 8 && filler << std::string(4096, 'x') << std::flush; ++page) {
        }
        have_cameras(cameras);
        EXPECT_NE(sent, before);
        EXPECT_TRUE(saved() == before);
        EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 2);
        fs::remove("filler");
    }
    have_cameras(3);
    EXPECT_TRUE(saved() == sent);
}

TEST_F(SettingsOnDisk, AreReadAndWrittenWhenNoDescriptorIsLeft) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need descriptors for their own checks";
#endif
    const std::string before = sent;
    std::vector<int> taken;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit lowered = {100, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lowered), 0);
    for (int next = 0; next >= 0; taken.push_back(next))
        next = ::open("/dev/null", O_RDONLY);
    host.plugin().m_Devices[0].reset();
    open(host.plugin());
    EXPECT_TRUE(host.documents(EventKindConfig).back() == before);
    close(host.plugin());
    have_cameras(2);
    setrlimit(RLIMIT_NOFILE, &limit);
    std::for_each(taken.begin(), taken.end(), [](int descriptor) { ::close(descriptor); });
    EXPECT_TRUE(saved() == sent);
    EXPECT_TRUE(host.log_lines().empty());
}

TEST_F(SettingsOnDisk, AreLeftAloneOnAReadOnlyOne) {
    const std::string before = sent;
    mount_at(".", nullptr, nullptr, MS_REMOUNT | MS_RDONLY, "size=16k");
    have_cameras(2);
    EXPECT_NE(sent, before);
    EXPECT_TRUE(saved() == before);
}

TEST_F(SettingsOnDisk, AreWrittenInPlaceWhereAnotherFileIsMounted) {
    std::ofstream("elsewhere") << "<Velm/>";
    mount_at(szFileName, "elsewhere", nullptr, MS_BIND, nullptr);
    have_cameras(2);
    EXPECT_TRUE(saved() == sent);
    fs::rename("elsewhere", "moved");
    EXPECT_GT(fs::file_size("moved"), 1000U);
}

TEST_F(SettingsOnDisk, KeepTheModeOfAFileThatMayNotBeWritten) {
    chmod(szFileName, 0440);
    have_cameras(2);
    EXPECT_TRUE(saved() == sent);
    EXPECT_EQ(fs::status(szFileName).permissions(), fs::perms(0440));
}

}  // namespace
}  // namespace plendix
