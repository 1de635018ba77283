// Handlers that note every call, answer with tables that the test has filled in, and fail as scripted.
#pragma once

#include "bridged/requests/handlers.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

struct recorded_node {
    // Every call as it arrived: "set_if_group(br-lan, eth0, 1, 1)". MACs read "02:00:00:00:00:01".
    std::vector<std::string> calls;
    std::function<void(const std::string &)> also; // what else to do with a call

    std::map<std::string, int> failures; // results other than 0, by handler

    std::map<int, std::vector<std::string>> tables; // raw records, by the table's code
    std::vector<uint32_t> ports;
    std::vector<std::string> ethernets;
    bool wrong_record_size = false; // the producers add one byte too many

    request_handlers handlers();

    int note(const std::string &handler, const std::string &arguments);
    void produce(table_writer *table, const std::string &record) const;
};

template <class Record> std::string raw(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}
