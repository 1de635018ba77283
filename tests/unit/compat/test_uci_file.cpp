// Reading files of all kinds and sizes, locked or not.
#include "uci_internal.h"
#include "uci_support.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

class UciFile : public UciTest {
protected:
    int read(const std::string &name, std::string *text = nullptr) const {
        char *content = nullptr;
        size_t len = 0;
        const int error = uci_read_file(dir.path("config").c_str(), name.c_str(), &content, &len);
        if (error == UCI_OK && text)
            text->assign(content, len);
        EXPECT_EQ(content != nullptr, error == UCI_OK);
        free(content);
        return error;
    }
};

TEST_F(UciFile, IsReadAsAWhole) {
    const std::string written(100000, 'x');
    config(written);
    std::string text;
    EXPECT_EQ(read("p", &text), UCI_OK);
    EXPECT_EQ(text, written);
}

TEST_F(UciFile, MissingFileOrDirectoryIsNotFound) {
    EXPECT_EQ(read("p"), UCI_ERR_NOTFOUND);
    config("");
    EXPECT_EQ(read("q"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(read(std::string(5000, 'x')), UCI_ERR_NOTFOUND);
}

TEST_F(UciFile, WhatIsNoRegularFileIsNotFound) {
    config("");
    std::filesystem::create_directory(dir.path("config/d"));
    ASSERT_EQ(mkfifo(dir.path("config/f").c_str(), 0600), 0);
    EXPECT_EQ(read("d"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(read("f"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(look_up("f.a.b"), UCI_ERR_NOTFOUND);
}

TEST_F(UciFile, LongerThanTheLimitIsRefused) {
    config(std::string(UCI_MAX_FILE, '#'));
    EXPECT_EQ(read("p"), UCI_OK);
    EXPECT_EQ(look_up("p"), UCI_OK);
    config(std::string(UCI_MAX_FILE + 1, '#'), "q");
    EXPECT_EQ(read("q"), UCI_ERR_MEM);
}

TEST_F(UciFile, WriterThatKeepsItsLockIsNotWaitedForForEver) {
    config("config a s\n\toption o 1\n");
    const Fd writer(open(dir.path("config/p").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(writer.get(), LOCK_EX), 0);
    EXPECT_EQ(value("p.s.o"), "1");
}

} // namespace
