// The file as a whole, and the sections whose members are all kept.
#include "check/text.h"
#include "check/values.h"
#include "check/walk.h"
#include "core/config_settings.h"
#include "core/json.h"

#include <cstring>

namespace {

constexpr char NO_OBJECT[] = "should be an object; what it is counts as an empty one";

void check_enable(const check_walk &walk) {
    const config_setting &row = CONFIG_SETTINGS.front();
    static_assert(CONFIG_SETTINGS.front().section == CONFIG_TOP);
    const check_section section = {.text = walk.text,
                                   .object = walk.file,
                                   .places = walk.root,
                                   .at = walk.root->begin,
                                   .record = &walk.report->record,
                                   .findings = &walk.report->findings};
    if (check_read_setting(section, row).origin == CHECK_DEFAULT)
        walk.add(walk.root->begin, CHECK_WARNING, "missing-setting",
                 "\"enable\" is missing: the daemon ends at once, as one that is disabled");
}

void check_missing_section(const check_walk &walk, const char *name, const char *effect) {
    if (walk.root->find(name) == nullptr)
        walk.add(walk.root->begin, CHECK_WARNING, "missing-section", check_quoted(name) + " is missing: " + effect);
}

const char *oddity_text(check_oddity oddity) {
    switch (oddity) {
    case CHECK_COMMENT:
        return "a comment";
    case CHECK_TRAILING_COMMA:
        return "a comma behind the last member";
    case CHECK_SINGLE_QUOTES:
        return "text in single quotes";
    case CHECK_CONTROL_CHARACTER:
        return "a control character in a text";
    case CHECK_BAD_UTF8:
        return "bytes that are no UTF-8";
    case CHECK_WORD:
        return "a word that is none of true, false and null in small letters";
    case CHECK_NUMBER:
        return "a number that is not written as JSON writes numbers";
    default:
        return "text behind the end of the object";
    }
}

void walk_bridge(const check_walk &walk, const char *key, json_object *value, const check_member &place) {
    if (!json_object_is_type(value, json_type_object))
        walk.add(place.value.begin, CHECK_WARNING, "wrong-type", check_quoted(key) + " " + NO_OBJECT);
    check_keys(walk, place.value, CONFIG_BRIDGE, "a bridge");
    check_name(walk, place.at, check_field(walk.report->record.bridges[walk.report->bridges.size()].name), key);
    const check_section section = {
        .text = walk.text, .object = value, .places = &place.value, .at = place.at, .findings = &walk.report->findings};
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (row.section == CONFIG_BRIDGE)
            check_other_setting(section, row);
    }
    walk.report->bridges.push_back({key, place.at, {}});
}

} // namespace

const check_member &check_place(const check_walk &walk, const check_value &object, std::string_view key) {
    const check_member *found = object.find(key);
    return found != nullptr ? *found : *walk.nowhere;
}

check_part check_find_part(const check_walk &walk, const char *name) {
    const check_member *place = walk.root->find(name);
    json_object *object = json_member(walk.file, name);
    if (place == nullptr || json_object_is_type(object, json_type_object))
        return {.object = place != nullptr ? object : nullptr, .place = place};
    walk.add(place->value.begin, CHECK_WARNING, "wrong-type", check_quoted(name) + " " + NO_OBJECT);
    return {.object = nullptr, .place = place};
}

void check_walk_oddities(const check_walk &walk, const check_scan &scan) {
    for (size_t i = 0; i < scan.oddities.size(); i++) {
        const auto oddity = static_cast<check_oddity>(i);
        if (scan.oddities[i])
            walk.add(*scan.oddities[i], CHECK_NOTE, "odd-json",
                     std::string(oddity_text(oddity)) +
                         (oddity == CHECK_MORE_TEXT
                              ? ": the daemon does not read it, other programs may refuse the file"
                              : ": the daemon takes it, other programs may refuse the file"));
    }
}

void check_walk_file(const check_walk &walk) {
    check_keys(walk, *walk.root, CONFIG_TOP, "the file");
    check_enable(walk);
    if (walk.report->record.enable != 1)
        return;
    check_missing_section(walk, "bridges", "no bridge is managed");
    check_missing_section(walk, "param",
                          "all its settings are 0 or off, also those that are something else by default");
    check_missing_section(walk, "interfaces", "no port is known");
}

void check_walk_bridges(const check_walk &walk) {
    const check_part part = check_find_part(walk, "bridges");
    if (part.object == nullptr)
        return;
    check_repeated_keys(walk, part.place->value, "\"bridges\"");
    json_object_object_foreach(part.object, key, value) {
        const check_member &place = check_place(walk, part.place->value, key);
        if (walk.report->bridges.size() == CONFIG_MAX_BRIDGES) {
            check_leave_out_past(walk, CONFIG_MAX_BRIDGES, "bridges", key, place);
            continue;
        }
        walk_bridge(walk, key, value, place);
    }
}

void check_walk_param(const check_walk &walk) {
    const check_part part = check_find_part(walk, "param");
    if (part.object != nullptr)
        check_keys(walk, part.place->value, CONFIG_PARAM, "\"param\"");
    const check_section section = {.text = walk.text,
                                   .object = json_member(walk.file, "param"),
                                   .places = part.object != nullptr ? &part.place->value : nullptr,
                                   .at = part.place != nullptr ? part.place->at : walk.root->begin,
                                   .record = &walk.report->record.param,
                                   .findings = &walk.report->findings};
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (row.section == CONFIG_PARAM)
            walk.report->param.push_back(check_read_setting(section, row));
    }
}
