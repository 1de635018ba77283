#include "check/inspect.h"

#include "check/scan.h"
#include "check/text.h"
#include "check/walk.h"
#include "core/config_load.h"
#include "core/json.h"
#include "core/log.h"

#include <algorithm>

namespace {

constexpr char NOT_JSON[] = "not-json";

using tokener_ptr = kolt_handle<json_tokener, json_tokener_free>;

void refuse(check_report *report, size_t at, std::string text) {
    report->starts = false;
    report->findings.push_back({at, CHECK_ERROR, NOT_JSON, std::move(text), 0, 0});
}

void refuse_text(check_report *report, std::string_view text, json_tokener *tokener) {
    const json_tokener_error error = json_tokener_get_error(tokener);
    const size_t end = json_tokener_get_parse_end(tokener);
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos)
        refuse(report, 0, "the file is empty: the daemon does not start");
    else if (error == json_tokener_success)
        refuse(report, 0, "the file holds null: the daemon does not start");
    else if (error == json_tokener_continue)
        refuse(report, text.size(), "the file ends in the middle of a value: the daemon does not start");
    else if (end < text.size() && text[end] == '\0')
        refuse(report, end, "no JSON, a zero byte: the daemon does not start");
    else
        refuse(report, end, std::string("no JSON, ") + json_tokener_error_desc(error) + ": the daemon does not start");
}

// As the daemon's loader reads a file.
json_ptr parse(check_report *report, std::string_view text) {
    const tokener_ptr tokener(json_tokener_new());
    json_ptr file(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    if (!file)
        refuse_text(report, text, tokener.get());
    return file;
}

void load(config *record, json_object *file) {
    const int32_t level = log_level;
    log_level = KOLT_LOG_QUIET; // the report says what the log would
    config_load_tree(record, file);
    log_level = level;
}

void inspect_object(const check_scan &scan, std::string_view text, json_object *file, check_report *report) {
    const check_member nowhere;
    const check_walk walk = {.text = text, .file = file, .root = &scan.root, .nowhere = &nowhere, .report = report};
    check_walk_oddities(walk, scan);
    check_walk_interfaces(walk); // takes out what the daemon would not start with
    load(&report->record, file);
    check_walk_file(walk);
    check_walk_bridges(walk);
    check_walk_param(walk);
    check_walk_couples(walk);
    check_walk_record(walk);
    check_walk_vlan_ids(walk);
}

// A zero byte inside an object can leave the parser with one of its members, which it takes for the whole.
void refuse_part(check_report *report, std::string_view text) {
    report->starts = false;
    report->findings.push_back({std::min(text.find('\0'), text.size()), CHECK_ERROR, NOT_JSON,
                                "no JSON, a zero byte: the daemon takes a part of the file for the whole", 0, 0});
}

void inspect_file(std::string_view text, json_object *file, check_report *report) {
    if (const std::optional<check_scan> scan = check_scan_object(text))
        inspect_object(*scan, text, file, report);
    else if (json_object_is_type(file, json_type_object))
        refuse_part(report, text);
    else
        report->findings.push_back({0, CHECK_WARNING, "wrong-type",
                                    "the file should hold an object; what it holds counts as an empty one", 0, 0});
}

} // namespace

std::unique_ptr<check_report> check_inspect(std::string_view text) {
    auto report = std::make_unique<check_report>();
    if (const json_ptr file = parse(report.get(), text))
        inspect_file(text, file.get(), report.get());
    check_place_findings(text, &report->findings);
    return report;
}

bool check_is_read(const check_report &report) {
    return report.findings.empty() || report.findings.front().code != std::string_view(NOT_JSON);
}
