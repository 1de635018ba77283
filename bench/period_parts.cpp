// The clocks around every call that leaves the daemon, and the books that they are entered in.
#include "period_parts.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <numeric>
#include <unistd.h>

#include <duon_bridge.h>
#include <json-c/json.h>

namespace {

constexpr int CODE_HA = 8;

period_times times;
period_part own_part = OWN_OTHER; // whose the work between two calls is
bool measuring;
double cpu_then;
double wall_then;
std::array<size_t, PERIOD_PARTS> bookings;

double seconds(clockid_t clock) {
    timespec now{};
    (void)clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Books the time since the last booking.
void book(period_part part) {
    if (!measuring)
        return;
    const double cpu = thread_seconds();
    const double wall = seconds(CLOCK_MONOTONIC);
    times.cpu[part] += cpu - cpu_then;
    times.wall[part] += wall - wall_then;
    bookings[part]++;
    cpu_then = cpu;
    wall_then = wall;
}

// The processor time that a booking itself takes: the least of many with nothing between them.
double booking_cost() {
    constexpr int ATTEMPTS = 2000;
    double least = 1;
    measuring = true;
    book(OWN_OTHER);
    for (int i = 0; i < ATTEMPTS; i++) {
        const double before = times.cpu[OWN_OTHER];
        book(OWN_OTHER);
        least = std::min(least, times.cpu[OWN_OTHER] - before);
    }
    measuring = false;
    return least;
}

// Calls a wrapped function and books it as `part`. Such calls do not nest, except where one is told with a
// notification.
template <class Function, class... Arguments>
auto outside(period_part part, Function function, Arguments... arguments) -> decltype(function(arguments...)) {
    struct booking {
        period_part part;
        explicit booking(period_part booked) : part(booked) {
            book(own_part);
        }
        ~booking() {
            book(part);
            times.calls[part] += measuring ? 1 : 0;
        }
        booking(const booking &) = delete;
        booking &operator=(const booking &) = delete;
    } const entry(part);
    return function(arguments...);
}

} // namespace

double thread_seconds() {
    return seconds(CLOCK_THREAD_CPUTIME_ID);
}

double period_times::own() const {
    return std::accumulate(cpu.begin(), cpu.begin() + OWN_PARTS, 0.0);
}
double period_times::own_wall() const {
    return std::accumulate(wall.begin(), wall.begin() + OWN_PARTS, 0.0);
}
double period_times::whole() const {
    return std::accumulate(cpu.begin(), cpu.end(), 0.0);
}
double period_times::whole_wall() const {
    return std::accumulate(wall.begin(), wall.end(), 0.0);
}

period_times measure_parts(void (*function)(void *), void *argument) {
    static const double cost = booking_cost();
    times = period_times{};
    bookings = {};
    own_part = OWN_OTHER;
    cpu_then = thread_seconds();
    wall_then = seconds(CLOCK_MONOTONIC);
    measuring = true;
    function(argument);
    book(own_part);
    measuring = false;
    for (size_t part = 0; part < PERIOD_PARTS; part++)
        times.cpu[part] = std::max(0.0, times.cpu[part] - cost * static_cast<double>(bookings[part]));
    return times;
}

// What the linker puts in the place of the functions, and the functions themselves. Which table is at hand tells what
// the work after a call is for.
extern "C" {

decltype(bridgeAllocTableBuf) __real_bridgeAllocTableBuf, __wrap_bridgeAllocTableBuf;
decltype(bridgeFreeTableBuf) __real_bridgeFreeTableBuf, __wrap_bridgeFreeTableBuf;
decltype(bridgeTableAction) __real_bridgeTableAction, __wrap_bridgeTableAction;
decltype(bridgeAddHDTableEntries) __real_bridgeAddHDTableEntries, __wrap_bridgeAddHDTableEntries;
decltype(bridgeSetHATableEntries) __real_bridgeSetHATableEntries, __wrap_bridgeSetHATableEntries;
decltype(bridgeFlushHATable) __real_bridgeFlushHATable, __wrap_bridgeFlushHATable;
int __real_netlink_msg(int type, void *message, uint32_t size, int protocol);
int __wrap_netlink_msg(int type, void *message, uint32_t size, int protocol);
decltype(popen) __real_popen, __wrap_popen;
decltype(pclose) __real_pclose, __wrap_pclose;
decltype(fopen) __real_fopen, __wrap_fopen;
decltype(fclose) __real_fclose, __wrap_fclose;
decltype(fgets) __real_fgets, __wrap_fgets;
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);
decltype(read) __real_read, __wrap_read;
decltype(json_tokener_parse_ex) __real_json_tokener_parse_ex, __wrap_json_tokener_parse_ex;
decltype(json_object_put) __real_json_object_put, __wrap_json_object_put;

void *__wrap_bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    return outside(LIBRARY_TABLES, __real_bridgeAllocTableBuf, size, bridge);
}

int __wrap_bridgeTableAction(const char *bridge, int code, uint32_t *entries, void *buffer, int zero) {
    const int result = outside(LIBRARY_TABLES, __real_bridgeTableAction, bridge, code, entries, buffer, zero);
    own_part = code == CODE_HA ? OWN_RANKING : OWN_CLIENTS;
    return result;
}

void __wrap_bridgeFreeTableBuf(void *buffer) {
    outside(LIBRARY_TABLES, __real_bridgeFreeTableBuf, buffer);
    own_part = own_part == OWN_RANKING ? OWN_PLACEMENT : OWN_OTHER;
}

int __wrap_bridgeAddHDTableEntries(const char *bridge, const uint8_t *client, const uint8_t *second, const char *ifname,
                                   const char *again, int zero) {
    return outside(LIBRARY_CALLS, __real_bridgeAddHDTableEntries, bridge, client, second, ifname, again, zero);
}

int __wrap_bridgeSetHATableEntries(const char *bridge, uint16_t hash, const uint8_t *src, const uint8_t *dst,
                                   uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t kind,
                                   uint32_t carried) {
    return outside(LIBRARY_CALLS, __real_bridgeSetHATableEntries, bridge, hash, src, dst, src_port, dst_port, ifname,
                   kind, carried);
}

int __wrap_bridgeFlushHATable(const char *bridge) {
    return outside(LIBRARY_CALLS, __real_bridgeFlushHATable, bridge);
}

int __wrap_netlink_msg(int type, void *message, uint32_t size, int protocol) {
    return outside(LIBRARY_CALLS, __real_netlink_msg, type, message, size, protocol);
}

FILE *__wrap_popen(const char *command, const char *mode) {
    return outside(DRIVER_PIPES, __real_popen, command, mode);
}

int __wrap_pclose(FILE *file) {
    return outside(DRIVER_PIPES, __real_pclose, file);
}

FILE *__wrap_fopen(const char *path, const char *mode) {
    return outside(RUNTIME_FILES, __real_fopen, path, mode);
}

int __wrap_fclose(FILE *file) {
    return outside(RUNTIME_FILES, __real_fclose, file);
}

char *__wrap_fgets(char *line, int size, FILE *file) {
    return outside(RUNTIME_FILES, __real_fgets, line, size, file);
}

size_t __real__Z14kolt_read_lineP8_IO_FILEPcm(FILE *lines, char *line, size_t size);
size_t __wrap__Z14kolt_read_lineP8_IO_FILEPcm(FILE *lines, char *line, size_t size);

size_t __wrap__Z14kolt_read_lineP8_IO_FILEPcm(FILE *lines, char *line, size_t size) {
    return outside(DRIVER_PIPES, __real__Z14kolt_read_lineP8_IO_FILEPcm, lines, line, size);
}

int __wrap_open(const char *path, int flags, ...) {
    return outside(RUNTIME_FILES, __real_open, path, flags);
}

ssize_t __wrap_read(int fd, void *bytes, size_t size) {
    return outside(RUNTIME_FILES, __real_read, fd, bytes, size);
}

json_object *__wrap_json_tokener_parse_ex(json_tokener *tokener, const char *text, int size) {
    return outside(RUNTIME_FILES, __real_json_tokener_parse_ex, tokener, text, size);
}

int __wrap_json_object_put(json_object *object) {
    return outside(RUNTIME_FILES, __real_json_object_put, object);
}

int __real__Z20kolt_send_notify_msgPKvP16kolt_wait_budget(const void *record, void *budget);
int __wrap__Z20kolt_send_notify_msgPKvP16kolt_wait_budget(const void *record, void *budget);

int __wrap__Z20kolt_send_notify_msgPKvP16kolt_wait_budget(const void *record, void *budget) {
    return outside(NOTIFICATIONS, __real__Z20kolt_send_notify_msgPKvP16kolt_wait_budget, record, budget);
}

} // extern "C"
