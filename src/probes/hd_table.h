// Pointing the entries of the HD table at another link.
#pragma once

#include "core/link_type.h"
#include "core/names.h"

#include <array>
#include <cstdint>

// The link that a port belongs to, as path selection tables it: one record a link type.
struct kolt_link_record {
    char name[KOLT_NAME_SIZE] = {};
    uint32_t index = 0; // of the record whose flag decides whether the port's entries are added again
    uint8_t flag = 0;
};
using link_records = std::array<kolt_link_record, KOLT_LINK_COUNT>;

// The first of the five records whose name is that of the kernel interface `ifindex`, or null.
kolt_link_record *kolt_get_link_stats_by_port(link_records &records, uint32_t ifindex);

// Adds every HD entry whose port is among the five records again, on the interface of record `target`. 1, or 0 after a
// message when the table cannot be fetched.
int kolt_update_hd_table(const char *bridge, link_records &records, kolt_link_type target);
