// The known word that somebody may have meant who wrote an unknown one.
#pragma once

#include <algorithm>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace plendix {

/// How many letters one has to insert, take out, replace or swap with the next to make `right` of `wrong`.
inline std::size_t word_distance(const std::string& wrong, const std::string& right) {
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last(right.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 0; i < wrong.size(); ++i) {
        std::vector<std::size_t> row{i + 1};
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t replaced = last[j] + (wrong[i] == right[j] ? 0 : 1);
            row.push_back(std::min({replaced, last[j + 1] + 1, row[j] + 1}));
            const bool swapped = i > 0 && j > 0 && wrong[i] == right[j - 1] && wrong[i - 1] == right[j];
            if (swapped) row.back() = std::min(row.back(), before_last[j - 1] + 1);
        }
        before_last = std::exchange(last, std::move(row));
    }
    return last.back();
}

/// The nearest of the known words; empty when none is near: more than a third of its letters,
/// and more than one, would have to change.
inline std::string nearest_word(const std::string& word, const std::vector<std::string>& known) {
    constexpr std::size_t longest = 100;  // letters of a word that is worth comparing
    std::string nearest;
    std::size_t least = longest;
    if (word.size() > longest) return nearest;
    for (const auto& candidate : known) {
        const std::size_t distance = word_distance(word, candidate);
        if (distance >= least || distance > std::max<std::size_t>(1, candidate.size() / 3)) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

}  // namespace plendix
