// The settings file: what is kept of the configuration, and under which circumstances.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>

#include "device/device.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using namespace testing;

class Settings : public testing::Test {
protected:
    static std::string one_line(const fs::path& name) {  // as the host gets it
        TiXmlDocument document;
        EXPECT_TRUE(document.LoadFile(name.c_str()));
        std::string line;
        line << document;
        return line;
    }
    static auto files(const char* in) { return std::distance(fs::directory_iterator(in), {}); }
    void add_camera(unsigned number) {
        host.plugin().m_Devices[number - 1] = std::make_unique<CDevice>(number);
        host.plugin().m_Devices[number - 1]->m_sAddress = "T\xC3\xBCr <\">";
        host.plugin().PostConfig();
    }
    std::string sent() { return host.documents(EventKindConfig).back(); }
    void open_and_close() {
        _OpenParmsOut opened;
        _CloseParmsOut closed;
        host.plugin().Open(nullptr, &opened);
        host.plugin().Close(nullptr, &closed);
    }
    TemporaryFolder folder;
    RecordingHost host;
};

TEST_F(Settings, KeepAFileThatDoesNotParse) {
    const std::pair<const char*, const char*> copies[] = {
        {"Plendix.xml.bad", ""},
        {"Plendix.xml.bad.1", "no document"},
        {"Plendix.xml.bad.2", "<Velm Delta='0'><Devices ID='2162688'><Device Number='1' ipA"}};
    for (const auto& [name, content] : copies) {
        std::ofstream("Plendix.xml") << content;
        host.clear();
        open_and_close();
        EXPECT_THAT(host.log_lines(), ElementsAre(AllOf(StartsWith("50 "), HasSubstr(name))));
        EXPECT_EQ(one_line("Plendix.xml"), sent());
        EXPECT_THAT(sent(), Not(HasSubstr("<Device ")));
    }
    for (const auto& [name, content] : copies) {
        std::ifstream file(name);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), content);
    }
}

TEST_F(Settings, AreReplacedInTheirPlace) {
    fs::create_directory("real");
    std::ofstream("real/file") << "<Velm/>";
    std::ofstream("real/file.new") << "left by a run that was killed";
    fs::create_symlink("real/file", "Plendix.xml");
    add_camera(1);
    EXPECT_TRUE(fs::is_symlink("Plendix.xml"));
    EXPECT_EQ(one_line("real/file"), sent());
    EXPECT_EQ(files("real"), 1);
    fs::create_directories("real/file.new/full");  // no room for a temporary file
    add_camera(2);
    EXPECT_EQ(one_line("real/file"), sent());
}

TEST_F(Settings, StayWholeWhenTheyCannotBeSaved) {
    add_camera(1);
    const std::string before = sent();
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full = {100, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);  // fails as a full disk does
    add_camera(2);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(one_line("Plendix.xml"), before);
    EXPECT_EQ(files("."), 1);
    EXPECT_THAT(sent(), HasSubstr("Number=\"2\""));  // nevertheless
    fs::remove("Plendix.xml");
    fs::create_directory("Plendix.xml");
    open_and_close();
    EXPECT_TRUE(fs::is_directory("Plendix.xml"));
    EXPECT_EQ(files("."), 1);
}

}  // namespace
}  // namespace plendix
