#include "probe/probe_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "check/check_run.h"
#include "host/command_values.h"
#include "host/signals.h"
#include "probe/addresses.h"
#include "probe/prober.h"
#include "probe/report.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds least_timeout{300}, longest_timeout{60'000};
constexpr int most_reads = 10'000;
constexpr std::size_t worth_a_progress = 512;  // addresses: what takes more than two rounds
constexpr milliseconds progress_period{500};

struct ProbeOptions {
    std::vector<std::string> words;
    std::string timeout = "4s";
    ProbeWish wish;
    bool json = false;
    bool all = false;
    bool check = false;
    bool relay = false;
};

ProbeWish wish_of(const ProbeOptions& options) {
    ProbeWish wish = options.wish;
    wish.timeout = parse_duration(options.timeout);
    if (wish.timeout < least_timeout || wish.timeout > longest_timeout)
        throw UsageError("--timeout " + options.timeout + " is not from 0.3s to 60s");
    if (wish.reads < 0 || wish.reads > most_reads)
        throw UsageError("--reads " + std::to_string(wish.reads) + " is not from 0 to 10000");
    return wish;
}

/// One line of a terminal, written over and over.
class ProgressLine {
public:
    ProgressLine(std::size_t addresses, const StopSignals& signals)
        : shown_(addresses >= worth_a_progress && isatty(STDERR_FILENO) == 1), signals_(signals) {}

    bool operator()(const ProbeProgress& progress) {
        if (shown_ && Clock::now() >= next_) {
            next_ = Clock::now() + progress_period;
            std::cerr << '\r' << progress.done << " of " << progress.all << " addresses, " << progress.cameras
                      << (progress.cameras == 1 ? " camera " : " cameras ") << std::flush;
        }
        return !signals_.requested();
    }
    void end() const {
        if (shown_) std::cerr << "\r\x1B[K" << std::flush;
    }

private:
    bool shown_;
    const StopSignals& signals_;
    Clock::time_point next_ = Clock::now();
};

/// Every address once, in the order of the command line.
ProbeResult result_of(const std::vector<AskedFor>& asked, bool all) {
    ProbeResult result;
    std::set<std::uint32_t> seen;
    for (const AskedFor& word : asked) {
        for (const std::uint32_t address : word.addresses) {
            if (seen.insert(address).second) result.addresses.push_back(address);
            if (all || !word.range) result.named.insert(address);
        }
    }
    return result;
}

/// Each address that was named alone is a camera that the driver takes, and one is in each range.
bool all_found(const std::vector<AskedFor>& asked, const ProbeResult& result) {
    std::set<std::uint32_t> cameras;
    for (std::size_t i = 0; i < result.findings.size(); ++i)
        if (result.findings[i].what == What::camera) cameras.insert(result.addresses[i]);
    return std::all_of(asked.begin(), asked.end(), [&cameras](const AskedFor& word) {
        return std::any_of(word.addresses.begin(), word.addresses.end(),
                           [&cameras](std::uint32_t address) { return cameras.count(address) > 0; });
    });
}

int probe(const ProbeOptions& options) {
    const ProbeWish wish = wish_of(options);
    const std::vector<AskedFor> asked = parse_addresses(options.words);
    ProbeResult result = result_of(asked, options.all);
    const StopSignals signals;
    ProgressLine progress(result.addresses.size(), signals);
    const auto begin = Clock::now();
    result.findings = probe_addresses(result.addresses, wish, std::ref(progress));
    result.duration = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    progress.end();
    options.json ? print_findings_json(std::cout, result) : print_findings(std::cout, result);
    std::cout << std::flush;
    if (!std::cout) throw Failure("cannot write to standard output");
    return all_found(asked, result) ? exit_done : exit_failed;
}

int check(const ProbeOptions& options, bool timeout_given) {
    if (options.words.size() != 1)
        throw UsageError("--check takes one address, not " + std::to_string(options.words.size()));
    CheckWish wish;
    wish.address = parse_address(options.words.front());
    parse_addresses(options.words);  // refuses what no camera has
    if (timeout_given) wish.patience = wish_of(options).timeout;
    wish.relay = options.relay;
    wish.json = options.json;
    return check_camera(wish);
}

}  // namespace

void add_probe_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<ProbeOptions>();
    CLI::App* command =
        app.add_subcommand("probe", "Tell what is at an address: a camera, and which, or what else");
    command->description(
        "Asks each address, many at once, and tells what is there: nobody, something that is no camera,\n"
        "a camera that the driver refuses, or a camera: model, firmware, MAC address, sensor, largest\n"
        "picture, highest rate, codecs, motion zones, level of the trigger input, round-trip time and the\n"
        "loss over 100 register reads. It writes no register. A camera that serves a recorder at the same\n"
        "time may lose a picture by it.");
    command->footer(
        "Examples:\n"
        "  plendix probe 192.168.1.20\n"
        "  plendix probe 192.168.1.0/24                 or 192.168.1.20-192.168.1.40; a /16 at most\n"
        "  plendix probe 192.168.1.20 --reads 1000      the loss more exactly\n"
        "  plendix probe 192.168.1.0/24 --json\n"
        "  plendix probe --check 192.168.1.20           whether it keeps the rules of the camera protocol\n"
        "In a range, addresses without anybody are counted. A camera at which no whole picture comes has no\n"
        "MAC address here. Exit codes: 0 each address is a camera that the driver takes, and each range has\n"
        "one; 1 not so; 2 wrong usage.");
    command->add_option("address", options->words, "IPv4 addresses and ranges of them")->required();
    const CLI::Option* timeout =
        command
            ->add_option("--timeout", options->timeout,
                         "how long a first answer, or a part of a picture, is waited for, 0.3s to 60s; with "
                         "--check each packet, 2s without this")
            ->capture_default_str();
    command
        ->add_option("--reads", options->wish.reads,
                     "register reads for the loss, 0 to 10000; 0 leaves it out; those without an answer "
                     "within 300 ms are lost")
        ->capture_default_str();
    command->add_flag("--write", options->wish.write,
                      "write register 25, as the driver does twice a second, so that the camera samples its "
                      "trigger input");
    command->add_flag("--all", options->all, "list the addresses without anybody, too");
    command->add_flag("--json", options->json, "one JSON object");
    auto* check_flag = command->add_flag(
        "--check", options->check,
        "put the rules of the camera protocol to one camera, for those who build cameras: PASS, FAIL or SKIP "
        "for each. It writes registers, restores them except 79 and 25 (setup and trigger input, which the "
        "driver writes at each connection), and takes pictures; exit code 1 is a FAIL");
    command->add_flag("--relay", options->relay, "with --check: switch the relay, too")->needs(check_flag);
    for (const char* other : {"--reads", "--write", "--all"})
        command->get_option(other)->excludes(check_flag);
    command->callback([options, timeout, &chosen] {
        const bool given = timeout->count() > 0;
        chosen = [options, given] { return options->check ? check(*options, given) : probe(*options); };
    });
}

}  // namespace plendix
