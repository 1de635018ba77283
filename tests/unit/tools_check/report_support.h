// Reports of texts, in short.
#pragma once

#include "check/inspect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

// "line:column level code" of each finding.
inline std::vector<std::string> places(const check_report &report) {
    std::vector<std::string> lines;
    for (const check_finding &finding : report.findings)
        lines.push_back(std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " +
                        check_level_name(finding.level) + " " + finding.code);
    return lines;
}

inline std::vector<std::string> places(std::string_view text) {
    return places(*check_inspect(text));
}

// "code: text" of each finding.
inline std::vector<std::string> findings(const check_report &report) {
    std::vector<std::string> lines;
    for (const check_finding &finding : report.findings)
        lines.push_back(std::string(finding.code) + ": " + finding.text);
    return lines;
}

inline std::vector<std::string> findings(std::string_view text) {
    return findings(*check_inspect(text));
}

// A file in which nothing is to be found, with further members in "param", "interfaces" and "backhual".
inline std::string file_with(const std::string &param, const std::string &interfaces = "",
                             const std::string &couples = "") {
    return R"({"enable": true, "bridges": {"br-lan": {"loop_avoidance": true}}, "param": {"period": 5)" +
           (param.empty() ? "" : ", " + param) + R"(}, "interfaces": {)" + interfaces + R"(}, "backhual": {)" +
           couples + "}}";
}

inline std::vector<std::string> findings_with(const std::string &param, const std::string &interfaces = "",
                                              const std::string &couples = "") {
    return findings(file_with(param, interfaces, couples));
}
