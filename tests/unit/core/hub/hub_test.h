// The hub under test: a configuration with subscribers that record what reaches them, over fakes and a real loop.
#pragma once

#include "core/config.h"
#include "core/hub/hub.h"
#include "core/hub/stop_signals.h"
#include "core/hub/ubus_events.h"
#include "core/module.h"
#include "core/stopwatch.h"
#include "support/fixture.h"

#include <string>
#include <unistd.h>
#include <vector>

struct received_event {
    kolt_event_kind kind;
    uint32_t type;
    uint32_t len;
    bool has_payload;
    std::string data; // the `len` bytes
    bool has_data;
    config *from;
    int64_t at_ms;
};

struct recording_subscriber {
    explicit recording_subscriber(char name_) : name(name_) {
        module.event_cb = receive;
    }

    kolt_module module; // first, so that the callback finds the record
    char name;
    std::vector<received_event> events;
    std::string *order = nullptr;                              // where the callbacks write their names
    void (*act)(config *from, kolt_event_kind kind) = nullptr; // what the callback does besides

    // The events as "kind:type", one word each.
    [[nodiscard]] std::string summary() const {
        std::string words;
        for (const received_event &event : events)
            words += (words.empty() ? "" : " ") + std::to_string(event.kind) + ":" + std::to_string(event.type);
        return words;
    }

private:
    static void receive(config *from, kolt_list *sub, kolt_event_kind kind, kolt_event *event) {
        auto *self = reinterpret_cast<recording_subscriber *>(kolt_module_of_sub(sub));
        received_event record{kind, 0, 0, event != nullptr, "", false, from, monotonic_ms()};
        if (event != nullptr) {
            record.type = event->type;
            record.len = event->len;
            record.has_data = event->data != nullptr;
            if (record.has_data)
                record.data.assign(reinterpret_cast<const char *>(event->data), event->len);
        }
        self->events.push_back(record);
        if (self->order != nullptr)
            *self->order += self->name;
        if (self->act != nullptr)
            self->act(from, kind);
    }
};

class hub_test : public fixture {
protected:
    hub_test() {
        kolt_list_init(&node.modules);
        kolt_list_init(&node.ev.subscribers);
        uloop_init();
    }
    ~hub_test() override {
        for (const uloop_fd *watcher : {&node.ev.bridge_fd, &node.ev.wifi_fd, &node.ev.neigh_fd}) {
            if (watcher->fd > 0)
                close(watcher->fd);
        }
        event_return_stop_signals();
        uloop_done();
    }

    void subscribe(recording_subscriber *subscriber) {
        kolt_list_add(&node.ev.subscribers, &subscriber->module.sub);
    }
    void add_bridge(const char *name, uint32_t flags) {
        strncpy(node.bridges[node.bridge_num].name, name, KOLT_NAME_SIZE);
        node.bridges[node.bridge_num].flags = flags;
        node.bridge_num++;
    }
    config_interface *add_interface(const std::string &name, uint8_t path, uint8_t relay) {
        config_interface *port = &node.interfaces[node.interface_num++];
        strncpy(port->name, name.c_str(), KOLT_NAME_SIZE);
        port->path = path;
        port->relay = relay;
        return port;
    }
    // Lets the loop serve what is waiting, and nothing that comes later.
    static void serve_waiting() {
        for (int pass = 0; pass < 4; pass++)
            uloop_run_timeout(0);
    }
    static std::string own_pid() {
        return std::to_string(getpid());
    }

    config node;
};
