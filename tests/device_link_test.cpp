// The link to one camera, packet by packet.
#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>

#include "support/scripted_camera.h"

namespace plendix {
namespace {

class DeviceLink : public Bench {
protected:
    void begin() { expect("getreg?page=3;reg=122;"); }
    void expect_log(const std::string& text) {
        EXPECT_THAT(host.log_lines(), testing::ElementsAre(testing::StartsWith(text)));
        host.clear();
    }
};

TEST_F(DeviceLink, TakesWhatBelongsToTheTransferFromTheTransferPort) {
    EXPECT_EQ(request(), "\0\1getreg?page=3;reg=122;\0netascii\0blksize\0001450\0"s);
    send("\0\3\0\1\0\x69"s, "");  // no options acknowledged yet
    for (const unsigned opcode : {0U, 1U, 2U, 4U, 5U, 7U, 0x103U, 0x600U})
        send(word(opcode) + word(1) + "no", "");
    answer(205);
    expect("getreg?page=3;reg=123;");  // on port 69 again
    send("\0\3\0\2\xF2\0"s, "");       // a stray block of the transfer before
    EXPECT_EQ(device->m_wModel, 205);
    EXPECT_EQ(device->m_wFirmware, 0);
    EXPECT_TRUE(host.events().empty());
    device->Read(static_cast<char>(200));  // numbered alike whether char is signed or not
    expect("getreg?page=3;reg=-56;");
    device->Write(static_cast<char>(255), 65535);
    expect("setreg?page=3;reg=-1;val=65535;");
}

TEST_F(DeviceLink, TakesTheBlockSizeFromOptionsInsideTheDatagramOnly) {
    std::string lists =  // with / for NUL
        "blksize/1024/=1024 tsize/9/blksize/8/x/y/=8 blksize/66986/=1450 blksize/1024=1024 blksize/0/=0 "
        "blksize/512/=512 tsize/9/=512 blksize/=512 blksize=512 tsize=512 /blksize/1024/=512 //=512 ";
    std::replace(lists.begin(), lists.end(), '/', '\0');
    std::istringstream cases(lists);
    std::string list;
    for (int size = 0; std::getline(cases, list, '=') && cases >> size; cases.get()) {
        renew();
        begin();
        grant();  // leaves a longer, valid list behind in the receive buffer
        device->m_wBlockSize = 512;
        options(list);
        EXPECT_EQ(device->m_wBlockSize, size) << list;
        if (size != 512) data(1, "ab");
    }
}

TEST_F(DeviceLink, TakesRepliesOfAnyLength) {
    begin();
    for (std::size_t length = 0; length < 4; ++length) {  // no packet at all
        send(std::string("\0\3\0", length), "");
        begin();
        expect_log("50 " + own_address() + " received invalid packet length " + std::to_string(length));
    }
    grant();
    data(1, word(105) + std::string(1448, 'x'));
    EXPECT_EQ(device->m_wModel, 105);
    expect("");  // a full block is not the last one
    data(2, "");
    for (const auto& [payload, value] : {std::pair{"", 0}, {"\xF2", 0xF200}}) {
        expect("getreg?page=3;reg=123;");
        grant();
        data(1, payload);
        EXPECT_EQ(device->m_wFirmware, value);
    }
}

TEST_F(DeviceLink, ClosesOnFailuresAndTriesAgain) {
    begin();
    grant();
    char packet[] = "\0\3\0\2\0\x69";
    EXPECT_EQ(device->Dispatch(packet, 6, {AF_INET, 0, {}, {}}), 0);  // port 0 takes no acknowledgement
    expect_log("75 " + own_address() + " send error 22");
    EXPECT_EQ(device->m_wModel, 0);
    for (const bool resolvable : {false, true, false}) {
        device->m_sAddress = resolvable ? "255.255.255.255" : "bad..host";
        pass();
        if (resolvable) pass();  // opened first, then asked
        expect_log(resolvable ? "75 255.255.255.255 send error " : "75 bad..host get host by name error ");
        EXPECT_EQ(device->m_Socket, -1);
    }
    device->m_sAddress = own_address();
    device->Open();
    device->Request(std::string(5000, 'n').c_str());
    expect_log("75 " + own_address() + " request name too long");
    begin();
}

TEST_F(DeviceLink, ClosesSocketsThatSelectCannotWatch) {
    const rlimit limit = {FD_SETSIZE + 100, FD_SETSIZE + 100};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP() << "may not open so many files";
    const auto take = [] { return open("/dev/null", O_RDONLY); };
    std::vector<int> taken;
    do
        taken.push_back(take());
    while (taken.back() >= 0 && taken.back() < FD_SETSIZE - 1);
    EXPECT_FALSE(device->Open());
    expect_log("75 " + own_address() + " create socket error 24");
    EXPECT_EQ(take(), FD_SETSIZE);  // nothing was left open
    std::for_each(taken.begin(), taken.end(), close);
    begin();
}

}  // namespace
}  // namespace plendix
