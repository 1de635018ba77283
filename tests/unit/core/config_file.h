// Configurations given as text.
#pragma once

#include "core/config_load.h"
#include "fatal.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

constexpr char CONFIG_FILE[] = "/tmp/kolt-test.json";

// Loads `text` into `record`, as a file.
inline void load_text(config *record, std::string_view text) {
    write_file(CONFIG_FILE, text);
    config_load(record, CONFIG_FILE);
}

// The configuration that `text` gives in a record that was all zero.
inline std::unique_ptr<config> loaded(std::string_view text) {
    auto record = std::make_unique<config>();
    load_text(record.get(), text);
    return record;
}

// The text of a name field that need not have a terminator.
inline std::string field(const char (&name)[KOLT_NAME_SIZE]) {
    return {name, strnlen(name, KOLT_NAME_SIZE)};
}

// "prefix0": value, "prefix1": value, ... `count` of them.
inline std::string members(const std::string &prefix, size_t count, const std::string &value) {
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += (i == 0 ? "\"" : ", \"") + prefix + std::to_string(i) + "\": " + value;
    return text;
}
