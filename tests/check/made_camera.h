// A camera as small as the protocol allows, whose every answer a test can change, and the thread that
// lends it a socket.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <thread>

#include "link/picture.h"
#include "support/camera_bench.h"

namespace plendix::camera::test {

struct Answer {
    Bytes packet;
    bool from_request_port = false;
};

/// Answers each datagram to port 69 of own_address(1), and each to its transfer port, until it goes.
class Answering {
public:
    using Answers = std::function<std::vector<Answer>(const Bytes& datagram)>;
    explicit Answering(Answers answers) : answers_(std::move(answers)) {}
    ~Answering() {
        stop_ = true;
        thread_.join();
    }

private:
    void run() {
        Bytes request, other;
        Endpoint client;
        while (!stop_) {
            pollfd waiting[] = {{requests_.descriptor(), POLLIN, 0}, {transfers_.descriptor(), POLLIN, 0}};
            poll(waiting, 2, 10);
            const bool asked = receive(requests_, request, client);
            for (Endpoint sender; receive(transfers_, other, sender);)  // sent before the request
                answer(other, sender);
            if (asked) answer(request, client);
        }
    }
    static bool receive(const UdpSocket& socket, Bytes& datagram, Endpoint& from) {
        datagram.assign(65536, 0);
        const auto size = socket.receive(datagram.data(), datagram.size(), from);
        datagram.resize(static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0)));
        return size >= 0;
    }
    void answer(const Bytes& datagram, const Endpoint& client) const {
        for (const Answer& one : answers_(datagram))
            (one.from_request_port ? requests_ : transfers_)
                .send(one.packet.data(), one.packet.size(), client);
    }

    const Answers answers_;
    std::atomic<bool> stop_{false};
    UdpSocket requests_{own_address(1), 69}, transfers_{own_address(1), 0};
    std::thread thread_{[this] { run(); }};
};

inline Bytes oack(const std::string& size) {
    std::string text = std::string("\0\6blksize\0", 10) + size + '\0';
    return Bytes(text.begin(), text.end());
}

inline Bytes data(std::size_t number, const Bytes& content) {
    Bytes packet{0, 3, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    packet.insert(packet.end(), content.begin(), content.end());
    return packet;
}

/// Grey pictures of 640 x 480 pixels, whatever is asked for; what a test changes is public.
struct MadeCamera {
    std::map<int, int> registers{{2, 99},  {15, 3},     {16, 2},   {72, 640},  {73, 480},
                                 {109, 1}, {110, 1028}, {111, 16}, {122, 105}, {123, 61750}};
    std::map<int, int> stuck;  // registers that answer this whatever is written
    std::function<void(Bytes& jpeg)> spoil_jpeg = [](Bytes&) {};
    std::function<void(Bytes& slice, bool key)> spoil_slice = [](Bytes&, bool) {};
    std::function<void(Bytes& trailer)> spoil_trailer = [](Bytes&) {};
    std::function<void(std::vector<Bytes>& blocks)> spoil_blocks = [](std::vector<Bytes>&) {};
    std::function<bool(const std::string& name)> mute = [](const std::string&) { return false; };
    std::function<bool(const std::string& request)> refuses = [](const std::string&) { return false; };
    std::string granted = "1450";
    std::size_t size = 1450;
    bool h264 = true, ssn_matters = true, key_on_request = true, from_request_port = false;
    bool hurried = false;   // one block ahead of the acknowledgements
    bool restless = false;  // a repeated acknowledgement brings the next block, too
    bool beyond = false;    // a block follows the last

    std::vector<Answer> operator()(const Bytes& datagram) {
        std::vector<Answer> answers;
        const std::string text(datagram.begin(), datagram.end());
        if (datagram[1] == 1 && !gone_) request(text, answers);
        if (datagram[1] == 4) acknowledged(static_cast<std::size_t>(datagram[2] << 8 | datagram[3]), answers);
        return answers;
    }

    static Bytes grey_jpeg() {
        Bytes scan{0, 0};
        constexpr int mcus = 40 * 60, interval = 16;
        for (int mcu = 0; mcu < mcus; mcu += 2) {  // two of them are whole bytes
            if (mcu > 0 && mcu % interval == 0)
                scan.insert(scan.end(), {0xFF, static_cast<std::uint8_t>(0xD0 + (mcu / interval - 1) % 8)});
            scan.insert(scan.end(), {0x28, 0xA0, 0x02, 0x8A, 0x00});
        }
        scan.insert(scan.end(), {0xFF, 0xD9});
        return scan;
    }

private:
    static std::string bits(unsigned value, unsigned count) {
        std::string text;
        while (count-- > 0)
            text += (value >> count & 1U) != 0 ? '1' : '0';
        return text;
    }
    static std::string code(unsigned value) {  // ue(v)
        unsigned length = 0;
        while ((value + 1) >> (length + 1) != 0)
            ++length;
        return std::string(length, '0') + bits(value + 1, length + 1);
    }
    Bytes slice(bool key) {
        number_ = key ? 0 : number_ + 1;
        constexpr unsigned macroblocks = 40 * 30;
        std::string text = '1' + code(key ? 7 : 5) + '1' + bits(number_ % 16, 4) + (key ? "1" : "") +
                           bits(number_ * 2 % 32, 5) + (key ? "00" : "000") + '1' + code(1);
        if (key)
            for (unsigned i = 0; i < macroblocks; ++i)
                text += "00100111";
        else
            text += code(macroblocks);
        text += '1';
        text.resize((text.size() + 7) / 8 * 8, '0');
        Bytes bytes;
        for (std::size_t i = 0; i < text.size(); i += 8) {
            const auto byte = static_cast<std::uint8_t>(std::stoi(text.substr(i, 8), nullptr, 2));
            const std::size_t end = bytes.size();
            if (byte <= 3 && end > 1 && bytes[end - 1] == 0 && bytes[end - 2] == 0) bytes.push_back(3);
            bytes.push_back(byte);
        }
        return bytes;
    }

    void request(const std::string& text, std::vector<Answer>& answers) {
        const std::string name = text.substr(2, text.find('\0', 2) - 2);
        const link::FileName file = link::parse_file_name(name);
        gone_ = mute(name);
        if (gone_) return;
        const bool served = file.kind != link::Kind::other && (h264 || file.kind != link::Kind::h264);
        if (!served || refuses(text)) return answers.push_back({{0, 5, 0, 1, 'n', 'o', 0}});
        std::string size_text = granted;
        size = text.find(std::string("blksize\0"
                                     "1024",
                                     12)) != std::string::npos
                   ? 1024
                   : 1450;
        if (size == 1024 && granted == "1450") size_text = "1024";
        blocks_ = file.picture() ? picture(file) : std::vector<Bytes>{value(file)};
        sent_ = 0;
        answers.push_back({oack(size_text), from_request_port});
        if (hurried) send(answers);
    }
    Bytes value(const link::FileName& file) {
        int& held = registers[file.number];
        if (file.value >= 0) held = file.value;
        if (file.number == 25 && file.value < 0) held = 1;
        const auto fixed = stuck.find(file.number);
        const int answer = fixed != stuck.end() ? fixed->second : held;
        return {static_cast<std::uint8_t>(answer >> 8), static_cast<std::uint8_t>(answer)};
    }
    std::vector<Bytes> picture(const link::FileName& file) {
        const bool jpeg = file.kind == link::Kind::jpeg;
        const bool key =
            jpeg || (file.key && key_on_request) || (ssn_ != file.ssn && ssn_matters) || ssn_ < 0;
        Bytes payload = jpeg ? grey_jpeg() : slice(key);
        jpeg ? spoil_jpeg(payload) : spoil_slice(payload, key);
        if (!jpeg) ssn_ = file.ssn;
        payload.resize((payload.size() + size - 1) / size * size);
        Bytes trailer(jpeg ? 90 : 93);
        const Bytes middle{4, 8, 0, 0, 0, 0, 2, 128, 1, 224};
        std::fill(trailer.begin() + 6, trailer.begin() + 12, std::uint8_t{2});
        std::copy(middle.begin(), middle.end(), trailer.begin() + 80);
        if (!jpeg) trailer[92] = key ? 1 : 0;
        spoil_trailer(trailer);
        std::vector<Bytes> blocks;
        for (std::size_t at = 0; at < payload.size(); at += size)
            blocks.emplace_back(payload.begin() + static_cast<std::ptrdiff_t>(at),
                                payload.begin() + static_cast<std::ptrdiff_t>(at + size));
        blocks.push_back(trailer);
        spoil_blocks(blocks);
        return blocks;
    }
    void send(std::vector<Answer>& answers) {
        if (sent_ >= blocks_.size() + (beyond ? 1 : 0)) return;
        const Bytes block = sent_ < blocks_.size() ? blocks_[sent_] : Bytes(7);
        ++sent_;
        answers.push_back({data(sent_, block), from_request_port});
    }
    void acknowledged(std::size_t block, std::vector<Answer>& answers) {
        if (block + (hurried ? 1 : 0) == sent_ || (restless && block + 1 == sent_)) send(answers);
    }

    std::vector<Bytes> blocks_;
    std::size_t sent_ = 0;
    unsigned number_ = 0;
    long ssn_ = -1;
    bool gone_ = false;  // it answers nothing any more
};

}  // namespace plendix::camera::test
