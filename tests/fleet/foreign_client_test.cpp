// Stock TFTP clients get what the driver gets.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "driver_bench.h"
#include "support/folder.h"

namespace plendix::camera::test {
namespace {

constexpr const char* picture = "h264?res=full;x0=0;y0=0;x1=640;y1=480;qp=29;iframe=1;ssn=1;";
constexpr const char* model_register = "getreg?page=3;reg=122;";

struct Client {
    const char* name;
    const char* plain;      // command with NAME for what to fetch, into the file "fetched"
    const char* with_size;  // the same with SIZE for the block size
};
constexpr Client clients[] = {{"curl", "curl -s --tftp-no-options -o fetched 'tftp://ADDRESS/NAME'",
                               "curl -s --tftp-blksize SIZE -o fetched 'tftp://ADDRESS/NAME'"},
                              {"atftp", "atftp --get -r 'NAME' -l fetched ADDRESS 69",
                               "atftp --option 'blksize SIZE' --get -r 'NAME' -l fetched ADDRESS 69"}};

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    const auto at = text.find(what);
    return at == std::string::npos ? text : text.replace(at, what.size(), with);
}

Bytes fetch(const Client& client, const std::string& name, std::optional<int> size) {
    std::filesystem::remove("fetched");
    std::string command =
        replaced(size ? client.with_size : client.plain, "SIZE", std::to_string(size.value_or(0)));
    command = replaced(command, "ADDRESS", own_address(1));
    const bool url = command.find("tftp://") != std::string::npos;  // where '?' begins a query
    command = replaced(command, "NAME", url ? replaced(name, "?", "%3F") : name);
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    std::ifstream file("fetched", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class ForeignClients : public DriverBench {
    TemporaryFolder folder_;
};

TEST_F(ForeignClients, FetchTheSameBytes) {
    for (const Client& client : clients)
        if (std::system(("command -v " + std::string(client.name) + " >/dev/null").c_str()) != 0)
            GTEST_SKIP() << client.name << " is not installed: scripts/install-packages test";
    std::vector<Config> configs;  // enough of them to share their pictures: no clock in those
    for (std::size_t i = 1; i <= 5; ++i) {
        configs.push_back({own_address(i)});
        configs.back().sensor_width = 640;
        configs.back().sensor_height = 480;
    }
    Fleet fleet(configs);
    fleet.start();
    connect(configs[0].address);
    ASSERT_TRUE(frames(1));
    const Bytes driver_frame = delivered().front();
    ASSERT_EQ(device->m_wModel, 105);

    for (const auto size :
         {std::optional(1450), std::optional(1024), std::optional(512), std::optional<int>()}) {
        TftpClient own(configs[0].address);
        const Reply reply = own.fetch(picture, size);
        ASSERT_TRUE(reply.complete);
        Bytes whole;
        for (const Bytes& block : reply.blocks)
            whole.insert(whole.end(), block.begin(), block.end());
        ASSERT_GT(reply.payload.size(), 2000U);
        EXPECT_NE(
            std::search(driver_frame.begin(), driver_frame.end(), reply.payload.begin(), reply.payload.end()),
            driver_frame.end());
        for (const Client& client : clients) {
            SCOPED_TRACE(std::string(client.name) + " " + (size ? std::to_string(*size) : "without option"));
            EXPECT_TRUE(fetch(client, picture, size) == whole);
            EXPECT_EQ(fetch(client, model_register, size), (Bytes{0, 105}));
        }
    }
}

}  // namespace
}  // namespace plendix::camera::test
