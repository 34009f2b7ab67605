#include "host/answer_words.h"

#include <algorithm>

#include "host/plain_text.h"

namespace plendix {
namespace {

constexpr std::size_t longest_message = 60;

}  // namespace

std::string answer_words(const link::OddAnswer& answer) {
    using link::Oddity;
    switch (answer.kind) {
        case Oddity::echo:
            return "our own request comes back: an echo service or a loop";
        case Oddity::no_options:
            return "a TFTP server without the block size option answers";
        case Oddity::block_size:
            return "a TFTP server answers that grants no block size but 512";
        case Oddity::too_long:
            return "another TFTP server sends a file";
        case Oddity::error: {
            const std::string words(answer.first.begin(),
                                    std::find(answer.first.begin(), answer.first.end(), std::uint8_t{0}));
            return "another TFTP server answers ('" + cut(printable(words), longest_message) + "')";
        }
        case Oddity::meaningless:
        case Oddity::none:
            break;
    }
    return "something sends " + std::to_string(answer.size) + " bytes that mean nothing";
}

}  // namespace plendix
