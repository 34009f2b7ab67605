#include "decode/decode_command.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "decode/decode.h"
#include "host/command_values.h"
#include "usage.h"

namespace plendix {
namespace {

struct DecodeOptions {
    std::vector<std::string> files;
    std::string output, request;
    std::optional<long> block_size;
    bool raw = false;
};

DecodePlan plan_of(const DecodeOptions& options) {
    DecodePlan plan;
    plan.files.assign(options.files.begin(), options.files.end());
    plan.output = options.output;
    plan.raw = options.raw;
    if (plan.output == "-") require_no_terminal("plendix decode FILE -o - | feh -");
    if (options.block_size) {
        constexpr long least = 94, most = 65464;  // above a trailer; RFC 2348
        if (*options.block_size < least || *options.block_size > most)
            throw UsageError("--block-size " + std::to_string(*options.block_size) +
                             " is not from 94 to 65464");
        plan.hints.block_size = static_cast<std::size_t>(*options.block_size);
    }
    if (options.request.empty()) return plan;
    const link::FileName name = request_of(options.request);
    if (!name.picture())
        throw UsageError("--request '" + options.request +
                         "' asks for no picture: give the name as in 'image?res=full;quality=8;'");
    plan.hints.codec = name.kind;
    return plan;
}

}  // namespace

void add_decode_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<DecodeOptions>();
    CLI::App* command = app.add_subcommand("decode", "Make pictures of raw transfers");
    command->description(
        "Takes what a TFTP client fetched from a camera, blocks and trailer one behind the other, and\n"
        "makes pictures of it: FILE.jpg of JPEG, as the driver delivers it; FILE.png of H.264. H.264\n"
        "pictures that are no key frames need all of their group in front of them, in order. The names of\n"
        "the pictures go to standard output.");
    command->footer(
        "Examples:\n"
        "  curl -s --tftp-blksize 1450 -o frame 'tftp://192.168.1.20/image%3Fres=full;quality=8;'\n"
        "  plendix decode frame                    frame.jpg\n"
        "  plendix decode key p1 p2                three pictures in a row: key.png, p1.png, p2.png\n"
        "  plendix decode key p1 p2 --raw -o group.h264\n"
        "  plendix decode frame -o - | feh -\n"
        "A file that is there already is replaced. Exit code 0: every file is a picture now; 1: one is no\n"
        "raw transfer, was cut short, lacks pictures in front of it or does not decode (a JPEG picture of\n"
        "which the decoder complains is written all the same); 2: wrong usage.");
    command->add_option("file", options->files, "raw transfers")->required();
    command->add_option("-o,--output", options->output,
                        "file for the picture (.jpg or .png), or - for standard output");
    command->add_flag(
        "--raw", options->raw,
        "the driver's own bytes, H.264 as a stream too: FILE.jpg, FILE.h264, or all of H.264 in one with -o; "
        "that JPEG decodes is not asked for then");
    command->add_option("--block-size", options->block_size,
                        "that it was fetched with; without it 1450 or another that is usual");
    command->add_option(
        "--request", options->request,
        "the name that was asked for, where the file's is another: tells JPEG and H.264 apart "
        "where the block size is not known");
    command->callback([options, &chosen] { chosen = [options] { return decode_files(plan_of(*options)); }; });
}

}  // namespace plendix
