// The tables of clients, objects and patterns, and who listens for an event.
#include "bus.h"

#include <cstdlib>
#include <sys/random.h>

list_head bus_clients = {&bus_clients, &bus_clients};

namespace {

bus_object *find_in(const bus_client &client, uint32_t id) {
    list_head *link;
    list_for_each(link, &client.objects) {
        bus_object *object = container_of(link, bus_object, list);
        if (object->id == id)
            return object;
    }
    return nullptr;
}

bool is_taken(uint32_t id) {
    list_head *link;
    list_for_each(link, &bus_clients) {
        const bus_client *client = container_of(link, bus_client, list);
        if (client->id == id || find_in(*client, id))
            return true;
    }
    return id < UBUS_SYSTEM_OBJECT_MAX;
}

} // namespace

uint32_t bus_new_id() {
    static uint32_t fallback;
    uint32_t id = 0;
    do {
        if (getrandom(&id, sizeof(id), GRND_NONBLOCK) != sizeof(id))
            id = UBUS_SYSTEM_OBJECT_MAX + fallback++; // early in the boot there is no randomness yet
    } while (is_taken(id));
    return id;
}

bus_object *bus_add_object(bus_client &client) {
    if (client.n_objects >= MAX_OBJECTS_PER_CLIENT)
        return nullptr;
    auto *object = static_cast<bus_object *>(calloc(1, sizeof(bus_object)));
    if (!object)
        return nullptr;
    object->id = bus_new_id();
    INIT_LIST_HEAD(&object->patterns);
    list_add_tail(&object->list, &client.objects);
    client.n_objects++;
    return object;
}

void bus_remove_object(bus_client &client, bus_object *object) {
    while (!list_empty(&object->patterns)) {
        bus_pattern *pattern = list_first_entry(&object->patterns, bus_pattern, list);
        list_del(&pattern->list);
        free(pattern->text);
        free(pattern);
    }
    list_del(&object->list);
    client.n_objects--;
    free(object);
}

bus_object *bus_find_object(const bus_client *client, uint32_t id) {
    if (client)
        return find_in(*client, id);
    list_head *link;
    list_for_each(link, &bus_clients) {
        if (bus_object *object = find_in(*container_of(link, bus_client, list), id))
            return object;
    }
    return nullptr;
}

int bus_add_pattern(bus_object &object, const char *text) {
    auto *pattern = static_cast<bus_pattern *>(calloc(1, sizeof(bus_pattern)));
    char *copy = strdup(text);
    if (!pattern || !copy || object.n_patterns >= MAX_PATTERNS_PER_OBJECT) {
        free(pattern);
        free(copy);
        return UBUS_STATUS_NO_MEMORY;
    }
    const size_t len = strlen(text);
    pattern->prefix = len > 0 && text[len - 1] == '*';
    pattern->len = pattern->prefix ? len - 1 : len;
    pattern->text = copy;
    list_add_tail(&pattern->list, &object.patterns);
    object.n_patterns++;
    return UBUS_STATUS_OK;
}

bool bus_listens(const bus_object &object, const char *name) {
    const size_t len = strlen(name);
    list_head *link;
    list_for_each(link, &object.patterns) {
        const bus_pattern *pattern = container_of(link, bus_pattern, list);
        const bool fits = pattern->prefix ? len >= pattern->len : len == pattern->len;
        if (fits && memcmp(name, pattern->text, pattern->len) == 0)
            return true;
    }
    return false;
}
