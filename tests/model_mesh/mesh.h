// A mesh of nodes, each of which runs the product's own decisions, and the frames in flight between them. Of a node's
// kernel there is what matters to loops: the words of its ports, and that it answers probes by itself. Time is a
// number; nothing happens but what the schedule says, so that a run can be had again.
#pragma once

#include "decide/port_words.h"
#include "decide/record.h"
#include "decide/tree.h"
#include "model_mesh/topology.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

constexpr size_t MODEL_FRAME_SIZE = FRAME_HELLO_SIZE + FRAME_JOINS * FRAME_JOIN_SIZE; // no stream is told of here

// A rule of the protocol that is broken, to see that the model would find it broken.
enum class mutation {
    NONE,
    GRANT_WHILE_WAITING, // a root lets others join while it waits for a grant itself
    JOIN_WITHOUT_GRANT,  // whoever wants to join does so at once
    OLD_GRANTS,          // a grant counts for whatever join is under way now
    OPEN_BEFORE_CLOSING, // the new link carries frames before the old one has ceased to
    NO_SPLIT_HORIZON,    // frames may leave by the group that they came in by
    OLD_RECORD,          // a new life begins with what the node was when the mesh had first settled
    TAKE_EVERYWHERE,     // group frames are taken on all links of a bundle
    HEARD_ALONE,         // what comes in keeps a link alive, whether the neighbour hears this node or not
    OLD_FRAMES,          // what came in while a port was open counts as frames that no node sends
};

// When a frame arrives, if it does.
struct schedule {
    struct exception {
        uint32_t frame; // counted from 0 since the schedule began
        uint16_t delay_ms;
        bool lost;
    };
    uint64_t seed = 0;
    uint32_t loss_permille = 0;
    uint32_t jitter_ms = 0;
    std::vector<uint16_t> latency_ms; // by direction, 2 * link + end that sends; 1 where there is none
    std::vector<exception> exceptions;
    uint64_t calm_after_ms = UINT64_MAX; // from then on nothing is lost or late
    std::array<uint16_t, 2> notice_ms{}; // how late the two ends of a link learn of their carrier
};

// Where kolt-bridged dies in the middle of what an input has led to.
enum class crash_point { NOWHERE, CLOSED, SAVED, SENT_ONE, SENT_ALL };

struct model_frame {
    uint64_t arrives_ms;
    uint16_t size;
    std::array<uint8_t, MODEL_FRAME_SIZE> bytes;
};

// What the queue of an end that has too much to send does to frames of neighbours. Those of hosts pass all the time.
enum class full_queue {
    NONE,
    LATE,           // all of them come later than a link may be without an echo; some find no room until it is calm
    WITHOUT_ECHOES, // there is never room for an echo
};

struct model_link {
    topology_link made;
    bool carrier = true;
    std::array<bool, 2> silent{}; // frames that the end sends are lost
    std::array<full_queue, 2> queue{};
    std::array<uint64_t, 2> hosts_until_ms{}; // frames of hosts are on their way from the end until then
    std::array<std::vector<model_frame>, 2> flying;
    std::array<uint64_t, 2> last_arrival_ms{};
};

struct model_port {
    uint32_t ifindex;
    int link;
    int end;
    uint64_t packets = 0;       // that have come in, as the kernel counts them
    uint64_t heard_packets = 0; // at the last beat, while echoes are late
    uint32_t foreign = 0;       // frames of hosts that have been kept out
    bool carried = false;       // such frames have come in while it was open, and not been counted
};

// What waits in a socket of a kolt-bridged that does not run at present: a frame, or else what has become of a carrier.
struct model_waiting {
    uint32_t ifindex;
    std::optional<neighbour_frame> frame;
    bool carrier = false;
};

struct model_node {
    tree state;
    port_settings set{};  // what the kernel has
    tree_record record{}; // what its kolt-bridged saved last; filled in only when it dies
    std::vector<model_port> ports;
    bool on = true;
    bool running = true; // its kolt-bridged
    bool asleep = false; // else: it was stopped, and goes on some time
    std::vector<model_waiting> waiting;
    uint32_t lives = 0;
    uint32_t seen_changes = UINT32_MAX;
    uint32_t crash_countdown = 0; // of inputs that change a word; 0 = none is to come
    crash_point crash = crash_point::NOWHERE;
    node_id id = 0;
};

struct model_notice {
    uint64_t at_ms;
    int node;
    uint32_t ifindex;
    bool carrier;
};

class mesh {
public:
    mesh(const topology &made, bool reversed, mutation broken);

    // Runs to that time, or to the first violation.
    void run_to(uint64_t ms);
    void set_schedule(const schedule &one);

    // What may happen to it. A node is powered off without a carrier going down.
    void set_carrier(int link, bool carrier);
    void set_silent(int link, bool first, bool second);
    void set_queues(int link, full_queue first, full_queue second);
    void kill_bridged(int node);
    void start_bridged(int node); // again, after the one that runs has been killed if there is one
    void sleep_bridged(int node); // it gets no processor
    void wake_bridged(int node);
    void arm_crash(int node, uint32_t countdown, crash_point point);
    void power(int node, bool on);
    void flip_rank(int node);
    void permit(int node, int port); // kolt permits this port alone; none when there is no such port
    void regroup(int node, int port);

    [[nodiscard]] bool carries(int link, int end) const; // what that end sends
    [[nodiscard]] const port_setting *setting(int link, int end) const;
    // Looks whether frames could circle or arrive twice now; called after every change of a word or link.
    void check();

    std::vector<model_node> nodes;
    std::vector<model_link> links;
    uint64_t now_ms = 0;
    uint64_t changed_ms = 0; // the last time that a word became another
    uint64_t checks = 0;
    mutation broken;
    std::string violation;

private:
    void input(int node, const std::function<void(tree *)> &act);
    void finish(int node);
    void apply(model_node *node, const port_setting &one);
    bool send_due(int node, uint32_t most);
    void send(int link, int end, const uint8_t *bytes, size_t size);
    std::optional<uint64_t> passage_ms(int link, int end, uint8_t kind);
    bool hosts_are_heard(int link, int end);
    void hear(int node, tree *state);
    void count_foreign(int node, tree *state);
    void arrive(int link, int end);
    void receive(int node, uint32_t ifindex, const neighbour_frame &frame);
    void begin_life(int node, bool with_past);
    void tick(int node);
    void tell_carrier(int link, int end);
    bool step(uint64_t limit_ms);
    void notice(const model_notice &one);

    schedule schedule_;
    uint32_t sent_ = 0;
    std::vector<model_notice> notices_;
};
