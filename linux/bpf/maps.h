// The maps of the traffic control programs. What they hold and who writes what is said in records.h.
#pragma once

#include "records.h"

#include <linux/bpf.h>

#include <bpf/bpf_helpers.h>

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u32);
} layout SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, KOLT_MAX_PORTS);
    __type(key, __u32);
    __type(value, struct kolt_port_entry);
} ports SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, KOLT_MAX_LINKS);
    __type(key, __u32);
    __type(value, struct kolt_port_identity);
} identities SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, KOLT_MAX_HD);
    __type(key, struct kolt_hd_key);
    __type(value, __u32);
} hd SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, KOLT_MAX_STREAMS);
    __type(key, struct kolt_stream_key);
    __type(value, __u32);
} stream_slots SEC(".maps");

// Where a stream was found last: a guess that is checked, and dies with the programs. An array is read without a call
// into the kernel, `stream_slots` is not.
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, KOLT_MAX_STREAMS);
    __type(key, __u32);
    __type(value, __u32);
} last_slots SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, KOLT_MAX_STREAMS);
    __type(key, __u32);
    __type(value, struct kolt_stream);
} streams SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_STACK);
    __uint(max_entries, KOLT_MAX_STREAMS);
    __type(value, __u32);
} free_slots SEC(".maps");

// Clients that have left the place they were given, until kolt-bridged takes note.
struct {
    __uint(type, BPF_MAP_TYPE_QUEUE);
    __uint(max_entries, KOLT_MAX_ROAMED);
    __type(value, struct kolt_hd_key);
} roamed SEC(".maps");
