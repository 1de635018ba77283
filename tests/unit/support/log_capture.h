// What the code under test writes to the log, instead of syslog.
#pragma once

#include <ostream>
#include <string>
#include <vector>

struct log_line {
    int priority;
    std::string function;
    std::string text; // with its level word: "Error: socket"
    bool operator==(const log_line &) const = default;
};

std::ostream &operator<<(std::ostream &out, const log_line &line);

// All lines since the process began, or since clear_log.
const std::vector<log_line> &logged();
void clear_log();

// Only the texts, or only those that one function logged.
std::vector<std::string> logged_texts();
std::vector<std::string> logged_texts(const std::string &function);

// Sets the log level and sets it back.
class at_log_level {
public:
    explicit at_log_level(int level);
    ~at_log_level();

private:
    int before_;
};
