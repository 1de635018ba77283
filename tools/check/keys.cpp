// Keys and names that are not what they were meant to be.
#include "check/spelling.h"
#include "check/text.h"
#include "check/walk.h"
#include "core/config_settings.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr const char *SECTIONS[] = {"bridges", "param", "interfaces", "backhual"};
constexpr const char *OWNERS[] = {"the file itself", "a bridge", "\"param\"", "an interface", "a couple"};

std::vector<const char *> keys_of(config_section section) {
    std::vector<const char *> keys;
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (row.section == section)
            keys.push_back(row.key);
    }
    if (section == CONFIG_TOP)
        keys.insert(keys.end(), std::begin(SECTIONS), std::end(SECTIONS));
    return keys;
}

bool is_key(config_section section, std::string_view key) {
    const std::vector<const char *> keys = keys_of(section);
    return std::any_of(keys.begin(), keys.end(), [&](const char *known) { return key == known; });
}

// What to do about an unknown key, empty when nothing comes near.
std::string advice(config_section section, std::string_view key) {
    for (const config_section other : {CONFIG_TOP, CONFIG_BRIDGE, CONFIG_PARAM, CONFIG_INTERFACE, CONFIG_COUPLE}) {
        if (other != section && is_key(other, key))
            return std::string("; it belongs to ") + OWNERS[other];
    }
    const char *near = check_suggestion(key, keys_of(section));
    return near != nullptr ? "; did you mean \"" + std::string(near) + "\"?" : "";
}

bool is_kernel_name(std::string_view name) {
    const bool is_fine = std::none_of(
        name.begin(), name.end(), [](char c) { return c == '/' || c == ':' || c == ' ' || (c >= '\t' && c <= '\r'); });
    return !name.empty() && name != "." && name != ".." && is_fine;
}

} // namespace

void check_repeated_keys(const check_walk &walk, const check_value &object, const char *where) {
    for (size_t i = 1; i < object.by_key.size(); i++) {
        const check_member &first = object.members[object.by_key[i - 1]];
        const check_member &again = object.members[object.by_key[i]];
        if (first.key == again.key)
            walk.add(again.at, CHECK_WARNING, "repeated-key",
                     check_quoted(again.key) + " stands in " + where + " before; only the last one counts");
    }
}

void check_keys(const check_walk &walk, const check_value &object, config_section section, const char *where) {
    check_repeated_keys(walk, object, where);
    for (const check_member &member : object.members) {
        if (!is_key(section, member.key))
            walk.add(member.at, CHECK_WARNING, "unknown-key",
                     check_quoted(member.key) + " is no setting of " + where + advice(section, member.key));
    }
}

void check_name(const check_walk &walk, size_t at, std::string_view name, std::string_view whole) {
    if (whole.size() > name.size())
        walk.add(at, CHECK_WARNING, "long-name",
                 check_quoted(whole) + " is cut to " + check_quoted(name) + ": a name has at most 15 characters");
    else if (name.size() >= KOLT_NAME_SIZE)
        walk.add(at, CHECK_WARNING, "long-name",
                 check_quoted(name) + " is no name of the kernel's, which have at most 15 characters");
    else if (!is_kernel_name(name))
        walk.add(at, CHECK_WARNING, "bad-name", check_quoted(name) + " is no name that the kernel gives to anything");
}

std::string check_field(const char (&name)[KOLT_NAME_SIZE]) {
    return {name, strnlen(name, KOLT_NAME_SIZE)};
}
