// Any bytes as the Wi-Fi driver's station table, as its statistics and as the name of an interface.
#include "adaptors/rtk/rtk_driver_file.h"
#include "adaptors/rtk/rtk_stations.h"
#include "adaptors/rtk/rtk_wlan.h"
#include "core_log.h"

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
FILE *__wrap_popen(const char *command, const char *mode);
int __wrap_pclose(FILE *file);
int __wrap_socket(int domain, int type, int protocol);
}

namespace {

const uint8_t *content;
size_t content_size;
int open_pipes;

void require(bool condition) {
    if (!condition)
        abort();
}

// The largest room that a caller has, with a station behind it that nobody may touch.
struct guarded_links {
    wlan_link links[WLAN_MAX_LINKS];
    wlan_link guard;
};

constexpr uint16_t UNTOUCHED = 0xA55A;
constexpr uint8_t OUT_OF_RANGE = 201;

uint8_t read_table(guarded_links *table, kolt_link_type type) {
    for (wlan_link &link : table->links)
        link.activity = UNTOUCHED;
    table->guard.tx_rate = UNTOUCHED;
    const uint8_t count = wlan_get_links_rtk("wlan0", table->links, type);
    require(count <= WLAN_MAX_LINKS);
    require(table->guard.tx_rate == UNTOUCHED);
    for (const wlan_link &link : table->links)
        require(link.activity == UNTOUCHED);
    for (size_t i = count; i < WLAN_MAX_LINKS; i++)
        require(table->links[i].tx_rate == 0 && table->links[i].rx_rate == 0 && table->links[i].rssi == 0);
    return count;
}

bool equal(const wlan_link &a, const wlan_link &b) {
    return memcmp(a.mac, b.mac, sizeof a.mac) == 0 && a.tx_rate == b.tx_rate && a.rx_rate == b.rx_rate &&
           a.rssi == b.rssi;
}

void check_stations() {
    guarded_links table;
    guarded_links again;
    const uint8_t count = read_table(&table, KOLT_LINK_2G);
    require(read_table(&again, KOLT_LINK_5G) == count);
    for (uint8_t i = 0; i < count; i++)
        require(equal(table.links[i], again.links[i]));
    wlan_uplink_rate rate;
    uint8_t rssi = 0;
    require(wlan_get_uplink_rate_rtk("wlan0", &rate, &rssi, KOLT_LINK_5G_2) == (count != 0 ? 1 : 0));
    require(rate.tx_rate == table.links[0].tx_rate && rate.rx_rate == table.links[0].tx_rate);
    require(rssi == table.links[0].rssi);
    const config_param param{.idle_threshold = 0, .activate_pkts = 3};
    wlan_activate_links_rtk("wlan0", &param, KOLT_LINK_2G);
    wlan_activate_links_for_ap_rtk("wlan0", &param, KOLT_LINK_2G);
}

void check_utilization() {
    uint8_t utilization = OUT_OF_RANGE;
    require(wlan_get_channel_utilization_rtk("wlan0", &utilization, KOLT_LINK_2G, 1) == 1);
    require(utilization <= 100 || utilization == OUT_OF_RANGE);
}

// A name field, filled to its last byte when the bytes are enough.
void check_name(const uint8_t *data, size_t size) {
    const std::unique_ptr<char[]> field(new char[KOLT_NAME_SIZE]());
    memcpy(field.get(), data, size < KOLT_NAME_SIZE ? size : KOLT_NAME_SIZE);
    const rtk_driver_file opened = rtk_open_driver_file(field.get(), KOLT_LINK_5G, "sta_info");
    require(strlen(opened.command) < sizeof opened.command);
}

} // namespace

FILE *__wrap_popen(const char *command, const char *mode) {
    require(strcmp(mode, "re") == 0 && strncmp(command, "cat /proc/", 10) == 0);
    require(strpbrk(command + 4, " \t\n\"#$&'()*;<>?[\\]`{|}~!^") == nullptr);
    open_pipes++;
    // An empty block cannot be opened as a file everywhere.
    return content_size != 0 ? fmemopen(const_cast<uint8_t *>(content), content_size, "r") : fopen("/dev/null", "re");
}

int __wrap_pclose(FILE *file) {
    open_pipes--;
    return fclose(file);
}

int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
    abort(); // the driver tells no activity, so no station can be active enough to be sent anything
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    content = data;
    content_size = size;
    check_stations();
    check_utilization();
    check_name(data, size);
    require(open_pipes == 0);
    return 0;
}
