// Places in a text.
#include "check/finding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::vector<std::pair<size_t, size_t>> placed(std::string_view text, std::initializer_list<size_t> offsets) {
    std::vector<check_finding> findings;
    for (const size_t at : offsets)
        findings.push_back({at, CHECK_NOTE, "code", "text", 0, 0});
    check_place_findings(text, &findings);
    std::vector<std::pair<size_t, size_t>> places;
    for (const check_finding &finding : findings)
        places.emplace_back(finding.line, finding.column);
    return places;
}

using place = std::pair<size_t, size_t>;

} // namespace

TEST(Place, LinesAndColumnsCountFromOne) {
    EXPECT_THAT(placed("ab\n\ncd", {0, 1, 2, 3, 4, 5}),
                testing::ElementsAre(place{1, 1}, place{1, 2}, place{1, 3}, place{2, 1}, place{3, 1}, place{3, 2}));
}

TEST(Place, FindingsComeInTheOrderOfTheText) {
    EXPECT_THAT(placed("a\nb", {2, 0, 2}), testing::ElementsAre(place{1, 1}, place{2, 1}, place{2, 1}));
}

TEST(Place, ColumnsCountCharactersNotBytes) {
    EXPECT_THAT(placed("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80x", {9}), testing::ElementsAre(place{1, 4}));
}

TEST(Place, CarriageReturnBelongsToItsLine) {
    EXPECT_THAT(placed("a\r\nb", {1, 2, 3}), testing::ElementsAre(place{1, 2}, place{1, 3}, place{2, 1}));
}

TEST(Place, EndAndWhatIsPastItAreTheEnd) {
    EXPECT_THAT(placed("ab", {2, 99}), testing::ElementsAre(place{1, 3}, place{1, 3}));
}
