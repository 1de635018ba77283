// Expectations on the fatal paths: what the process says last, and its exit status.
#pragma once

#include <gtest/gtest.h>

#include <string>

// `text` as a regular expression that matches it alone.
inline std::string literally(const std::string &text) {
    std::string pattern;
    for (const char character : text) {
        if (std::string_view(".[]{}()*+?^$|\\").find(character) != std::string_view::npos)
            pattern += '\\';
        pattern += character;
    }
    return pattern;
}

// The line that `function` logs with `text`, as the last that stands on standard error.
inline std::string last_line(const std::string &function, const std::string &text) {
    return "(^|\n)" + function + ":[0-9]+: " + literally(text) + "\n$";
}

#define EXPECT_FATAL(statement, function, text)                                                                        \
    EXPECT_EXIT(statement, testing::ExitedWithCode(1), last_line(function, text))
