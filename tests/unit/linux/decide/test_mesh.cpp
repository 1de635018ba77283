// Histories of several nodes that once went wrong, or would if a rule of the protocol were not kept.
#include "model_mesh/check.h"
#include "model_mesh/explore.h"

#include <gtest/gtest.h>

namespace {

constexpr uint64_t SETTLED_MS = 12000;

std::string run(const topology &where, bool reversed, const std::vector<timed_event> &events,
                mutation broken = mutation::NONE) {
    const mesh begin = settled(where, reversed, broken);
    EXPECT_EQ(begin.violation, "");
    mesh_case one{.where = &where, .reversed = reversed, .events = events, .frames = {}};
    return run_case(one, begin, broken).violation;
}

// The parent once went on sending where the child did not take group frames any more.
TEST(Mesh, ChildThatMovesToItsLastLinkIsFollowed) {
    const topology where = make_topology("pair", "Ab", {"ab:5g", "ab:5g_2", "ab:2.4g"});
    EXPECT_EQ(run(where, false, {{0, {happening::DOWN, 0}}, {0, {happening::DOWN, 1}}}), "");
}

// b is the root of one tree and neighbour of c, which is in that of a: a worse root than b, but c, the only one between
// them, would be a better one than both, and so b did not ask c, and c could not ask b.
TEST(Mesh, BetterNodeBetweenTwoTreesBecomesTheRootOfBoth) {
    const topology where = make_topology("triangle", "Abc", {"ab:5g", "bc:5g_2", "ca:ethernet"});
    EXPECT_EQ(run(where, true, {{0, {happening::DOWN, 0}}, {0, {happening::RANK, 0}}}), "");
}

// Without a root by its mode the attic (e), behind a port meant for children, became the root. By way of the gateway
// the garage (f) was below the living room (b) then, which a port meant for parents joins to it: for that the living
// room left the attic, all followed it and came back to the attic, every three seconds.
TEST(Mesh, NobodyLeavesItsParentForWhoeverIsBelowItself) {
    const topology where = make_topology(
        "house", "Abcdef", {"ab:2.4g", "ab:5g", "ac:ethernet", "ac:5g", "ad:plc", "be:5g", "bf:5g", "cf:ethernet"});
    EXPECT_EQ(run(where, true, {{0, {happening::LATE, 5}}, {1300, {happening::RANK, 0}}}), "");
}

TEST(Mesh, RestartOfAllAtOnceMovesNothing) {
    const topology where = make_topology("ring", "Abcd", {"ab:5g", "bc:5g_2", "cd:ethernet", "da:2.4g", "ab:plc"});
    mesh all = settled(where, false, mutation::NONE);
    const uint64_t changed_ms = all.changed_ms;
    for (int node = 0; node < 4; node++)
        all.kill_bridged(node);
    all.run_to(all.now_ms + 30000);
    for (int node = 0; node < 4; node++)
        all.start_bridged(node);
    all.run_to(all.now_ms + 5000);
    EXPECT_EQ(all.changed_ms, changed_ms);
    EXPECT_EQ(who_is_lost(all, false), "");
}

// d loses the root a and asks b, whose words reach it late. Then b loses the root too, and asks c, a child of d.
// Returns what is wrong at any time then. What b sends to d takes `late_ms`.
std::string two_losses(mutation broken, uint16_t late_ms, bool through_c) {
    topology where = make_topology("kite", "Abcd", {"ab:ethernet", "bd:5g", "bc:5g", "cd:5g", "da:2.4g"});
    where.links[1].nonrelay[0] = !through_c; // what is meant for a parent is asked first
    mesh all(where, true, broken);
    schedule frames;
    frames.latency_ms = {1, 1, late_ms, 1, 1, 1, 1, 1, 1, 1};
    all.set_schedule(frames);
    all.set_silent(2, true, true); // so that c joins below d
    all.run_to(SETTLED_MS);
    all.set_silent(2, false, false);
    all.run_to(all.now_ms + 1500);
    EXPECT_EQ(all.nodes[2].state.parent, node_mac(all.nodes[3].id)) << "c is a child of d";
    EXPECT_EQ(all.nodes[3].state.parent, node_mac(all.nodes[0].id)) << "d is a child of a";
    all.set_carrier(4, false);
    all.run_to(all.now_ms + 10);
    all.set_carrier(0, false);
    all.run_to(all.now_ms + 20000);
    return all.violation.empty() ? who_is_lost(all, false) : all.violation;
}

TEST(Mesh, JoiningWithoutAGrantMakesACircle) {
    EXPECT_EQ(two_losses(mutation::NONE, 240, true), "");
    EXPECT_NE(two_losses(mutation::JOIN_WITHOUT_GRANT, 240, true), "");
}

// If d granted what b asks for by way of c, there would be a circle as soon as its own grant arrived from b.
TEST(Mesh, GrantingWhileWaitingForAGrantMakesACircle) {
    EXPECT_NE(two_losses(mutation::GRANT_WHILE_WAITING, 240, true), "");
}

// The first grant arrives when d has given up, has let b join, and asks b once more.
TEST(Mesh, GrantOfAnEarlierRequestMakesACircle) {
    EXPECT_EQ(two_losses(mutation::NONE, 2150, false), "");
    EXPECT_NE(two_losses(mutation::OLD_GRANTS, 2150, false), "");
}

TEST(Mesh, OpeningBeforeClosingDoublesFrames) {
    const topology where = make_topology("pair", "Ab", {"ab:5g", "ab:5g_2"});
    const std::vector<timed_event> moves = {{0, {happening::PERMIT, 1, 0}}};
    EXPECT_EQ(run(where, false, moves), "");
    EXPECT_NE(run(where, false, moves, mutation::OPEN_BEFORE_CLOSING), "");
}

// Two nodes begin anew shortly after one another, while some links are slow. With a record from long before, a node
// would say again what it no longer is, and not be believed.
TEST(Mesh, RestartFromAnOldRecordLosesFrames) {
    const topology where = make_topology("ring", "Abcd", {"ab:ethernet", "bc:5g", "cd:ethernet", "da:5g"});
    mesh_case restarts{.where = &where,
                       .reversed = false,
                       .events = {{0, {happening::START, 0}}, {250, {happening::START, 1}}},
                       .frames = {}};
    restarts.frames.latency_ms = {240, 1, 240, 75, 1, 75, 1, 75};
    for (const mutation broken : {mutation::NONE, mutation::OLD_RECORD}) {
        const mesh begin = settled(where, false, broken);
        EXPECT_EQ(run_case(restarts, begin, broken).violation.empty(), broken == mutation::NONE);
    }
}

// Whoever was held up once took all others for dead, since no echo had come of the probes that it had not sent.
TEST(Mesh, WhoeverWasAsleepTakesNobodyForDead) {
    const topology where = make_topology("chain", "Abc", {"ab:5g", "ab:5g_2", "bc:5g"});
    mesh all = settled(where, false, mutation::NONE);
    const uint64_t changed_ms = all.changed_ms;
    all.sleep_bridged(1);
    all.run_to(all.now_ms + 30000);
    all.wake_bridged(1);
    EXPECT_EQ(all.nodes[2].state.flags, NODE_BELOW_FROZEN);
    all.run_to(all.now_ms + 5000);
    EXPECT_EQ(all.nodes[2].state.flags, 0);
    EXPECT_EQ(all.changed_ms, changed_ms);
    EXPECT_EQ(who_is_lost(all, false), "");
}

// Two roots and a node between them: what joins the roots leads up for neither, and may be for hosts at both ends.
const topology TWO_ROOTS = make_topology("two roots", "AbC", {"ab:5g", "bc:5g", "ca:ethernet"});

// The ends of a link once took what it had carried for frames of hosts, and gave it to those.
TEST(Mesh, LinkThatWasSilentForLongReturnsWithoutACircle) {
    const std::vector<timed_event> silence = {{0, {happening::SILENCE, 2}}, {24000, {happening::HEAL, 2}}};
    EXPECT_EQ(run(TWO_ROOTS, false, silence), "");
    EXPECT_NE(run(TWO_ROOTS, false, silence, mutation::OLD_FRAMES), "");
}

// The end of a node without kolt-bridged stays open, and what its hosts send comes in at the other all the time.
TEST(Mesh, LinkToADeadNodeThatLostOneDirectionForLongReturnsWithoutACircle) {
    const topology where = make_topology("chain", "Abc", {"ab:5g", "ab:ethernet", "bc:5g", "bc:2.4g"});
    for (const happening kind : {happening::SILENCE, happening::SILENCE_FIRST, happening::SILENCE_SECOND}) {
        EXPECT_EQ(run(where, false, {{0, {happening::KILL, 2}}, {500, {kind, 3}}, {24000, {happening::HEAL, 3}}}), "")
            << static_cast<int>(kind);
    }
}

// Queues that have no room for an echo: what else comes in shows that the links live.
TEST(Mesh, LinksThatOnlyLoseEchoesStayAsTheyAre) {
    const topology where = make_topology("triangle", "Abc", {"ab:5g", "ab:5g_2", "bc:5g", "ca:2.4g"});
    mesh all = settled(where, false, mutation::NONE);
    const uint64_t changed_ms = all.changed_ms;
    for (int link = 0; link < 4; link++)
        all.set_queues(link, full_queue::WITHOUT_ECHOES, full_queue::WITHOUT_ECHOES);
    all.run_to(all.now_ms + 30000);
    EXPECT_EQ(all.changed_ms, changed_ms);
    EXPECT_TRUE(all.nodes[0].state.ports[0].alive);
    EXPECT_EQ(all.violation, "");
}

// With one more link between them the two ends still hear of each other while the queue fills.
TEST(Mesh, LinkWhoseQueueFillsStaysAsItIs) {
    const topology where = make_topology("pair", "Ab", {"ab:5g", "ab:5g_2"});
    mesh all = settled(where, false, mutation::NONE);
    const uint64_t changed_ms = all.changed_ms;
    all.set_queues(0, full_queue::LATE, full_queue::LATE);
    all.run_to(all.now_ms + 30000);
    EXPECT_EQ(all.changed_ms, changed_ms);
    EXPECT_EQ(who_is_lost(all, false), "");
}

// A second and more to the root and back: nobody had that much patience, and so all but the nearest were lost for good.
TEST(Mesh, NodesBehindSlowLinksJoin) {
    const topology where = make_topology("line", "Abcd", {"ab:5g", "bc:5g", "cd:5g"});
    const std::vector<timed_event> fills = {
        {0, {happening::LATE, 0}}, {0, {happening::LATE, 1}}, {0, {happening::LATE, 2}}};
    EXPECT_EQ(run(where, false, fills), "");
    EXPECT_EQ(run(where, true, fills), "");
}

// The first end hears the second, which does not hear it.
TEST(Mesh, LinkOfOneDirectionIsNotTakenForAlive) {
    const topology where = make_topology("pair", "Ab", {"ab:5g", "ab:5g_2"});
    for (const happening before : {happening::HEAL, happening::LATE_SECOND, happening::NO_ECHO}) {
        const std::vector<timed_event> loses = {{0, {before, 0}}, {330, {happening::SILENCE_FIRST, 0}}};
        EXPECT_EQ(run(where, false, loses), "");
        EXPECT_NE(run(where, false, loses, mutation::HEARD_ALONE), "");
    }
}

// A node whose kolt-bridged has died forwards what comes, and cannot say what does not.
TEST(Mesh, LinkToADeadNodeIsNotTakenForAlive) {
    const topology where = make_topology("pair", "Ab", {"ab:5g", "ab:5g_2"});
    const std::vector<timed_event> dies = {
        {0, {happening::NO_ECHO, 0}}, {330, {happening::KILL, 1}}, {0, {happening::SILENCE_FIRST, 0}}};
    EXPECT_EQ(run(where, false, dies), "");
    EXPECT_NE(run(where, false, dies, mutation::HEARD_ALONE), "");
}

TEST(Mesh, BundleNeedsTheSplitHorizonAndOneLinkForGroupFrames) {
    const topology where = make_topology("pair", "Ab", {"ab:5g", "ab:5g_2"});
    EXPECT_EQ(settled(where, false, mutation::NONE).violation, "");
    EXPECT_NE(settled(where, false, mutation::NO_SPLIT_HORIZON).violation, "");
    EXPECT_NE(settled(where, false, mutation::TAKE_EVERYWHERE).violation, "");
}

} // namespace
