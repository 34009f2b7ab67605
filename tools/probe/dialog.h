// What a probe asks one address, step by step, and what it makes of the answers: told what arrives and
// what time it is, it tells what to send. It writes no register unless it is told to. No socket and no
// clock; one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "link/file_name.h"
#include "link/inquiry.h"
#include "probe/finding.h"

namespace plendix {
namespace link {
struct Trailer;
}

struct ProbeWish {
    std::chrono::milliseconds timeout{4000};  // for a first answer, and for each packet of a picture
    int reads = 100;                          // for the loss
    bool write = false;                       // register 25, so that it samples the input
};

class ProbeDialog {
public:
    using Time = link::Inquiry::Time;

    struct Outgoing {
        link::Bytes bytes;
        std::uint16_t port;  // at the address
        int question;        // each is asked from a port of its own: nothing late is taken for its answer
    };

    ProbeDialog(const ProbeWish& wish, Time now);

    /// A datagram from the address that came to the port of the latest question.
    void take(link::View datagram, std::uint16_t port, Time now);
    /// What the network or the system said of the latest question.
    void fail(int error, Time now);
    void tick(Time now);

    bool done() const { return done_; }
    /// When `tick` is due. Requires that it is not done.
    Time deadline() const;
    /// What is to be sent next, also at the end; to be asked after each call, until there is nothing.
    std::optional<Outgoing> outgoing();
    /// Complete when it is done.
    const Finding& finding() const { return finding_; }

private:
    enum class Kind { model, firmware, setting, jpeg, h264, sample, input, reading };
    struct Question {
        Kind kind;
        int number = 0;      // of the register
        bool again = false;  // its first answer was of no use
    };

    void ask(Time now);
    void turn(Time now);
    void learn(Time now);
    void learn_model();
    void learn_firmware();
    void learn_setting(const Question& question);
    void learn_picture(const Question& question);
    void judge_trailer(const link::Trailer& trailer, bool asked_h264);
    void explain_missing_picture(const Question& question);
    void learn_reading(Time now);
    void judge_sensor();
    void plan_rest();
    void finish();
    std::optional<std::uint16_t> answer() const;
    void note_times(Time now);
    std::string name_of(const Question& question) const;
    link::Patience patience_of(const Question& question) const;
    link::FileName small_picture(bool h264) const;

    const ProbeWish wish_;
    const Time end_;
    std::deque<Question> plan_{{Kind::model}};
    Question asked_{Kind::model};
    int questions_ = 0;
    Time asked_at_;
    std::optional<link::Inquiry> inquiry_;
    std::deque<Outgoing> outgoing_;
    int unanswered_ = 0;                            // questions in a row
    std::vector<double> round_trips_, read_times_;  // milliseconds
    bool done_ = false;
    Finding finding_;
};

}  // namespace plendix
