#include "tools/options/Suggestion.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace calcut::tools {

namespace {

std::size_t editDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string suggestion(const std::string& word, const std::vector<std::string>& names) {
    std::string best;
    std::size_t least = std::max<std::size_t>(2, word.size() / 2);
    for (const std::string& name : names) {
        const bool begun = name.rfind(word, 0) == 0;
        const std::size_t distance = begun ? 0 : editDistance(word, name);
        if (distance < least) {
            least = distance;
            best = name;
        }
    }
    return best.empty() ? std::string() : " (did you mean " + best + "?)";
}

}  // namespace calcut::tools
