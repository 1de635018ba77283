// A list that can be long is read in one bounded piece.
#include "probes/ap_clients.h"

#include "core/json_file.h"

namespace {

constexpr char CLIENT_FILE[] = "/tmp/client_mgmt/ap_client_list";
constexpr size_t CLIENT_FILE_LIMIT = 32768;

json_ptr parse_client_file() {
    const unique_fd file = kolt_open_state_file(CLIENT_FILE);
    if (!file)
        return nullptr;
    char text[CLIENT_FILE_LIMIT + 1];
    const ssize_t size = kolt_read_up_to(file.get(), text, CLIENT_FILE_LIMIT);
    if (size < 0)
        return nullptr;
    text[size] = '\0';
    return json_ptr(json_tokener_parse(text));
}

} // namespace

int kolt_get_ap_client_list(kolt_ap_client_list *list) {
    if (list == nullptr)
        return 0;
    const json_ptr clients = parse_client_file();
    if (!clients)
        return 0;
    const bool is_array = json_object_is_type(clients.get(), json_type_array) != 0;
    const size_t length = is_array ? json_object_array_length(clients.get()) : 0;
    uint8_t count = 0;
    for (size_t i = 0; i < length && count < KOLT_MAX_AP_CLIENTS; i++) {
        const char *mac = json_member_text(json_object_array_get_idx(clients.get(), i), "mac");
        if (mac == nullptr)
            continue;
        (void)kolt_str_to_mac(mac, list->macs[count], 0); // a text that is no MAC counts as all zero
        count++;
    }
    list->count = count;
    return 1;
}

int kolt_check_mac_in_ap_client_list(const kolt_ap_client_list *list, const uint8_t *mac) {
    if (list == nullptr)
        return 0;
    for (uint8_t i = 0; i < list->count; i++) {
        if (kolt_mac_equal(list->macs[i], mac) == 1)
            return 1;
    }
    return 0;
}
