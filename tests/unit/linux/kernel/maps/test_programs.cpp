// What a process finds that was pinned by another.
#include "bpf/object.h"
#include "linux/support/data_plane.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>

namespace {

using testing::HasSubstr;

class programs_test : public testing::Test {
protected:
    kolt_opened open(const char *folder = PINS) {
        programs_ = std::make_unique<kolt_programs>();
        return programs_->open(folder, &why_);
    }
    // As a process that ends, and the next one.
    kolt_opened open_again() {
        programs_.reset();
        return open();
    }
    [[nodiscard]] uint32_t egress_number() const {
        bpf_prog_info info{};
        uint32_t size = sizeof info;
        EXPECT_EQ(0, bpf_obj_get_info_by_fd(programs_->program(kolt_direction::EGRESS), &info, &size));
        return info.id;
    }
    static void remove_pin(const char *name) {
        ASSERT_EQ(0, unlink((std::string(PINS) + "/" + name).c_str()));
    }
    static void put_pin(const char *name, bpf_map_type type, uint32_t value_size, uint32_t entries) {
        const unique_fd map(bpf_map_create(type, name, 4, value_size, entries, nullptr));
        ASSERT_TRUE(map);
        ASSERT_EQ(0, bpf_obj_pin(map.get(), (std::string(PINS) + "/" + name).c_str()));
    }

    std::unique_ptr<kolt_programs> programs_;
    kolt_reason why_;
};

TEST_F(programs_test, AreFreshAtFirstAndMakeTheirFolder) {
    EXPECT_EQ(kolt_opened::FRESH, open("/tmp/some/where/else")) << why_.text;
    EXPECT_TRUE(programs_->made(KOLT_MAP_STREAMS));
    for (const char *name : {"layout", "ports", "identities", "hd", "stream_slots", "streams", "free_slots"})
        EXPECT_TRUE(std::filesystem::exists(std::string("/tmp/some/where/else/") + name)) << name;
}

TEST_F(programs_test, MayLockAllTheMemoryThatTheProcessMayHave) {
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_MEMLOCK, &limit));
    limit.rlim_cur = 4096;
    ASSERT_EQ(0, setrlimit(RLIMIT_MEMLOCK, &limit));
    ASSERT_EQ(kolt_opened::FRESH, open()) << why_.text;
    ASSERT_EQ(0, getrlimit(RLIMIT_MEMLOCK, &limit));
    EXPECT_NE(4096U, limit.rlim_cur);
    EXPECT_EQ(limit.rlim_max, limit.rlim_cur);
}

TEST_F(programs_test, MountTheUsualPlaceWhereItIsNot) {
    while (umount2("/sys/fs/bpf", MNT_DETACH) == 0) {
    }
    EXPECT_EQ(kolt_opened::FRESH, open("/sys/fs/bpf/kolt-test")) << why_.text;
    programs_.reset();
    EXPECT_TRUE(kolt_programs::unpin("/sys/fs/bpf/kolt-test", &why_)) << why_.text;
}

TEST_F(programs_test, OfTheNextProcessFindEverythingAsItWas) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    const kolt_port word{.group = 3, .flags = KOLT_PORT_OPEN, .admits = 1};
    ASSERT_TRUE(programs_->set_port(77, word));
    ASSERT_TRUE(programs_->hd_set(CLIENT.data(), 77));
    EXPECT_EQ(kolt_opened::TAKEN_OVER, open_again()) << why_.text;
    EXPECT_FALSE(programs_->made(KOLT_MAP_STREAMS));
    EXPECT_EQ(word, programs_->port(77));
    EXPECT_EQ(77U, programs_->hd_find(CLIENT.data()));
}

TEST_F(programs_test, OfTwoFoldersHaveNothingInCommon) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    kolt_programs other;
    ASSERT_EQ(kolt_opened::FRESH, other.open("/tmp/other", &why_));
    ASSERT_TRUE(other.set_port(5, {.flags = KOLT_PORT_OPEN}));
    EXPECT_EQ(kolt_port{}, programs_->port(5));
}

TEST_F(programs_test, MakeAPinThatIsMissing) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    ASSERT_TRUE(programs_->set_port(77, {.flags = KOLT_PORT_OPEN}));
    remove_pin("hd");
    EXPECT_EQ(kolt_opened::TAKEN_OVER, open_again()) << why_.text;
    EXPECT_TRUE(programs_->made(KOLT_MAP_HD));
    EXPECT_EQ(KOLT_PORT_OPEN, programs_->port(77).flags);
    EXPECT_EQ(kolt_opened::TAKEN_OVER, open_again());
    EXPECT_FALSE(programs_->made(KOLT_MAP_HD));
}

TEST_F(programs_test, TellPinsOfAnotherShapeApart) {
    struct {
        const char *name;
        bpf_map_type type;
        uint32_t value_size;
        uint32_t entries;
        const char *words;
    } const cases[] = {
        {"ports", BPF_MAP_TYPE_HASH, 8, KOLT_MAX_PORTS, "ports is of another version: its type is 1, not 2"},
        {"hd", BPF_MAP_TYPE_HASH, 4, KOLT_MAX_HD, "hd is of another version: its key size is 4, not 8"},
        {"identities", BPF_MAP_TYPE_HASH, 8, KOLT_MAX_LINKS, "its value size is 8, not 16"},
        {"identities", BPF_MAP_TYPE_HASH, 16, 64, "its size is 64, not 256"},
        {"ports", BPF_MAP_TYPE_ARRAY, 8, KOLT_MAX_PORTS, "its flags is 0, not 1024"},
    };
    for (const auto &row : cases) {
        ASSERT_EQ(kolt_opened::FRESH, open());
        programs_.reset();
        remove_pin(row.name);
        put_pin(row.name, row.type, row.value_size, row.entries);
        EXPECT_EQ(kolt_opened::INCOMPATIBLE, open()) << row.words;
        EXPECT_THAT(why_.text, HasSubstr(row.words));
        EXPECT_EQ(-1, programs_->map(KOLT_MAP_PORTS));
        ASSERT_TRUE(kolt_programs::unpin(PINS, &why_)) << why_.text;
    }
}

TEST_F(programs_test, TellPinsOfAnotherVersionApart) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    const uint32_t key = 0;
    const uint32_t version = KOLT_LAYOUT_VERSION + 1;
    ASSERT_EQ(0, bpf_map_update_elem(programs_->map(KOLT_MAP_LAYOUT), &key, &version, BPF_ANY));
    EXPECT_EQ(kolt_opened::INCOMPATIBLE, open_again());
    EXPECT_THAT(why_.text, HasSubstr("are of version 2, not 1"));
}

TEST_F(programs_test, TakeNoPinsOfSomebodyElse) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    remove_pin("layout");
    EXPECT_EQ(kolt_opened::INCOMPATIBLE, open_again());
    EXPECT_THAT(why_.text, HasSubstr("has no layout beside it"));
}

TEST_F(programs_test, TakeNoProgramForAMap) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    remove_pin("ports");
    ASSERT_EQ(0, bpf_obj_pin(programs_->program(kolt_direction::INGRESS), (std::string(PINS) + "/ports").c_str()));
    EXPECT_EQ(kolt_opened::INCOMPATIBLE, open_again());
}

TEST_F(programs_test, OfTheNextProcessAreTheSamePrograms) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    const uint32_t first = egress_number();
    ASSERT_EQ(kolt_opened::TAKEN_OVER, open_again());
    EXPECT_EQ(first, egress_number());
    remove_pin("hd");
    ASSERT_EQ(kolt_opened::TAKEN_OVER, open_again());
    EXPECT_NE(first, egress_number()) << "it would go by a table that is gone";
    EXPECT_GE(programs_->own().of_number(kolt_direction::EGRESS, first), 0) << "yet it is known";
    remove_pin("streams");
    ASSERT_EQ(kolt_opened::TAKEN_OVER, open_again()) << why_.text;
    EXPECT_EQ(-1, programs_->own().of_number(kolt_direction::EGRESS, first)) << "it is two versions old";
}

TEST_F(programs_test, TakeNothingElseForAProgram) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    for (const char *name : {"kolt_ingress", "kolt_egress_before"}) {
        (void)unlink((std::string(PINS) + "/" + name).c_str());
        put_pin(name, BPF_MAP_TYPE_ARRAY, 8, 1);
        EXPECT_EQ(kolt_opened::INCOMPATIBLE, open_again());
        EXPECT_THAT(why_.text, HasSubstr(std::string(name) + " is no program of kolt-bridged"));
        remove_pin(name);
    }
}

TEST_F(programs_test, BeginAnewAfterUnpinning) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    ASSERT_TRUE(programs_->set_port(77, {.flags = KOLT_PORT_OPEN}));
    ASSERT_TRUE(kolt_programs::unpin(PINS, &why_)) << why_.text;
    EXPECT_TRUE(kolt_programs::unpin(PINS, &why_)) << "nothing is left to remove";
    EXPECT_EQ(kolt_opened::FRESH, open_again());
    EXPECT_EQ(kolt_port{}, programs_->port(77));
}

TEST_F(programs_test, RemoveNothingFromAnOrdinaryFolder) {
    write_file("/tmp/mine/letter", "dear");
    EXPECT_FALSE(kolt_programs::unpin("/tmp/mine", &why_));
    EXPECT_TRUE(std::filesystem::exists("/tmp/mine/letter"));
}

TEST_F(programs_test, SayWhyTheFolderCannotBeMade) {
    write_file("/tmp/file", "");
    EXPECT_EQ(kolt_opened::FAILED, open("/tmp/file/pins"));
    EXPECT_NE(0, why_.error);
    EXPECT_THAT(why_.text, HasSubstr("/tmp/file/pins"));
}

TEST_F(programs_test, GiveBackEveryDescriptor) {
    ASSERT_EQ(kolt_opened::FRESH, open());
    programs_.reset();
    const size_t before = open_descriptors();
    for (int times = 0; times < 3; times++)
        ASSERT_EQ(kolt_opened::TAKEN_OVER, open_again());
    programs_.reset();
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(programs_test, LetTheLibrarySpeakToTheLogOnly) {
    std::string lines;
    kolt_set_bpf_log([](void *text, bool, const char *line) { static_cast<std::string *>(text)->append(line); },
                     &lines);
    ASSERT_EQ(kolt_opened::FRESH, open());
    testing::internal::CaptureStderr();
    EXPECT_EQ(nullptr, bpf_object__open_file("/tmp/nowhere", nullptr));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_THAT(lines, HasSubstr("/tmp/nowhere"));
    EXPECT_THAT(lines, testing::Not(HasSubstr("\n")));
    kolt_set_bpf_log(nullptr, nullptr);
}

TEST_F(programs_test, LoadWhereLoadsHaveToBeAligned) {
    const auto bytes = kolt_bpf_object();
    const std::unique_ptr<bpf_object, void (*)(bpf_object *)> object(
        bpf_object__open_mem(bytes.data(), bytes.size(), nullptr), bpf_object__close);
    ASSERT_TRUE(object);
    for (const char *name : {"kolt_ingress", "kolt_egress"})
        ASSERT_EQ(0,
                  bpf_program__set_flags(bpf_object__find_program_by_name(object.get(), name), BPF_F_STRICT_ALIGNMENT));
    EXPECT_EQ(0, bpf_object__load(object.get()));
}

// The streams of a process that ended, in every state in which it can have left them.
class takeover_test : public data_plane_test {
protected:
    takeover_test() {
        open_port(one_, KOLT_PORT_FOLLOW);
    }
    void make(uint16_t number) {
        EXPECT_EQ(PASSED, arrive(ip_frame{.src_port = number}.bytes(), one_));
    }
    void take_over(uint64_t now) {
        ASSERT_EQ(kolt_opened::TAKEN_OVER, next_.open(PINS, &why_)) << why_.text;
        ASSERT_TRUE(next_streams_.open(next_, now, &why_)) << why_.text;
    }
    // Streams that still can be made.
    size_t free_slots() {
        size_t count = 0;
        uint32_t slot = 0;
        while (bpf_map_lookup_and_delete_elem(next_.map(KOLT_MAP_FREE_SLOTS), nullptr, &slot) == 0)
            count++;
        return count;
    }

    kolt_programs next_;
    kolt_streams next_streams_;
};

TEST_F(takeover_test, KeepsStreamsWithTheirTargets) {
    make(1);
    make(2);
    streams_.repoint(1, two_);
    take_over(0);
    EXPECT_EQ(2U, next_streams_.count());
    EXPECT_EQ(two_, next_streams_.record(1).target);
    EXPECT_EQ(static_cast<size_t>(KOLT_MAX_STREAMS - 2), free_slots());
}

TEST_F(takeover_test, CountsInItsFirstPeriodWhatCameSince) {
    for (int times = 0; times < 5; times++)
        make(1);
    make(2);
    take_over(0);
    EXPECT_EQ(0U, next_streams_.record(0).rx_packets) << "it has measured no period yet";
    make(1);
    make(1);
    make(3);
    next_streams_.end_period();
    EXPECT_EQ(2U, next_streams_.record(0).rx_packets);
    EXPECT_EQ(0U, next_streams_.record(1).rx_packets);
    EXPECT_EQ(1U, next_streams_.record(2).rx_packets) << "all of one that began meanwhile";
}

TEST_F(takeover_test, FinishesWhatWasBeingRemoved) {
    make(1);
    ASSERT_TRUE(streams_.remove(0, 0));
    take_over(500);
    (void)next_streams_.sweep(500 + KOLT_SLOT_REST_MS);
    EXPECT_EQ(static_cast<size_t>(KOLT_MAX_STREAMS), free_slots());
}

TEST_F(takeover_test, FindsSlotsThatNobodyHolds) {
    uint32_t slot = 0;
    for (int times = 0; times < 3; times++)
        ASSERT_EQ(0, bpf_map_lookup_and_delete_elem(programs_.map(KOLT_MAP_FREE_SLOTS), nullptr, &slot));
    take_over(0);
    (void)next_streams_.sweep(KOLT_SLOT_REST_MS);
    EXPECT_EQ(static_cast<size_t>(KOLT_MAX_STREAMS), free_slots());
}

TEST_F(takeover_test, KeepsAStreamWhoseRemovalHadOnlyBegun) {
    make(1);
    const kolt_stream_key key = only_stream().key;
    const uint32_t slot = 0;
    ASSERT_TRUE(streams_.remove(0, 0));
    ASSERT_EQ(0, bpf_map_update_elem(programs_.map(KOLT_MAP_STREAM_SLOTS), &key, &slot, BPF_ANY));
    take_over(0);
    EXPECT_EQ(0U, next_streams_.count());
    (void)next_streams_.sweep(KOLT_SLOT_REST_MS);
    EXPECT_EQ(1U, next_streams_.count());
    next_streams_.end_period();
    EXPECT_EQ(0U, next_streams_.record(0).rx_packets) << "what it carried before was counted before";
}

} // namespace
