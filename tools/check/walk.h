// The steps of an inspection: each looks at one section of the file, in the order in which the daemon reads them.
#pragma once

#include "check/report.h"
#include "check/scan.h"

#include <json-c/json.h>
#include <string>
#include <string_view>

struct check_walk {
    std::string_view text;
    json_object *file;           // the parsed text; what keeps the daemon from starting is taken out of it
    const check_value *root;     // its places
    const check_member *nowhere; // stands for a place that is not found
    check_report *report;

    void add(size_t at, check_level level, const char *code, std::string text_of_it) const {
        report->findings.push_back({at, level, code, std::move(text_of_it), 0, 0});
    }
};

// The object "name" of the file with its places; `object` is null when there is no such object, after a finding if the
// key is there all the same.
struct check_part {
    json_object *object = nullptr;
    const check_member *place = nullptr;
};
[[nodiscard]] check_part check_find_part(const check_walk &walk, const char *name);

// The place of a member that the tree has.
[[nodiscard]] const check_member &check_place(const check_walk &walk, const check_value &object, std::string_view key);

// The file's own keys, and what stands beside JSON in it.
void check_walk_file(const check_walk &walk);
void check_walk_oddities(const check_walk &walk, const check_scan &scan);

void check_walk_bridges(const check_walk &walk);

// Reads "param" of the record as it is loaded.
void check_walk_param(const check_walk &walk);

// Notes which members are kept and why others are not. An interface without a valid type is taken out of the tree.
void check_walk_interfaces(const check_walk &walk);
void check_walk_couples(const check_walk &walk);

// Leaves out an entry that finds the daemon's array full. Of those of a section it is said once.
void check_leave_out_past(const check_walk &walk, uint32_t capacity, const char *section, const char *key,
                          const check_member &place);

// What can only be said of the record as a whole: path selection that nothing flushes for, equal names, missing
// partners, VLAN ids that no name takes.
void check_walk_record(const check_walk &walk);
void check_walk_vlan_ids(const check_walk &walk);

// Findings about the keys of one object of the section: repeated, unknown or misspelt ones.
void check_keys(const check_walk &walk, const check_value &object, config_section section, const char *where);

// Findings about a repeated key alone.
void check_repeated_keys(const check_walk &walk, const check_value &object, const char *where);

// Findings about a name of the record that no interface of the kernel can have. `whole` is the name before it was cut.
void check_name(const check_walk &walk, size_t at, std::string_view name, std::string_view whole);

// A name field's text.
[[nodiscard]] std::string check_field(const char (&name)[KOLT_NAME_SIZE]);
