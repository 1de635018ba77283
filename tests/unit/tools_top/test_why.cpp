// Why a client, and a stream, is where it is. Scores are worked out by hand.
#include "why.h"

#include <gmock/gmock.h>
#include <memory>

namespace {

constexpr uint32_t INDEX_2G = 12;
constexpr uint32_t INDEX_5G = 13;
constexpr uint32_t INDEX_OTHER = 14;

// 2.4 GHz is hot; 5 GHz has room and the higher score.
class TopWhy : public testing::Test {
protected:
    TopWhy() {
        config_.param.period = 5000;
        config_.param.high_threshold = 70;
        config_.param.delta_threshold = 20;
        node_->mode = KOLT_MODE_RE;
        node_->configuration = &config_;
        node_->bridge_count = 1;
        strcpy(bridge_.name, "br-lan");
        bridge_.active = bridge_.selects_paths = true;
        add_path(KOLT_LINK_2G, INDEX_2G, {.util = 90, .rate = 100, .quota = 1000});
        add_path(KOLT_LINK_5G, INDEX_5G, {.util = 20, .rate = 800, .quota = 8000});
        client_.type = KOLT_LINK_2G;
        client_.hd_port = INDEX_2G;
    }

    void add_path(kolt_link_type type, uint32_t ifindex, ps_path row) {
        strcpy(row.name, top_link_name(type));
        bridge_.rows[type] = row;
        bridge_.paths[type].configured = bridge_.paths[type].up = true;
        bridge_.paths[type].ifindex = ifindex;
    }

    top_why why() {
        return top_explain(*node_, bridge_, client_);
    }

    top_stream_why stream(uint32_t port, uint32_t bytes, top_place place = top_place::MOVES) {
        ha_entry entry;
        entry.port = port;
        entry.num_bytes = bytes;
        return top_explain_stream(*node_, bridge_, entry,
                                  {.place = place, .best = KOLT_LINK_5G, .target = KOLT_LINK_5G});
    }

    config config_;
    std::unique_ptr<top_node> node_ = std::make_unique<top_node>();
    top_bridge &bridge_ = node_->bridges[0];
    kolt_client client_;
};

TEST_F(TopWhy, AClientMovesToThePathWithTheHighestScore) {
    EXPECT_EQ(why().best, KOLT_LINK_5G);
    EXPECT_EQ(why().target, KOLT_LINK_5G);
    EXPECT_EQ(why().place, top_place::MOVES);
    client_.hd_port = INDEX_5G;
    EXPECT_EQ(why().place, top_place::IN_PLACE);
    client_.hd_port = KOLT_NO_HD_PORT;
    EXPECT_EQ(why().place, top_place::MOVES);
}

TEST_F(TopWhy, WhoIsNotPlacedIsTold) {
    client_.relay = 1;
    EXPECT_EQ(why().place, top_place::RELAY);
    EXPECT_EQ(why().best, PATH_NONE);
    client_.relay = 0;
    node_->mode = KOLT_MODE_FAP;
    EXPECT_EQ(why().place, top_place::OTHER_MODE);
    node_->mode = KOLT_MODE_RE;
    strcpy(bridge_.name, "br-wan");
    EXPECT_EQ(why().place, top_place::OTHER_MODE);
    bridge_.selects_paths = false;
    EXPECT_EQ(why().place, top_place::NO_SELECTION);
}

TEST_F(TopWhy, WithoutAUsablePathItStays) {
    bridge_.rows[KOLT_LINK_2G].rate = bridge_.rows[KOLT_LINK_5G].rate = 0;
    EXPECT_EQ(why().place, top_place::NO_PATH);
    EXPECT_EQ(why().best, PATH_NONE);
}

TEST_F(TopWhy, BehindPowerLineItIsPlacedOnlyWhereItIsAlready) {
    client_.type = KOLT_LINK_PLC;
    EXPECT_EQ(why().place, top_place::POWER_LINE);
    client_.hd_port = INDEX_5G;
    EXPECT_EQ(why().place, top_place::IN_PLACE);
}

TEST_F(TopWhy, EarlierChoicesAreTheDaemonsAlone) {
    config_.param.cpu_limit = 1;
    EXPECT_EQ(why().place, top_place::REMEMBERED);
    EXPECT_EQ(why().best, KOLT_LINK_5G);
    EXPECT_EQ(why().target, PATH_NONE);
}

TEST_F(TopWhy, APreferredLinkIsTheTargetWhileItIsUsable) {
    config_.param.backhual_prefered = 1; // 2.4 GHz
    EXPECT_EQ(why().preferred, KOLT_LINK_2G);
    EXPECT_EQ(why().target, KOLT_LINK_5G);
    bridge_.prefers_backhaul = true;
    EXPECT_EQ(why().target, KOLT_LINK_2G);
    EXPECT_EQ(why().best, KOLT_LINK_5G);
    EXPECT_EQ(why().place, top_place::IN_PLACE);
}

// 800,000 bytes in 5,000 ms are 160 a ms: 2 units of 64, of a rate of 800: 0.25 %.
TEST_F(TopWhy, AStreamOnTheHotPathMayMove) {
    EXPECT_EQ(stream(INDEX_2G, 800000).share, 25U);
    EXPECT_EQ(stream(INDEX_2G, 800000).place, top_stream_place::MAY_MOVE);
}

TEST_F(TopWhy, AStreamThatDoesNotFitStays) {
    bridge_.rows[KOLT_LINK_5G].quota = 25;
    EXPECT_EQ(stream(INDEX_2G, 800000).place, top_stream_place::TOO_BIG);
    bridge_.rows[KOLT_LINK_5G].quota = 26;
    EXPECT_EQ(stream(INDEX_2G, 800000).place, top_stream_place::MAY_MOVE);
    EXPECT_EQ(stream(INDEX_2G, 319999).place, top_stream_place::WEIGHS_NOTHING); // 63 bytes a ms
}

TEST_F(TopWhy, AStreamElsewhereStays) {
    EXPECT_EQ(stream(INDEX_5G, 800000).place, top_stream_place::ON_BEST);
    EXPECT_EQ(stream(INDEX_OTHER, 800000).place, top_stream_place::CALM);
    bridge_.rows[KOLT_LINK_2G].util = 70; // at the threshold, not above it
    EXPECT_EQ(stream(INDEX_2G, 800000).place, top_stream_place::CALM);
}

TEST_F(TopWhy, StreamsOfAClientThatIsNotPlacedStay) {
    for (const top_place place : {top_place::IN_PLACE, top_place::MOVES, top_place::REMEMBERED})
        EXPECT_EQ(stream(INDEX_2G, 800000, place).place, top_stream_place::MAY_MOVE);
    for (const top_place place : {top_place::POWER_LINE, top_place::OTHER_MODE}) {
        EXPECT_EQ(stream(INDEX_2G, 800000, place).place, top_stream_place::STAYS);
        EXPECT_EQ(stream(INDEX_2G, 800000, place).share, 25U);
    }
    ha_entry entry;
    EXPECT_EQ(top_explain_stream(*node_, bridge_, entry, {.place = top_place::NO_PATH}).place, top_stream_place::STAYS);
}

TEST_F(TopWhy, TheStateOfAPathIsOneWord) {
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_2G).text, "hot");
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_5G).text, "best");
    bridge_.rows[KOLT_LINK_5G].util = 71;
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_5G).text, "hot,best");
    bridge_.paths[KOLT_LINK_5G].abnormal = true;
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_5G).text, "slow");
    bridge_.paths[KOLT_LINK_5G].up = false;
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_5G).text, "down");
    bridge_.paths[KOLT_LINK_PLC].up = true;
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_PLC).text, "up");
    bridge_.paths[KOLT_LINK_5G_2].up = true;
    EXPECT_STREQ(top_path_state(*node_, bridge_, KOLT_LINK_5G_2).text, "unread");
}

TEST_F(TopWhy, TheStateOfABridgeIsOneWord) {
    EXPECT_STREQ(top_bridge_state(bridge_), "calm");
    bridge_.overloaded = true;
    EXPECT_STREQ(top_bridge_state(bridge_), "adjusting");
    bridge_.full = true;
    EXPECT_STREQ(top_bridge_state(bridge_), "full");
    bridge_.selects_paths = false;
    EXPECT_STREQ(top_bridge_state(bridge_), "not-steered");
    bridge_.active = false;
    EXPECT_STREQ(top_bridge_state(bridge_), "away");
}

TEST_F(TopWhy, EveryPlaceHasAWordOfItsOwn) {
    EXPECT_STREQ(top_place_word(top_place::NO_SELECTION), "not-steered");
    EXPECT_STREQ(top_place_word(top_place::REMEMBERED), "remembered");
    EXPECT_STREQ(top_stream_place_word(top_stream_place::ON_BEST), "on-best");
    EXPECT_STREQ(top_stream_place_word(top_stream_place::MAY_MOVE), "may-move");
    EXPECT_STREQ(top_stream_place_word(top_stream_place::STAYS), "stays");
}

} // namespace
