// Opening what kolt-bridged opens, and playing its tree.
#include "linux/support/bridged_life.h"

#include "bridged/ports.h"
#include "bridged/settle.h"
#include "bridged/upkeep.h"

#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace {

void must(bool done, const char *what) {
    if (!done)
        throw std::runtime_error(what);
}

void configure(bridged *self, const std::vector<kept_interface> &interfaces, const std::vector<const char *> &bridges) {
    for (const char *name : bridges) {
        kolt_copy_name(self->configured.bridges[self->configured.bridge_num++].name, name);
        bridge_node &node = self->bridges.at(self->bridge_count++);
        node.owner = self;
        kolt_copy_name(node.name, name);
    }
    for (const kept_interface &one : interfaces) {
        config_interface &interface = self->configured.interfaces[self->configured.interface_num++];
        kolt_copy_name(interface.name, one.name);
        interface.type = one.type;
        interface.relay = one.relay;
        interface.path = one.path;
        interface.class_ = one.class_;
        interface.needha = one.needha;
    }
}

} // namespace

bridged_life::bridged_life(const std::vector<kept_interface> &interfaces, const std::vector<const char *> &bridges)
    : self_(std::make_unique<bridged>()) {
    std::filesystem::create_directories(RUN_FOLDER);
    must(uloop_init() == 0, "no event loop");
    self_->watches.owner = self_.get();
    self_->settings.run_folder = RUN_FOLDER;
    self_->settings.pin_folder = PIN_FOLDER;
    configure(self_.get(), interfaces, bridges);
    kolt_reason why;
    const kolt_opened opened = self_->programs.open(PIN_FOLDER, &why);
    must(opened == kolt_opened::FRESH || opened == kolt_opened::TAKEN_OVER, why.text);
    must(self_->streams.open(self_->programs, node_now(), &why), why.text);
    must(self_->rtnl.open() == 0 && self_->monitor.open() == 0 && announced_.open() == 0, "no route netlink");
    plays_.resize(bridges.size());
}

bridged_life::~bridged_life() {
    bus_stop(&self_->bus);
    uloop_done();
}

bridge_port bridged_life::port(uint32_t ifindex) {
    bridge_port described;
    must(bridge_port_get(self_->rtnl, ifindex, &described) == 0, "not the port of a bridge");
    return described;
}

fdb_record bridged_life::entry(const std::array<uint8_t, 6> &mac, size_t place) {
    fdb_record found;
    return fdb_find(self_->rtnl, node(place).ifindex, mac, &found) == 0 ? found : fdb_record{};
}

void bridged_life::live(const std::function<void(one_node &)> &events, size_t place) {
    bridge_node &of = node(place);
    std::unique_ptr<one_node> &play = plays_.at(place);
    if (play == nullptr) {
        play = std::make_unique<one_node>();
        play->now = node_now();
    }
    play->state = of.links;
    play->now = std::max(play->now, of.links.now_ms + of.links.slept_ms);
    events(*play);
    of.links = play->state;
}

void bridged_life::settle_after(const std::function<void(one_node &)> &events, size_t place) {
    live(events, place);
    settle(&node(place));
}

bool bridged_life::hear_until(const std::function<bool()> &wanted) {
    const auto link_changed = [this](const link_info &link) { ports_link_changed(get(), link); };
    monitor_callbacks callbacks;
    const auto port_told = [this](const bridge_port &port) { upkeep_port_told(get(), port); };
    callbacks.link = link_changed;
    callbacks.port = port_told;
    return comes_true([&] {
        must(self_->monitor.receive(callbacks) == 0, "cannot hear of changes");
        return wanted();
    });
}

std::set<uint32_t> bridged_life::announced_ports() {
    std::set<uint32_t> ports;
    const auto seen = [&ports](const bridge_port &one) { ports.insert(one.index); };
    monitor_callbacks callbacks;
    callbacks.port = seen;
    must(announced_.receive(callbacks) == 0, "cannot hear of changes");
    return ports;
}

bool comes_true(const std::function<bool()> &wanted) {
    constexpr int TURNS = 1000;
    for (int turn = 0; turn < TURNS; turn++) {
        if (wanted())
            return true;
        usleep(1000);
    }
    return false;
}
