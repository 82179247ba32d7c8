#include "common/nearest_name.h"

#include <algorithm>

namespace framehold {

namespace {

/// Optimal string alignment distance (Damerau-Levenshtein, no substring edited twice).
size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> beforeLast(b.size() + 1);
    std::vector<size_t> last(b.size() + 1);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, changed});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
    }
    return row[b.size()];
}

/// True if `word` is a shortened `name`: its first three or more characters.
bool shortens(std::string_view word, std::string_view name) {
    return word.size() >= 3 && name.substr(0, word.size()) == word;
}

}  // namespace

std::string nearestName(std::string_view word, const std::vector<std::string>& names) {
    std::string nearest;
    size_t fewest = 1 + std::max<size_t>(1, word.size() / 3);
    for (const std::string& name : names) {
        const size_t distance = shortens(word, name) ? 1 : editDistance(word, name);
        if (distance < fewest) {
            fewest = distance;
            nearest = name;
        }
    }
    return nearest;
}

}  // namespace framehold
