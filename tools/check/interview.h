// Questions to the camera, asked again where the network or the camera failed once. One thread.
#pragma once

#include <list>
#include <optional>

#include "check/fetch.h"
#include "link/picture.h"

namespace plendix::check {

/// A picture as it came, and what becomes of it.
struct Shot {
    link::FileName asked;
    Fetched fetched;
    link::Trailer trailer;
    link::Bytes file;     // as the driver delivers it; empty where it would withhold the picture
    std::string trouble;  // why it cannot be judged
    bool good() const { return trouble.empty(); }
};

class Interview {
public:
    explicit Interview(Examination& examination) : examination_(examination) {}

    /// A socket of its own, which is kept, so that what comes late is seen.
    Conversation& open();

    Fetched ask(const Request& request) { return ask(open(), request); }
    Fetched ask(Conversation& conversation, const Request& request);

    /// Nothing where it is not answered with two bytes. `trouble()` tells why then.
    std::optional<std::uint16_t> read(int number);
    std::optional<std::uint16_t> write(int number, std::uint16_t value);
    const std::string& trouble() const { return trouble_; }

    Shot shoot(Conversation& conversation, const link::FileName& picture, bool optional = false);

    /// Gives what is still on its way its time, and notes what came behind the ends of transfers.
    void look_behind();

    Examination& examination() const { return examination_; }
    Findings& findings() const { return examination_.findings; }

private:
    std::optional<std::uint16_t> value(const std::string& name);

    Examination& examination_;
    std::list<Conversation> conversations_;
    std::string trouble_;
};

}  // namespace plendix::check
