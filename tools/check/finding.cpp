#include "check/finding.h"

#include <algorithm>

const char *check_level_name(check_level level) {
    constexpr const char *NAMES[] = {"error", "warning", "note"};
    return NAMES[level];
}

void check_place_findings(std::string_view text, std::vector<check_finding> *findings) {
    std::stable_sort(findings->begin(), findings->end(),
                     [](const check_finding &a, const check_finding &b) { return a.at < b.at; });
    size_t at = 0;
    size_t line = 1;
    size_t column = 1;
    for (check_finding &finding : *findings) {
        for (; at < std::min(finding.at, text.size()); at++) {
            if (text[at] == '\n') {
                line++;
                column = 1;
                continue;
            }
            // The later bytes of a UTF-8 character are no characters of their own.
            if ((static_cast<unsigned char>(text[at]) & 0xc0) != 0x80)
                column++;
        }
        finding.line = line;
        finding.column = column;
    }
}
