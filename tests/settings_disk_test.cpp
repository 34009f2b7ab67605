// The settings file on disks that are full, read-only or not replaceable.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "device/device.h"
#include "plugin/settings.h"
#include "support/calls.h"
#include "support/descriptors.h"
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
            mount("tmpfs", "disk", "tmpfs", 0, "size=64k") != 0)
            GTEST_SKIP() << "no mounts of our own: " << std::strerror(errno);
        fs::current_path("disk");
        have_cameras(1);
    }
    ~SettingsOnDisk() override {
        fs::current_path(folder.name);
        umount2("disk", MNT_DETACH);  // and what is mounted on it
    }
    void have_cameras(int count) {
        host.plugin().m_Devices.Clear();
        for (int number = 1; number <= count; ++number)
            host.plugin().m_Devices.Make(number);
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
    std::string sent;
};

TEST_F(SettingsOnDisk, SurviveAFullAndAReadOnlyOne) {
    std::string before = sent;
    for (const int cameras : {2, 100}) {  // fits into the file's last page, or does not
        std::ofstream filler("filler");
        for (int page = 0; page < 16 && filler << std::string(4096, 'x') << std::flush; ++page) {
        }
        have_cameras(cameras);
        EXPECT_NE(sent, before);
        EXPECT_TRUE(saved() == before);
        EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 2);
        fs::remove("filler");
    }
    have_cameras(3);
    EXPECT_TRUE(saved() == sent);
    before = sent;
    ASSERT_EQ(mount(nullptr, ".", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    have_cameras(4);
    EXPECT_NE(sent, before);
    EXPECT_TRUE(saved() == before);
}

TEST_F(SettingsOnDisk, AreReadAndWrittenWhenNoDescriptorIsLeft) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need descriptors for their own checks";
#endif
    const std::string before = sent;
    auto taken = std::make_unique<TakenDescriptors>(100);
    host.plugin().m_Devices.Remove(1);
    open();
    EXPECT_TRUE(host.documents(EventKindConfig).back() == before);
    close();
    have_cameras(2);
    taken.reset();
    EXPECT_TRUE(saved() == sent);
    EXPECT_TRUE(host.log_lines().empty());
}

TEST_F(SettingsOnDisk, AreWrittenInPlaceWhereTheyCannotBeReplaced) {
    const std::string unreadable = "<Velm>" + std::string(10'000, 'x');  // some buffers long
    std::ofstream("elsewhere") << unreadable;
    ASSERT_EQ(mount("elsewhere", szFileName, nullptr, MS_BIND, nullptr), 0);
    open();
    close();
    std::ifstream kept("Plendix.xml.bad");
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(kept), {}) == unreadable);
    have_cameras(2);
    EXPECT_TRUE(saved() == sent);
    fs::rename("elsewhere", "moved");
    EXPECT_GT(fs::file_size("moved"), 1000U);
    umount(szFileName);
    fs::remove(szFileName);
    fs::create_symlink("missing", szFileName);
    have_cameras(3);
    EXPECT_TRUE(fs::is_symlink(szFileName));
    EXPECT_TRUE(saved() == sent);
}

TEST_F(SettingsOnDisk, FollowThePermissionsOfAHostThatIsNotRoot) {
    constexpr uid_t somebody = 65534;
    fs::permissions(folder.name, fs::perms(0755));
    int cameras = 1;
    const struct {
        uid_t owner;  // of the folder; the file is root's
        unsigned folder_mode, file_mode;
        bool written;
    } cases[] = {
        {somebody, 0755, 0440, true}, {0, 0755, 0666, true}, {0, 01777, 0666, true}, {0, 0755, 0444, false}};
    for (const auto& [owner, folder_mode, file_mode, written] : cases) {
        if (chown(".", owner, owner) != 0) GTEST_SKIP() << "no other users here";
        ASSERT_EQ(chown(szFileName, 0, 0) + chmod(szFileName, file_mode) + chmod(".", folder_mode), 0);
        const std::string before = sent;
        ASSERT_EQ(seteuid(somebody), 0);
        have_cameras(++cameras);
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_NE(sent, before);
        EXPECT_TRUE(saved() == (written ? sent : before)) << folder_mode << ' ' << file_mode;
        EXPECT_EQ(fs::status(szFileName).permissions(), fs::perms(file_mode));
        EXPECT_FALSE(fs::exists("Plendix.xml.new"));
    }
}

}  // namespace
}  // namespace plendix
