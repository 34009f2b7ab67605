// One file asked for as the driver does, block by block, and what is wrong with how it comes.
#pragma once

#include "check/conversation.h"

namespace plendix::check {

enum class Ending {
    whole,
    refused,     // by an ERROR
    unanswered,  // not a packet
    broken       // anything else
};

struct Request {
    std::string name;
    link::Bytes packet;
    bool picture = false;
    bool optional = false;                            // the camera may refuse it, or say nothing
    std::size_t block_size = link::usual_block_size;  // that is asked for
    Rule size_rule = Rule::options_size;              // of what is granted
};

/// A file of the camera's, asked for with the driver's options.
Request request_for(const std::string& name, bool picture, bool optional = false);

struct Fetched {
    Ending ending = Ending::broken;
    std::string trouble;  // what came in place of the file, for the rules that cannot be judged
    std::size_t block_size = 0;
    std::size_t blocks = 0;  // full ones
    link::Bytes payload;     // of these
    link::Bytes last;        // the short block
    bool whole() const { return ending == Ending::whole; }
};

/// Takes a bounded time, whatever comes.
Fetched fetch(Conversation& conversation, const Request& request);

}  // namespace plendix::check
