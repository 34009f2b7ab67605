#include "field/socket_drops.h"

#include <arpa/inet.h>

#include <charconv>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

namespace plendix {
namespace {

constexpr std::size_t local_column = 1, inode_column = 9, drops_column = 12;
constexpr std::size_t most_sums = 4096;

template <class Number>
std::optional<Number> number_of(const std::string& text, int base) {
    Number number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && stop == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// "0100007F:0045": the address is shown as the machine reads the four bytes of the network.
std::optional<Endpoint> socket_of(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    const auto address = number_of<std::uint32_t>(text.substr(0, colon), 16);
    const auto port = number_of<std::uint16_t>(text.substr(colon + 1), 16);
    return address && port ? std::optional(Endpoint{ntohl(*address), *port}) : std::nullopt;
}

}  // namespace

SocketDrops::SocketDrops(std::filesystem::path table) : table_(std::move(table)), counters_(read()) {}

std::map<std::uint64_t, SocketDrops::Counter> SocketDrops::read() const {
    std::map<std::uint64_t, Counter> counters;
    std::ifstream file(table_);
    std::string line;
    for (std::getline(file, line); std::getline(file, line);) {  // behind the titles
        std::istringstream words(line);
        std::vector<std::string> columns;
        for (std::string word; words >> word;)
            columns.push_back(word);
        if (columns.size() <= drops_column) continue;
        const auto socket = socket_of(columns[local_column]);
        const auto inode = number_of<std::uint64_t>(columns[inode_column], 10);
        const auto drops = number_of<std::uint64_t>(columns[drops_column], 10);
        if (socket && inode && drops) counters[*inode] = {*socket, *drops};
    }
    return counters;
}

std::vector<DropNote> SocketDrops::look(const std::function<bool(const Endpoint& socket)>& wanted) {
    auto counters = read();
    if (sums_.size() >= most_sums) sums_.clear();
    for (const auto& [inode, counter] : counters) {
        const auto before = counters_.find(inode);
        const std::uint64_t had = before == counters_.end() ? 0 : before->second.drops;
        // The counter has 32 bits, and may come around.
        if (counter.drops != had)
            sums_[counter.socket].total += static_cast<std::uint32_t>(counter.drops - had);
    }
    counters_ = std::move(counters);
    std::vector<DropNote> notes;
    for (auto& [socket, sum] : sums_) {
        if (sum.total == sum.told || !wanted(socket)) continue;
        notes.push_back({socket, sum.total, sum.total - sum.told});
        sum.told = sum.total;
    }
    return notes;
}

}  // namespace plendix
