// Registers, transfers, refusals and trailers of the simulated camera, over real sockets.
#include <list>

#include "support/camera_bench.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

TEST_F(CameraBench, AnswersWritesWithTheValueTheyThenHold) {
    start();
    const std::array<int, 4> cases[] = {{2, 99, 49, 49},      {111, 16, 65535, 65535}, {70, 0, 5, 0},
                                        {73, 1200, 99, 1200}, {122, 105, 5, 105},      {123, 61750, 1, 61750},
                                        {9999, 0, 7, 7}};
    for (const auto& [number, before, written, held] : cases) {
        EXPECT_EQ(client.read(number), before) << number;
        EXPECT_EQ(client.write(number, written), held) << number;
        EXPECT_EQ(client.read(number), held) << number;
    }
}

TEST_F(CameraBench, TransfersWithEveryBlockSizeAndCounts) {
    start();
    std::uint64_t blocks = 1, acknowledgements = 1;  // of the register read at the end
    const std::optional<int> sizes[] = {1450, 512, 94, 65464, std::nullopt};
    for (const auto size : sizes) {
        const Reply reply = client.fetch("image?res=half;quality=8;", size);
        ASSERT_TRUE(reply.complete);
        EXPECT_EQ(reply.granted, size);
        blocks += reply.blocks;
        acknowledgements += reply.blocks + (size ? 1 : 0);
    }
    client.read(122);
    const Counters counters = fleet->counters(0);
    EXPECT_EQ(counters.requests, std::size(sizes) + 1);
    EXPECT_EQ(counters.frames, std::size(sizes));
    EXPECT_EQ(counters.key_frames, std::size(sizes));
    EXPECT_EQ(counters.blocks, blocks);
    EXPECT_GE(counters.acknowledgements, acknowledgements);  // one more is on its way
    EXPECT_EQ(counters.register_reads, 1U);

    start({}, most_live_cameras + 1);  // every client gets the same pictures
    const std::string name = "image?res=half;quality=8;";
    const int payload = static_cast<int>(client.fetch(name).payload.size());
    for (const int spare : {-1, 0, 1})
        EXPECT_EQ(TftpClient(own_address(1)).fetch(name, payload + spare).blocks, spare < 0 ? 3U : 2U);
}

TEST_F(CameraBench, KeepsInStepWithAcknowledgements) {
    TftpClient other(own_address(1));
    Bytes data;
    const auto expect_blocks = [&](int first, int last) {
        for (int number = first; number <= last; ++number)
            EXPECT_EQ(client.receive(data), std::make_pair(3, number));
        EXPECT_EQ(other.read(122), 105);  // served behind all that came before
        EXPECT_FALSE(client.waits(0)) << "more than asked for";
    };
    start();
    const Bytes read_model = read_request("getreg?page=3;reg=122;", std::nullopt);
    client.request(read_model);
    expect_blocks(1, 1);
    client.request(read_request("image?quality=2;", std::nullopt, "OCTET"));
    expect_blocks(1, 1);  // instead of the register
    client.acknowledge(1);
    expect_blocks(2, 2);
    for (const int number : {1, 7, 2})  // repeated, not sent yet, awaited
        client.acknowledge(number);
    expect_blocks(3, 3);
    std::list<TftpClient> crowd;
    while (crowd.size() < 32)
        EXPECT_EQ(crowd.emplace_back(own_address(1)).read(122), 105);
    client.acknowledge(3);
    expect_blocks(4, 4);  // transfers that are finished take no room
    for (const bool silence : {false, true}) {
        client.request(read_request("image?quality=2;", std::nullopt));
        expect_blocks(1, 1);
        silence ? fleet->inject(0, {FaultKind::silent, true}) : client.acknowledge(0, 5);
        client.acknowledge(1);
        expect_blocks(2, 1);  // ended, by an ERROR of the client or because the camera forgot it
    }

    Behaviour behaviour;
    behaviour.burst = 4;
    start({}, 1, behaviour);
    client.request(read_request("image?quality=8;", 1450));
    ASSERT_EQ(client.receive(data).first, 6);
    client.acknowledge(0);
    expect_blocks(1, 4);
    client.acknowledge(2);  // takes 1 with it
    expect_blocks(5, 6);
    client.acknowledge(1);
    expect_blocks(7, 6);
    for (TftpClient& unfinished : crowd)
        unfinished.request(read_model);
    EXPECT_EQ(other.read(122), 105);
    client.acknowledge(3);
    expect_blocks(7, 6);  // given up for the others
}

TEST_F(CameraBench, AnswersWhatCannotBeServedWithAnError) {
    start();
    constexpr int not_found = 1, access = 2, illegal = 4, option = 8;
    std::vector<std::pair<Bytes, int>> cases{{{0}, illegal},
                                             {{0, 9, 0, 0}, illegal},
                                             {{0, 1, 'i', '?', 0}, illegal},
                                             {{0, 2, 'a', 0, 'o', 'c', 't', 'e', 't', 0}, access},
                                             {read_request("image?", 1450, "mail"), illegal}};
    for (const int size : {7, 90, 65465})
        cases.emplace_back(read_request("image?", size), option);
    cases.emplace_back(read_request("h264?", 93), option);
    for (const char* name :
         {"passwd", "image", "image?res=third;", "image?quality=27;", "image?x0=1600;x1=1700;",
          "image?x0=-1;", "image?x0;", "h264?x0=0;x1=31;res=half;", "h264?qp=0;", "getreg?page=2;reg=1;",
          "setreg?page=3;reg=1;val=65536;"})
        cases.emplace_back(read_request(name, 1450), not_found);
    for (const auto& [request, error] : cases)
        EXPECT_EQ(client.fetch(request, 1450).error, error) << std::string(request.begin(), request.end());
    EXPECT_EQ(fleet->counters(0).errors, cases.size());
    EXPECT_EQ(client.value("getreg?page=3;colour=red;reg=122;"), 105) << "unknown keys are ignored";
}

TEST(Fleets, HoldCamerasApartAndTellWhatCannotBeBound) {
    std::vector<std::string> lines;
    Config odd{own_address(2)};
    odd.registers[2] = 11;
    Fleet fleet({Config{own_address(1)}, odd}, [&lines](const std::string& line) { lines.push_back(line); });
    fleet.start();
    TftpClient first(own_address(1)), second(own_address(2));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(first.write(25, 32), 32);
    EXPECT_EQ(second.write(79, 5), 5);
    EXPECT_EQ(first.read(79), 0);
    EXPECT_EQ(second.read(2), 11);
    EXPECT_EQ(std::make_pair(fleet.relay(0), fleet.relay(1)), std::make_pair(1, -1));
    fleet.set_trigger(0, true);
    EXPECT_EQ(first.read(25), 32) << "the relay, until a poll asks for the trigger";
    EXPECT_EQ(first.write(25, 48), 48);
    EXPECT_EQ(first.read(25), 1);
    EXPECT_THAT([&] { Fleet again({odd}); },
                testing::ThrowsMessage<Failure>(testing::StartsWith(odd.address + " port 69: in use")));
    fleet.stop();
    EXPECT_EQ(lines, (std::vector{own_address(1) + " relay high", own_address(2) + " register 79 = 5"}));
}

TEST_F(CameraBench, DescribesItsPicturesInTheTrailer) {
    Config config;
    config.mac = {2, 0, 0, 0, 0, 9};
    start(config);
    const std::pair<const char*, Bytes> cases[] = {
        {"image?res=full;x0=0;y0=0;x1=1600;y1=1184;quality=8;doublescan=0;",
         {4, 8, 0, 0, 0, 0, 6, 64, 4, 160}},
        {"image?res=full;x0=320;y0=16;x1=9999;y1=9999;quality=8;", {4, 8, 1, 64, 0, 16, 6, 64, 4, 176}},
        {"image?res=half;x0=1;y0=0;x1=100;y1=51;quality=8;", {0, 8, 0, 1, 0, 0, 0, 99, 0, 50}}};
    for (const auto& [name, flags_quality_and_area] : cases) {
        const Bytes trailer = client.fetch(name).trailer;
        ASSERT_EQ(trailer.size(), 90U) << name;
        EXPECT_EQ(Bytes(trailer.begin() + 6, trailer.begin() + 12), (Bytes{2, 0, 0, 0, 0, 9})) << name;
        EXPECT_EQ(Bytes(trailer.begin() + 80, trailer.end()), flags_quality_and_area) << name;
    }
}

TEST_F(CameraBench, BeginsWithAKeyFrameWheneverTheStreamIsAnother) {
    start();
    TftpClient other(own_address(1));
    const auto keys = [](TftpClient& from, const std::vector<std::string>& names) {
        std::string seen;
        for (const std::string& name : names)
            seen += from.fetch(name).trailer.at(92) != 0 ? 'K' : '-';
        return seen;
    };
    const std::string first = "h264?qp=30;ssn=1;iframe=0;", other_number = "h264?qp=30;ssn=2;iframe=0;";
    const std::string other_qp = "h264?qp=31;ssn=2;", part = other_qp + "x1=640;", half = part + "res=half;";
    EXPECT_EQ(keys(client, {first, first, other_number, other_qp, other_qp, part, half}), "K-KK-KK");
    EXPECT_EQ(keys(other, {half, half + "iframe=1;", half + "iframe=0;"}), "KK-");
}

}  // namespace
}  // namespace plendix::camera::test
