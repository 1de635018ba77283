/*
 * The journal: one line of JSON for each call into the platform, in the order of the calls, for tests to read.
 */
#ifndef SIM_JOURNAL_H
#define SIM_JOURNAL_H

#include <cstddef>
#include <cstdint>

/*
 * One line under construction. Arguments are added in order, then one of the result functions writes the line with a
 * single append, so that lines of several processes never mix. A line too long for the buffer loses the end of its
 * last text, never its shape. errno survives all of it.
 */
class journal_line {
public:
    explicit journal_line(const char *function);

    journal_line &text(const char *key, const char *value);
    journal_line &number(const char *key, long long value);
    journal_line &mac(const char *key, const uint8_t *value);
    journal_line &bytes(const char *key, const void *data, size_t size);
    journal_line &null(const char *key);

    int result(int value);
    void no_result();

private:
    void key(const char *name);
    void character(char c);
    void raw(const char *s);
    void decimal(long long value);
    void hex(uint8_t byte);
    void quoted(const char *s);
    void write_line();

    static constexpr size_t CAPACITY = 4096;
    static constexpr size_t TAIL = 64; // what is kept free for closing the line
    size_t used_ = 0;
    size_t limit_ = CAPACITY - TAIL;
    bool first_ = true;
    char line_[CAPACITY];
};

#endif
