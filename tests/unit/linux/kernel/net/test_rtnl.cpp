// One request, many in one go, dumps, and what becomes of them when the kernel refuses or says nothing.
#include "kernel/net/rtnl.h"

#include "kernel/net/links.h"
#include "linux/support/network.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;
using testing::StrNe;

namespace {

constexpr uint32_t NOBODY = 4242; // no test has an interface of this index

class rtnl_test : public kernel_test {
protected:
    // What a dump hands out, by name.
    std::vector<std::string> names() {
        std::vector<std::string> found;
        EXPECT_EQ(links_dump(rtnl_, [&](const link_info &link) { found.emplace_back(link.name.data()); }), 0);
        return found;
    }
};

// A request that names an interface by index, and is refused when there is none.
void ask_about(rtnl_message &message, uint32_t index) {
    message.head<ifinfomsg>()->ifi_index = static_cast<int>(index);
}

// Sets the size of the largest packet.
void set_mtu(rtnl_message &message, uint32_t index, uint32_t mtu) {
    ask_about(message, index);
    mnl_attr_put_u32(message.header, IFLA_MTU, mtu);
}

TEST_F(rtnl_test, does_what_is_asked_before_it_returns) {
    const test_link link("near", "far");
    rtnl_message message(RTM_SETLINK, 0);
    set_mtu(message, link.near(), 1300);
    EXPECT_EQ(rtnl_.request(message), 0);
    EXPECT_EQ(setting("near", "mtu"), "1300");
}

TEST_F(rtnl_test, hands_back_the_errno_of_a_refusal) {
    rtnl_message message(RTM_SETLINK, 0);
    set_mtu(message, NOBODY, 1300);
    EXPECT_EQ(rtnl_.request(message), ENODEV);
    EXPECT_EQ(rtnl_.last_error().code, ENODEV);
    EXPECT_THAT(rtnl_.last_error().text.data(), StrNe(""));
}

TEST_F(rtnl_test, keeps_the_kernels_own_words_on_a_refusal) {
    rtnl_message message(RTM_NEWLINK, NLM_F_CREATE);
    message.head<ifinfomsg>();
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "nonsense");
    mnl_attr_nest_end(message.header, info);
    EXPECT_EQ(rtnl_.request(message), EOPNOTSUPP);
    EXPECT_THAT(rtnl_.last_error().text.data(), StrEq("Unknown device type"));
}

TEST_F(rtnl_test, has_the_errnos_text_where_the_kernel_gives_no_words) {
    rtnl_message message(RTM_GETLINK, 0);
    ask_about(message, NOBODY);
    EXPECT_EQ(rtnl_.get(message, {}), ENODEV);
    EXPECT_THAT(rtnl_.last_error().text.data(), StrEq("No such device"));
}

TEST_F(rtnl_test, gives_up_when_the_kernel_says_nothing_and_then_works_again) {
    rtnl_message message(RTM_GETLINK, 0);
    message.header->nlmsg_len = 8; // the kernel drops what is shorter than a header
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(rtnl_.request(message), ETIMEDOUT);
    const auto waited = std::chrono::steady_clock::now() - before;
    EXPECT_GE(waited, std::chrono::milliseconds(RTNL_WAIT_MS - 10));
    EXPECT_LE(waited, std::chrono::milliseconds(RTNL_WAIT_MS + 10000));
    EXPECT_THAT(names(), Contains("lo"));
}

// Something else in the place of the socket is what makes an exchange fail halfway.
TEST_F(rtnl_test, goes_on_with_a_new_socket_after_an_exchange_that_broke_off) {
    rtnl_.close();
    const int next = dup(0);
    close(next);
    EXPECT_EQ(rtnl_.open(), 0); // has the number now
    bool replaced = false;
    const int result = links_dump(rtnl_, [&](const link_info &) { replaced = replaced || dup2(0, next) == next; });
    EXPECT_TRUE(replaced);
    EXPECT_EQ(result, ENOTSOCK);
    EXPECT_THAT(names(), Contains("lo"));
}

TEST_F(rtnl_test, fails_when_it_was_never_opened) {
    rtnl_socket closed;
    rtnl_message message(RTM_GETLINK, 0);
    ask_about(message, 1);
    EXPECT_FALSE(closed.is_open());
    EXPECT_EQ(closed.request(message), EBADF);
    EXPECT_FALSE(closed.is_open());
}

TEST_F(rtnl_test, tells_when_no_socket_is_left) {
    rtnl_socket socket;
    const no_descriptors none;
    EXPECT_EQ(socket.open(), EMFILE);
    EXPECT_EQ(socket.last_error().code, EMFILE);
}

TEST_F(rtnl_test, refuses_to_be_used_by_what_it_calls) {
    std::vector<int> results;
    const int result = links_dump(rtnl_, [&](const link_info &) {
        link_info nested;
        results.push_back(link_get(rtnl_, 1, &nested));
    });
    EXPECT_EQ(result, 0);
    EXPECT_THAT(results, Contains(EBUSY));
    EXPECT_THAT(results, Not(Contains(0)));
}

TEST_F(rtnl_test, tells_that_a_dump_was_overtaken_by_a_change) {
    std::vector<test_link> links;
    for (int number = 0; number < 40; number++) // more than fit into one datagram
        links.emplace_back("near" + std::to_string(number), "far" + std::to_string(number));
    bool changed = false;
    const int result = links_dump(rtnl_, [&](const link_info &) {
        if (!changed)
            const test_link one_more("more", "other");
        changed = true;
    });
    EXPECT_EQ(result, EINTR);
    EXPECT_EQ(names().size(), 81U);
}

class rtnl_batch_test : public rtnl_test {
protected:
    // A batch that sets the interface's size to 1001, 1002, ...; those in `failing` go to an interface that is not
    // there.
    int run(uint32_t index, size_t count, const std::vector<size_t> &failing) {
        rtnl_batch batch(rtnl_, failed_);
        for (size_t number = 0; number < count; number++) {
            const bool fails = std::find(failing.begin(), failing.end(), number) != failing.end();
            rtnl_message message(RTM_SETLINK, 0);
            set_mtu(message, fails ? NOBODY : index, static_cast<uint32_t>(1001 + number));
            (void)batch.add(message);
        }
        return batch.finish();
    }

    std::vector<size_t> failures_;
    std::vector<int> codes_;
    const std::function<void(size_t, const rtnl_error &)> note_ = [this](size_t number, const rtnl_error &error) {
        failures_.push_back(number);
        codes_.push_back(error.code);
        EXPECT_THAT(error.text.data(), StrNe(""));
    };
    rtnl_batch::on_failure failed_{note_};
};

TEST_F(rtnl_batch_test, without_messages_is_a_success) {
    EXPECT_EQ(run(1, 0, {}), 0);
}

TEST_F(rtnl_batch_test, is_done_in_order_to_the_last_message) {
    const test_link link("near", "far");
    EXPECT_EQ(run(link.near(), 400, {}), 0);
    EXPECT_EQ(setting("near", "mtu"), "1400");
    EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(rtnl_batch_test, tells_which_messages_failed_across_its_parts_and_does_the_rest) {
    const test_link link("near", "far");
    EXPECT_EQ(run(link.near(), 450, {0, 3, 203, 204, 205, 399}), ENODEV);
    EXPECT_THAT(failures_, ElementsAre(0, 3, 203, 204, 205, 399));
    EXPECT_THAT(codes_, testing::Each(ENODEV));
    EXPECT_EQ(setting("near", "mtu"), "1450");
}

TEST_F(rtnl_batch_test, tells_that_the_last_message_failed) {
    const test_link link("near", "far");
    EXPECT_EQ(run(link.near(), 5, {4}), ENODEV);
    EXPECT_THAT(failures_, ElementsAre(4));
    EXPECT_EQ(setting("near", "mtu"), "1004");
}

TEST_F(rtnl_batch_test, in_which_everything_fails_loses_no_answer) {
    std::vector<size_t> all(1000);
    for (size_t number = 0; number < all.size(); number++)
        all[number] = number;
    EXPECT_EQ(run(1, all.size(), all), ENODEV);
    EXPECT_EQ(failures_, all);
}

TEST_F(rtnl_batch_test, hands_back_the_first_of_different_errors) {
    rtnl_batch batch(rtnl_, failed_);
    rtnl_message unknown(RTM_SETLINK, 0);
    set_mtu(unknown, NOBODY, 1300);
    rtnl_message too_small(RTM_SETLINK, 0);
    set_mtu(too_small, 1, UINT32_MAX);
    EXPECT_EQ(batch.add(too_small), 0);
    EXPECT_EQ(batch.add(unknown), 0);
    EXPECT_EQ(batch.finish(), EINVAL);
    EXPECT_THAT(codes_, ElementsAre(EINVAL, ENODEV));
}

TEST_F(rtnl_batch_test, goes_on_with_requests_made_meanwhile) {
    const test_link link("near", "far");
    rtnl_batch batch(rtnl_, failed_);
    for (const uint32_t mtu : {1200U, 1210U, 1220U}) {
        rtnl_message message(RTM_SETLINK, 0);
        set_mtu(message, mtu == 1210 ? NOBODY : link.near(), mtu);
        EXPECT_EQ(batch.add(message), 0);
        EXPECT_THAT(names(), Contains("near"));
    }
    EXPECT_EQ(batch.finish(), ENODEV);
    EXPECT_THAT(failures_, ElementsAre(1));
    EXPECT_EQ(setting("near", "mtu"), "1220");
}

TEST_F(rtnl_batch_test, of_a_closed_socket_fails_once) {
    rtnl_.close();
    EXPECT_EQ(run(1, 1000, {}), EBADF);
    EXPECT_THAT(failures_, IsEmpty());
}

} // namespace
