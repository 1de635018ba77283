// Any bytes as a configuration file.
#include "core/config.h"
#include "core/config_load.h"
#include "core/log.h"
#include "core_log.h"

#include <csetjmp>
#include <cstdlib>
#include <json-c/json.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status);
decltype(json_tokener_parse_ex) __real_json_tokener_parse_ex, __wrap_json_tokener_parse_ex;
}

namespace {

jmp_buf fatal;
bool loading;
json_object *tree; // what the loader holds

void require(bool condition) {
    if (!condition)
        abort();
}

// Loads the file; false when that is fatal. The tree that the daemon takes with it to its end is released here.
bool load(config *record, const char *path) {
    tree = nullptr;
    loading = true;
    if (setjmp(fatal) != 0) {
        loading = false;
        json_object_put(tree);
        return false;
    }
    config_load(record, path);
    loading = false;
    return true;
}

void check_param(const config_param &param) {
    require(param.high_threshold <= 100 && param.delta_threshold <= 100);
    require(param.reserved_ratio <= 100 && param.adjusted_ratio <= 100);
    require(param.idle_threshold <= 1000 && param.activate_pkts <= 1000);
    require(param.backhual_prefered <= 4 && param.low_threshold == 0 && param.bcast_port_plc == 0);
    for (const int32_t id : {param.eth_vlan_id, param.iptv_vlan_id, param.iptv_vlan_backhaul_id,
                             param.plc_vlan_backhaul_id, param.plc_vlan_guest_id, param.plc_vlan_iptv_id})
        require(id >= 0 && id <= 4094);
    for (const uint8_t flag :
         {param.wlan_enable, param.plc_enable, param.estimate_ack_enable, param.cpu_limit, param.wifi_rate_check})
        require(flag <= 1);
}

void check(config *record) {
    require(record->enable <= 1);
    require(record->bridge_num <= 8 && record->interface_num <= 128 && record->couple_num <= 16);
    for (uint32_t i = 0; i < record->bridge_num; i++)
        require(record->bridges[i].flags <= 3);
    for (uint32_t i = 0; i < record->interface_num; i++) {
        const config_interface &port = record->interfaces[i];
        require(port.type <= 4 && port.priority <= 10 && port.relay <= 1 && port.path <= 1 && port.ifindex == 0);
        const std::string name(port.name, strnlen(port.name, sizeof port.name));
        require(config_find_interface_by_name(record, name.c_str()) != nullptr);
    }
    check_param(record->param);
    config_dump(record);
}

} // namespace

void __wrap_exit(int status) {
    if (!loading)
        __real_exit(status);
    require(status == EXIT_FAILURE);
    longjmp(fatal, 1);
}

json_object *__wrap_json_tokener_parse_ex(json_tokener *tokener, const char *text, int size) {
    json_object *parsed = __real_json_tokener_parse_ex(tokener, text, size);
    if (tree == nullptr)
        tree = parsed; // the loader parses once more, to compare, and lets go of that
    return parsed;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int file = memfd_create("config", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    require(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));

    static config record;
    record = config{};
    log_level = KOLT_LOG_DUMP;
    if (load(&record, path.c_str()))
        check(&record);
    config_free(&record);
    return 0;
}
