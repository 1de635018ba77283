#include "check/spelling.h"

#include <algorithm>
#include <vector>

namespace {

constexpr size_t LONGEST = 40; // no setting has a key as long, and the work grows with the square

char small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Up to a third of the letters, but not all of a short word.
size_t tolerance(std::string_view word) {
    return std::clamp<size_t>(word.size() / 3, 1, 4);
}

} // namespace

size_t check_distance(std::string_view a, std::string_view b) {
    // Three rows of the table of distances between the fronts of both: two back, one back, and the one being filled.
    std::vector<size_t> older(b.size() + 1);
    std::vector<size_t> old(b.size() + 1);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        std::swap(older, old);
        std::swap(old, row);
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const bool same = small(a[i - 1]) == small(b[j - 1]);
            row[j] = std::min({old[j] + 1, row[j - 1] + 1, old[j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && small(a[i - 1]) == small(b[j - 2]) && small(a[i - 2]) == small(b[j - 1]))
                row[j] = std::min(row[j], older[j - 2] + 1);
        }
    }
    return row[b.size()];
}

const char *check_suggestion(std::string_view word, std::span<const char *const> words) {
    if (word.size() > LONGEST)
        return nullptr;
    const char *nearest = nullptr;
    size_t least = tolerance(word) + 1;
    for (const char *candidate : words) {
        const size_t distance = check_distance(word, candidate);
        if (distance < least && distance < std::string_view(candidate).size()) {
            least = distance;
            nearest = candidate;
        }
    }
    return nearest;
}
