// What is on the bus: clients, the objects they have added, the events these listen for.
#pragma once

#include "wire.h"

// Bounds of what clients can have the broker hold.
constexpr int MAX_CLIENTS = 256;
constexpr int MAX_OBJECTS_PER_CLIENT = 32;
constexpr int MAX_PATTERNS_PER_OBJECT = 32;
constexpr size_t MAX_QUEUED_BYTES = size_t{2} * UBUS_MAX_MSGLEN;

struct bus_client {
    list_head list;
    uloop_fd sock;
    uint32_t id;
    bool closing; // it gets and sends nothing any more, and is released at the next turn of the loop

    ubus_wire_input input;
    char *out; // what the socket has not taken yet: out_len bytes from out_start
    size_t out_start;
    size_t out_len;
    size_t out_capacity;

    list_head objects;
    int n_objects;
};

struct bus_object {
    list_head list;
    uint32_t id;
    uint16_t invoke_seq; // of the last event sent to it
    list_head patterns;
    int n_patterns;
};

// An event's name, or what it begins with.
struct bus_pattern {
    list_head list;
    bool prefix;
    size_t len;
    char *text; // not terminated
};

// All clients, also those that are closing.
extern list_head bus_clients;

// A number that no client and no object has, out of the range of the broker's own objects.
uint32_t bus_new_id();

// A new object of `client`, owned by it; null without memory or when it has as many as it may.
[[nodiscard]] bus_object *bus_add_object(bus_client &client);

// Removes the object and its patterns.
void bus_remove_object(bus_client &client, bus_object *object);

// The object of that id, which belongs to `client`, or with a null client to anyone; null when there is none.
[[nodiscard]] bus_object *bus_find_object(const bus_client *client, uint32_t id);

// Has the object listen for a name, or with a `*` at the end a beginning. Returns a status code.
[[nodiscard]] int bus_add_pattern(bus_object &object, const char *text);

// Whether the object listens for the event of that name.
[[nodiscard]] bool bus_listens(const bus_object &object, const char *name);
