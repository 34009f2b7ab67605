// The exported functions, the routing of documents, the log, and the settings file.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <fstream>

#include "device/device.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using namespace testing;

class Plugin : public testing::Test {
protected:
    void load() {
        _LoadParmsIn in = {0, 0, 77, host.plugin().EventCallback};
        g_Plugin = nullptr;  // the host's own
        EXPECT_EQ(::Load(&in, &load_out), 0);
    }
    static int write(std::uint8_t selector, std::uint32_t source, const char* text, std::size_t length) {
        _WriteParmsIn in = {0, 0, 0, selector, {}, static_cast<std::uint32_t>(length), text, source};
        _WriteParmsOut out = {0, 0, {}, 77};
        return ::Write(&in, &out) + out.Result;
    }
    static int control(std::uint32_t code, const char* text, std::size_t length) {
        _IOCTLParmsIn in = {0, 0, code, {}, static_cast<std::uint32_t>(length), text};
        _IOCTLParmsOut out = {0, 0, 0, 77};
        return ::IOCTL(&in, &out) + out.Result;
    }
    std::vector<std::string> cameras() const {  // of each configuration: the numbers, each with a blank
        std::vector<std::string> found = host.documents(EventKindConfig);
        for (std::string& text : found)
            text = std::regex_replace(text, std::regex("<Device Number=\"(\\d+)\""), "$1 ",
                                      std::regex_constants::format_no_copy);
        return found;
    }
    TemporaryFolder folder;
    RecordingHost host;
    _LoadParmsOut load_out = {};
};

TEST_F(Plugin, LoadFillsItsRecordAndNothingElse) {
    constexpr std::uint32_t kept = 0xA5A5A5A5;
    const std::uint32_t expected[] = {kept, kept, 0x210000, 0x1000048, 0,    0x3000010,  0x2000010, 0,
                                      0,    0,    0,        kept,      kept, 0x01000000, 0xA5A50000};
    static_assert(sizeof(expected) == sizeof(load_out));
    std::memset(&load_out, 0xA5, sizeof(load_out));
    load();
    EXPECT_EQ(std::memcmp(&load_out, expected, sizeof(expected)), 0);
    static _OpenParmsOut opened = {0, 0, 77, 77};
    static std::vector<int> results;
    ConnectHost([](_EventParmsIn*, _EventParmsOut*) {
        results.push_back(opened.Result + static_cast<int>(opened.OpenExtra));
        return 0;
    });
    EXPECT_EQ(::Open(nullptr, &opened), 0);
    EXPECT_THAT(results, ElementsAre(154, 0));  // written behind the version document
    _LoadParmsIn again = {0, 0, 0, host.plugin().EventCallback};
    ::Load(&again, &load_out);  // ends the first: the sanitizers watch
    EXPECT_FALSE(g_Plugin->running());
    ::Unload(nullptr, nullptr);
    EXPECT_EQ(g_Plugin, nullptr);
    EXPECT_EQ(::Unload(nullptr, nullptr), 0);
}

TEST_F(Plugin, ReportsResultsInTheRecords) {
    EXPECT_EQ(write(1, PluginId, "", 0), -1);
    EXPECT_EQ(write(0, PluginId, "", 0), 0);
    EXPECT_EQ(write(0, 5, nullptr, 3), -2);
    EXPECT_EQ(write(0, 5, "<a/>", 0), -2);
    EXPECT_EQ(write(0, 5, "<a/>", 4), 77);
    EXPECT_EQ(control(1, "<a/>", 4), -1);
    EXPECT_EQ(control(3, nullptr, 0), -1);
    EXPECT_EQ(control(2, nullptr, 3) + control(2, "<a/>", 0), -4);
    EXPECT_EQ(control(2, "<", 1), 77);
    _ReadParmsOut read = {0, 0, {}, 77};
    _SeekParmsOut seek = {0, 0, 77};
    _CloseParmsOut close = {0, 0, 77};  // never opened
    EXPECT_EQ(::Read(nullptr, &read) + read.Result, -1);
    EXPECT_EQ(::Seek(nullptr, &seek) + seek.Result, -1);
    EXPECT_EQ(::Close(nullptr, &close) + close.Result, 0);
}

TEST_F(Plugin, ServesDocumentsFromBeforeOpenToClose) {
    load();
    const std::string camera = "<Device ipAddress='a' Number='", whole = change(camera + "3'/>");
    const std::string broken = whole.substr(0, whole.find(camera)) + camera + "4'/><Device Number='5";
    control(2, std::vector<char>(whole.begin(), whole.end()).data(), whole.size());  // no NUL behind it
    for (const std::size_t events : {3U, 7U}) {
        open();
        EXPECT_TRUE(host.wait_for([=](auto& h) { return h.events().size() == events; }));
        control(2, broken.c_str(), broken.size());  // served up to the error
        close();
        EXPECT_EQ(g_Plugin->m_Devices.Find(3), nullptr);
    }
    ::Unload(nullptr, nullptr);
    EXPECT_THAT(cameras(), ElementsAre("", "", "3 ", "3 4 ", "", "3 4 ", "3 4 ", "3 4 "));  // from the file
    const auto sent = host.documents();
    EXPECT_EQ(sent[0],
              "<?xml ?><Velm Delta=\"0\"><Modules><Module Name=\"Plendix\" ID=\"2162688\" "
              "Version=\"9.2.3.130093\" /></Modules></Velm>");
    EXPECT_EQ(sent[1],
              "<?xml ?><Velm Delta=\"0\"><Devices ID=\"2162688\" Description=\"Plendix\" "
              "MaxDevices=\"255\" /></Velm>");
}

TEST_F(Plugin, AppliesOnlyWhatIsMeantForIt) {
    const std::string next = "<Devices ID='2162688'><Device Number='", ours = "'>" + next;
    const std::string end = "' ipAddress='a'/></Devices>";
    const std::tuple<std::string, std::size_t, std::string> cases[] = {
        {ours + "1" + end, 0, ""},
        {"0" + ours + "1" + end, 0, ""},
        {"x" + ours + "1" + end, 0, ""},
        {"1'><Devices ID='5'><Device Number='1" + end + "<Devices><Device Number='1" + end, 0, ""},
        {"1'><PTZ ID='2162688'>" + next + "1" + end + "</PTZ>", 0, ""},
        {"1" + ours + "0" + end + next + "256" + end + next + end, 0, ""},
        {"1" + ours + "255' ipAddress='a'/><Device Number='1" + end, 1, "1 255 "},
        {"-1" + ours + "2" + end + next + "3" + end, 2, "1 2 3 255 "},
        {"1" + ours + "3'/></Devices>", 0, "1 2 3 255 "},
        {"1" + ours + "2' ipAddress='' Enabled='1'/></Devices>", 1, "1 3 255 "},
        {"1" + ours + "2' ipAddress=''/></Devices>", 0, "1 3 255 "}};
    for (const auto& [text, count, numbers] : cases) {
        host.clear();
        const std::string document = "<Any Delta='" + text + "</Any>";
        control(2, document.c_str(), document.size());
        host.serve();
        EXPECT_EQ(host.events().size(), count) << text;
        host.plugin().PostConfig();
        EXPECT_EQ(cameras().back(), numbers) << text;
    }
    host.clear();
    const std::string text = std::regex_replace(  // what is wrapped comes first, wherever it stands
        std::string("<Any>[2162688-1-0][5-1-1]<PTZ ID='5'>[2162688-255-1]</PTZ>"
                    "<PTZ ID='2162688'>[2162688-1-1][2162688-256-1][2162688-3-1]</PTZ></Any>"),
        std::regex("\\[(\\d+)-(\\d+)-(\\d)\\]"),
        "<Devices ID='$1'><Device Number='$2'><Trigger><Output Number='0' Action='1' Time='0' "
        "Milliseconds='0' Alarm='$3'/></Trigger></Device></Devices>");
    write(0, 5, text.c_str(), text.size());
    host.serve();
    EXPECT_THAT(host.plugin().m_Devices.Find(1)->m_Actions, ElementsAre(std::pair(1, 62135596800000)));
    EXPECT_THAT(host.plugin().m_Devices.Find(3)->m_Actions, ElementsAre(std::pair(1, -1)));
    EXPECT_TRUE(host.plugin().m_Devices.Find(255)->m_Actions.empty());
    EXPECT_TRUE(host.events().empty());
}

TEST_F(Plugin, TellsAllChangesOfAPassInOneDocument) {
    sockaddr address = {};
    socklen_t size = sizeof(address);
    for (int number = 1; number < 3; ++number) {
        CDevice* const camera = &host.plugin().m_Devices.Make(number);
        camera->m_bEnabled = true;
        camera->m_sAddress = "127.0.0.1";
        camera->Open();
        camera->Read(2);
        camera->m_wBlockSize = 1450;
        getsockname(camera->m_Socket, &address, &size);
        sendto(camera->m_Socket, "\0\3\0\1\0\x63", 6, 0, &address, size);  // the answer
    }
    host.plugin().CheckDevices();
    EXPECT_THAT(cameras(), ElementsAre("1 2 "));
    EXPECT_EQ(host.plugin().m_Devices.Find(1)->m_wBrightness + host.plugin().m_Devices.Find(2)->m_wBrightness,
              198);
}

TEST_F(Plugin, QueuesFiveThousandDocuments) {
    struct Echo : CPlugin {
        using CPlugin::processmsgs;
        bool add() { return post(new docmsg(MsgWrite), 0); }
        void msghandler(pt::message&) override { ++served < 6000 && add(); }
        int served = 0;
    } echo;
    for (int number = 0; number < 5000; ++number)
        ASSERT_TRUE(echo.add());
    EXPECT_FALSE(echo.add());
    echo.processmsgs();  // not what is added meanwhile
    EXPECT_EQ(echo.served, 5000);
}

TEST_F(Plugin, LogsToTheHostAndTheConsole) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Trace(LogDebug, "quiet %d", 1);
    host.answer(3, 0);
    Trace(LogError, "select error %d", 9);
    host.answer(0, 2);
    const std::string cut(507, 'x');
    Trace(LogInfo, "%s\xE2\x82\xAC", cut.c_str());  // the character would end at 510
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "quiet 1\n\nselect error 9\n\n" + cut + "\n\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Plendix: XML event ret 3 error 0\nPlendix: XML event ret 0 error 2\n");
    EXPECT_THAT(host.log_lines(), ElementsAre("75 select error 9", "25 " + cut));
    const RecordedEvent event = host.events()[0];
    EXPECT_TRUE(event.record.SourceId == 0x210000 && event.record.DataType == 0x1000010);
    EXPECT_EQ(event.record.DataLength, event.data.size());
    host.clear();
    Trace(LogInfo, "%s\xE2\x82\xACx", cut.substr(1).c_str());
    EXPECT_THAT(host.log_lines(), ElementsAre("25 " + cut.substr(1) + "\xE2\x82\xAC"));
}

// What is kept of the configuration, and under which circumstances.
class Settings : public Plugin {
protected:
    static std::string one_line(const fs::path& name) {  // as the host gets it
        TiXmlDocument document;
        EXPECT_TRUE(document.LoadFile(name.c_str()));
        std::string line;
        line << document;
        return line;
    }
    static auto files(const char* in) { return std::distance(fs::directory_iterator(in), {}); }
    void add_camera(int number) {
        host.plugin().m_Devices.Make(number).m_sAddress = "T\xC3\xBCr <\">";
        host.plugin().PostConfig();
    }
    std::string sent() { return host.documents(EventKindConfig).back(); }
    void forget() { host.plugin().m_Devices.Clear(); }
    /// A document with 20 cameras, the first without an address, the last with this Input element.
    static std::string twenty(const std::string& input) {
        std::string devices = "<Device Number='1' Enabled='0'/>";
        for (int number = 2; number < 20; ++number)
            devices += "<Device Number='" + std::to_string(number) + "' ipAddress='a'/>";
        return change(devices + "<Device Number='20' ipAddress='a'><Video><Input Number='0' " + input +
                      "</Video></Device>");
    }
};

TEST_F(Settings, KeepAFileThatDoesNotParse) {
    const std::pair<const char*, const char*> copies[] = {
        {"Plendix.xml.bad", ""},
        {"Plendix.xml.bad.1", "no document"},
        {"Plendix.xml.bad.2", "<Velm Delta='0'><Devices ID='2162688'><Device Number='1' ipA"}};
    for (const auto& [name, content] : copies) {
        std::ofstream("Plendix.xml") << content;
        host.clear();
        open();
        close();
        EXPECT_THAT(host.log_lines(), ElementsAre(AllOf(StartsWith("50 "), HasSubstr(name))));
        EXPECT_EQ(one_line("Plendix.xml"), sent());
        EXPECT_THAT(sent(), Not(HasSubstr("<Device ")));
    }
    for (const auto& [name, content] : copies) {
        std::ifstream file(name);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), content);
    }
}

TEST_F(Settings, GiveBackWhatWasTaken) {
    std::string nested = "<a><?xml version='\">";
    for (int level = 0; level < 60; ++level)
        nested += "<a>";
    const std::pair<std::string, const char*> cases[] = {
        // an Input element, and what is kept of it; an element that could not be read back is refused
        {"Name='Caf&#233; Caf\xE9 \xC3\xA9 &#1;&#9;&amp;#x&quot;&gt;&lt;a&apos; \xF0'>",
         "Name='Caf\u00E9 Caf\u00E9 \u00E9 &#x01;&#x09;&amp;#x&quot;&gt;&lt;a&apos; \u00F0'"},
        {"><OSD><?note x?><?xml version='1.0'?><!-- --></OSD>",
         "<OSD><?note x?><?xml version=\"1.0\" ?><!-- --></OSD>"},
        {"><Schedule>" + std::string(1 << 20, 'x') + "</Schedule>", "xx</Schedule>"},
        {"><DigPTZ>a&#32;<b c='&#13;&#233;'/>\r<![CDATA[\r\n]]></DigPTZ>",
         "a<b c=\"&#x0D;\u00E9\" /><![CDATA[\n]]></DigPTZ>"},
        {"><OSD>&#xD800;&amp;#x41;</OSD>", "<OSD>\u00ED\u00A0\u0080&amp;#x41;</OSD>"},
        {"><OSD>&#0; x</OSD>", "<OSD />"},
        {"><OSD><?xml version='\"?><a>'?></OSD>", ""},
        {"><OSD><?xml version='a\"b'?></OSD>", ""},
        {"><OSD><?xml version='&amp;#xD800;'?></OSD>", ""},
        {"><OSD>" + nested + "'?></a></OSD>", ""}};
    for (const auto& [input, kept] : cases) {
        SCOPED_TRACE(input.substr(0, 50));
        forget();
        host.clear();
        post(twenty(input + "</Input>"));
        host.serve();
        const std::string taken = sent();
        EXPECT_NE(taken.find(kept), std::string::npos) << taken.substr(taken.find("\"20\""), 400);
        EXPECT_EQ(host.log_lines().size(), *kept == '\0' ? 1U : 0U);
        forget();
        host.clear();
        open();
        close();
        EXPECT_TRUE(sent() == taken);
        EXPECT_THAT(host.log_lines(), IsEmpty());
    }
}

TEST_F(Settings, AreReadInTheEncodingThatTheyDeclare) {
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"<?xml encoding='ISO-8859-1'?>", "Caf\xE9", "Caf\u00E9"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?>", "\xC3\xA9&#233;", "\u00C3\u00A9\u00E9"},
        {"", "Caf\xE9", "Caf\u00E9"},
        {"<?xml encoding='utf-8'?>", "Caf\xE9\xC3\xA9", "Caf\u00E9\u00E9"},
        {"\xEF\xBB\xBF<?xml ?>", "&#x000000E9;", "\u00E9"}};
    for (const auto& [declaration, name, read] : cases) {
        std::ofstream("Plendix.xml") << declaration << twenty("Name='" + name + "'/>")
                                     << std::string(*declaration == '\0' ? 17U << 20 : 9U, ' ')
                                     << std::string(9, '\0') << "</a>";
        forget();
        host.clear();
        open();
        close();
        EXPECT_THAT(sent(), HasSubstr("Name=\"" + std::string(read) + "\""));
        EXPECT_THAT(host.log_lines(), IsEmpty());
    }
}

TEST_F(Settings, AreWrittenOnlyWhenTheyChange) {
    const auto post = [this] {
        struct stat before = {}, after = {};
        stat("Plendix.xml", &before);
        host.plugin().PostConfig();
        EXPECT_EQ(one_line("Plendix.xml"), sent());
        stat("Plendix.xml", &after);
        return before.st_ino != after.st_ino;
    };
    add_camera(1);
    host.clear();
    EXPECT_FALSE(post() || post());
    EXPECT_EQ(host.events().size(), 2U);  // sent all the same
    open();
    close();
    add_camera(1);
    EXPECT_FALSE(post());
    host.plugin().m_Devices.Find(1)->m_wModel = 5;
    EXPECT_TRUE(post());
    std::string text;
    std::getline(std::ifstream("Plendix.xml"), text, '\0');
    std::ofstream("Plendix.xml") << std::string(text.size(), ' ');  // by somebody else, just as long
    EXPECT_TRUE(post());
    fs::remove("Plendix.xml");
    host.plugin().PostConfig();
    EXPECT_FALSE(post());
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
    open();
    close();
    EXPECT_TRUE(fs::is_directory("Plendix.xml"));
    EXPECT_EQ(files("."), 1);
}

}  // namespace
}  // namespace plendix
