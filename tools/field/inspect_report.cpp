#include "field/inspect_report.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <ostream>

#include "field/datagram.h"
#include "host/plain_text.h"
#include "host/words.h"

namespace plendix {
namespace {

using Row = std::vector<std::string>;

constexpr std::size_t most_lines = 40;

/// The first column is left-aligned, the others right-aligned.
void print_table(std::ostream& out, const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], columns_of(row[i]));
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string blanks(widths[i] - columns_of(row[i]), ' ');
            line += i == 0 ? row[i] + blanks : "  " + blanks + row[i];
        }
        out << line << '\n';
    }
    out << '\n';
}

std::string moment_words(std::int64_t time_ns, bool utc, bool day) {
    const auto seconds = static_cast<std::time_t>(time_ns / second_in_ns);
    std::tm parts{};
    utc ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t length =
        std::strftime(text.data(), text.size(), day ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", &parts);
    const auto rest = static_cast<int>(time_ns % second_in_ns / 1'000'000);
    return std::string(text.data(), length) + '.' + std::to_string(1000 + rest).substr(1) + (utc ? "Z" : "");
}

std::string milliseconds(const Delays& delays, double share) {
    const double value = delays.quantile(share) / 1e6;
    return delays.count() == 0 ? "-" : fixed(value, value < 10 ? 2 : value < 100 ? 1 : 0);
}

double seconds_of_pictures(const LinkCounts& counts) {
    return static_cast<double>(nanoseconds_between(counts.first_ns, counts.last_ns)) / 1e9;
}

double picture_rate(const LinkCounts& counts) {
    const double seconds = seconds_of_pictures(counts);
    return counts.whole < 2 || seconds <= 0 ? 0 : static_cast<double>(counts.whole - 1) / seconds;
}

double mean_bytes(const LinkCounts& counts) {
    return counts.whole == 0 ? 0 : static_cast<double>(counts.bytes) / static_cast<double>(counts.whole);
}

double megabits(const LinkCounts& counts) {
    return picture_rate(counts) * mean_bytes(counts) * 8 / 1e6;
}

bool several_clients(const Findings& findings) {
    return std::any_of(findings.pairs.begin(), findings.pairs.end(), [&](const Findings::Pair& pair) {
        return pair.client != findings.pairs.front().client;
    });
}

class Text {
public:
    Text(std::ostream& out, const Findings& findings, const ReportOptions& options)
        : out_(out), findings_(findings), options_(options), clients_(several_clients(findings)) {}

    void print() {
        print_head();
        if (findings_.pairs.empty()) return;
        print_requests();
        print_pictures();
        print_losses();
        options_.all ? print_all() : print_folded();
    }

private:
    std::string moment(std::int64_t time_ns, bool day = false) const {
        return moment_words(time_ns, options_.utc, day);
    }
    std::string name(std::uint32_t camera, std::uint32_t client) const {
        return address_text(camera) + (clients_ && client != 0 ? " < " + address_text(client) : "");
    }
    std::string name(const Findings::Pair& pair) const { return name(pair.camera, pair.client); }
    std::string first_column() const { return clients_ ? "camera < client" : "camera"; }

    void print_head() {
        out_ << printable(options_.file) << ": " << findings_.datagrams << " datagrams";
        if (findings_.datagrams > 0) {
            const auto length = nanoseconds_between(findings_.first_ns, findings_.last_ns);
            out_ << ", " << moment(findings_.first_ns, true) << " to " << moment(findings_.last_ns) << ", "
                 << fixed(static_cast<double>(length) / 1e9, 1) << " s";
        }
        out_ << '\n';
        for (const std::string& remark : options_.remarks)
            out_ << remark << '\n';
        if (findings_.pairs.empty())
            out_ << "no request to a camera (UDP port 69) is in it\n";
        else
            out_ << '\n';
    }

    void print_requests() {
        std::vector<Row> rows{{first_column(), "requests", "answered", "reads", "writes", "answer ms", "99 %",
                               "block ms", "99 %"}};
        for (const auto& pair : findings_.pairs) {
            const LinkCounts& counts = pair.counts;
            rows.push_back({name(pair), std::to_string(counts.requests), std::to_string(counts.answered),
                            std::to_string(counts.reads), std::to_string(counts.writes),
                            milliseconds(counts.answers, 0.5), milliseconds(counts.answers, 0.99),
                            milliseconds(counts.blocks, 0.5), milliseconds(counts.blocks, 0.99)});
        }
        print_table(out_, rows);
    }

    void print_pictures() {
        std::vector<Row> rows{{first_column(), "pictures", "whole", "lost", "unknown", "per second", "Mbit/s",
                               "mean kB", "largest kB"}};
        for (const auto& pair : findings_.pairs) {
            const LinkCounts& counts = pair.counts;
            rows.push_back({name(pair), std::to_string(counts.pictures), std::to_string(counts.whole),
                            std::to_string(counts.all_lost()), std::to_string(counts.unknown),
                            fixed(picture_rate(counts), 2), fixed(megabits(counts), 2),
                            fixed(mean_bytes(counts) / 1e3, 1),
                            fixed(static_cast<double>(counts.largest) / 1e3, 1)});
        }
        print_table(out_, rows);
    }

    /// Causes that are nobody's in this capture have no column.
    void print_losses() {
        LinkCounts sum;
        for (const auto& pair : findings_.pairs) {
            for (std::size_t i = 0; i < losses; ++i)
                sum.lost[i] += pair.counts.lost[i];
            sum.either += pair.counts.either;
            sum.confirmed_late += pair.counts.confirmed_late;
        }
        if (sum.all_lost() == 0) {
            out_ << "no picture was lost\n\n";
            return;
        }
        std::vector<Row> rows{{"lost pictures"}};
        for (std::size_t i = 0; i < losses; ++i)
            if (sum.lost[i] > 0) rows.front().push_back(loss_name(static_cast<Loss>(i)));
        for (const auto& pair : findings_.pairs)
            if (pair.counts.all_lost() > 0) rows.push_back(loss_row(name(pair), pair.counts, sum));
        if (rows.size() > 2) rows.push_back(loss_row("all", sum, sum));
        print_table(out_, rows);
        if (sum.either > 0)
            out_ << "of these, " << sum.either
                 << " may have been lost in either direction: see docs/field.md\n\n";
        if (sum.confirmed_late > 0)
            out_ << "the kernel's drop counter confirms " << sum.confirmed_late << " of ours late\n\n";
    }

    static Row loss_row(const std::string& title, const LinkCounts& counts, const LinkCounts& sum) {
        Row row{title};
        for (std::size_t i = 0; i < losses; ++i)
            if (sum.lost[i] > 0) row.push_back(std::to_string(counts.lost[i]));
        return row;
    }

    void print_line(const Incident& incident, const std::string& more) {
        const std::string who = incident.camera == 0 ? "-" : name(incident.camera, incident.client);
        const std::size_t width = clients_ ? 33 : 15;
        const std::string blanks(width > who.size() ? width - who.size() : 0, ' ');
        out_ << moment(incident.time_ns) << "  " << who << blanks << "  " << printable(words_of(incident))
             << more << '\n';
    }

    void print_all() {
        for (const Incident& incident : findings_.incidents.sorted())
            print_line(incident, "");
        const std::uint64_t kept = findings_.incidents.sorted().size();
        if (kept < findings_.incidents.count())
            out_ << "and " << findings_.incidents.count() - kept << " more, which are not kept\n";
    }

    void print_folded() {
        const auto lines = findings_.incidents.folded();
        for (std::size_t i = 0; i < std::min(lines.size(), most_lines); ++i) {
            const Folded& line = lines[i];
            const std::string more =
                " (and " + std::to_string(line.count - 1) + " like it until " + moment(line.until_ns) + ')';
            print_line(line.first, line.count == 1 ? "" : more);
        }
        if (lines.size() > most_lines)
            out_ << "and " << lines.size() - most_lines << " lines more: --verbose prints all\n";
    }

    std::ostream& out_;
    const Findings& findings_;
    const ReportOptions& options_;
    const bool clients_;
};

}  // namespace

void print_findings(std::ostream& out, const Findings& findings, const ReportOptions& options) {
    Text(out, findings, options).print();
    out << std::flush;
}

}  // namespace plendix
