// Values are printed in columns, the settings of "param" one a line and interfaces one a line.
#include "check/print.h"
#include "check/text.h"
#include "check/values.h"
#include "check/walk.h"
#include "core/config_settings.h"

#include <cstring>

namespace {

std::string origin_text(const check_setting &setting) {
    switch (setting.origin) {
    case CHECK_DEFAULT:
        return "default";
    case CHECK_CHANGED:
        return "the file says " + setting.given;
    case CHECK_NO_SECTION:
        return "no \"param\" in the file";
    default:
        return "";
    }
}

// A line whose columns end where nothing follows.
void print_line(FILE *out, std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    (void)fprintf(out, "%s\n", line.c_str());
}

std::string padded(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text + "  ";
}

void print_bridges(FILE *out, const config &record) {
    (void)fprintf(out, "\nbridges: %u\n", record.bridge_num);
    for (uint32_t i = 0; i < record.bridge_num; i++) {
        const config_bridge &bridge = record.bridges[i];
        const bool loop = (bridge.flags & CONFIG_LOOP_AVOIDANCE) != 0;
        const bool path = (bridge.flags & CONFIG_PATH_SELECTION) != 0;
        print_line(out, "  " + padded(check_printable(check_field(bridge.name)), 15) + (loop ? "loop avoidance" : "") +
                            (loop && path ? ", " : "") + (path ? "path selection" : "") +
                            (loop || path ? "" : "nothing"));
    }
}

void print_param(FILE *out, const check_report &report) {
    (void)fprintf(out, "\nparam:\n");
    for (const check_setting &setting : report.param) {
        std::string value = check_value_text(setting);
        if (setting.row->unit[0] != '\0')
            value += std::string(" ") + setting.row->unit;
        print_line(out, "  " + padded(setting.row->key, 23) + padded(value, 14) + origin_text(setting));
    }
}

// What the file says in other words than the record, for an interface's line.
std::string changes(const check_entry &entry) {
    std::string text;
    for (const check_setting &setting : entry.settings) {
        if (setting.origin == CHECK_CHANGED)
            text += (text.empty() ? "" : ", ") + std::string(setting.row->key) + ": " + origin_text(setting);
    }
    return text;
}

std::string port_flags(const config_interface &port, bool is_overwritten) {
    std::string text = port.is_nonrelay() ? "nonrelay" : "relay";
    text += is_overwritten ? "*" : "";
    text += port.path != 0 ? " path" : "";
    return text + (port.needha != 0 ? " needha" : "");
}

void print_interfaces(FILE *out, const check_report &report) {
    const config &record = report.record;
    (void)fprintf(out, "\ninterfaces: %u\n", record.interface_num);
    if (record.interface_num > 0)
        print_line(out, "  " + padded("name", 15) + padded("type", 8) + padded("group", 5) + padded("class", 5) +
                            padded("priority", 8));
    bool is_any_overwritten = false;
    for (uint32_t i = 0; i < record.interface_num; i++) {
        const config_interface &port = record.interfaces[i];
        const check_entry &entry = report.interfaces[i];
        const std::string name = check_field(port.name);
        const bool is_overwritten = check_is_relay_overwritten(record, port);
        is_any_overwritten |= is_overwritten;
        const std::string key = name == entry.key ? "" : "from " + check_quoted(entry.key);
        print_line(out, "  " + padded(check_printable(name), 15) + padded(CONFIG_LINK_NAMES[port.type], 8) +
                            padded(std::to_string(port.compat_group), 5) + padded(std::to_string(port.class_), 5) +
                            padded(std::to_string(port.priority), 8) + padded(port_flags(port, is_overwritten), 21) +
                            key + (key.empty() || changes(entry).empty() ? "" : ", ") + changes(entry));
    }
    if (is_any_overwritten)
        print_line(out, "  * until its bridge is programmed; then work mode and traffic decide");
}

void print_couples(FILE *out, const check_report &report) {
    (void)fprintf(out, "\ncouples: %u\n", report.record.couple_num);
    for (uint32_t i = 0; i < report.record.couple_num; i++) {
        const config_couple &couple = report.record.couples[i];
        print_line(out, "  " + padded(check_printable(check_field(couple.lan)), 15) +
                            check_printable(check_field(couple.guest)));
    }
}

void print_left_out(FILE *out, const check_report &report) {
    if (report.left_out.empty())
        return;
    (void)fprintf(out, "\nleft out:\n");
    for (const check_left_out &entry : report.left_out)
        print_line(out, "  " + padded(entry.section, 10) + check_quoted(entry.key) + ": " + entry.reason);
}

} // namespace

void check_print_findings(FILE *out, std::string_view file, const check_report &report) {
    for (const check_finding &finding : report.findings)
        (void)fprintf(out, "%s:%zu:%zu: %s: %s [%s]\n", check_printable(file).c_str(), finding.line, finding.column,
                      check_level_name(finding.level), finding.text.c_str(), finding.code);
}

void check_print_values(FILE *out, const check_report &report) {
    if (!report.starts)
        (void)fprintf(out, "kolt does not start with this file. But for what keeps it, it would run with:\n");
    else if (report.record.enable != 1)
        (void)fprintf(out, "kolt is disabled and ends at once. Enabled, it would run with:\n");
    else
        (void)fprintf(out, "kolt runs with:\n");
    print_bridges(out, report.record);
    print_param(out, report);
    print_interfaces(out, report);
    print_couples(out, report);
    print_left_out(out, report);
}
