// Owners for what C interfaces hand out, one alias a kind of handle.
#pragma once

#include <memory>
#include <unistd.h>
#include <utility>

// Deleter that gives a pointer back with `Release`, whose result has nobody left to act on it.
template <auto Release> struct kolt_releaser {
    template <class T> void operator()(T *handle) const {
        (void)Release(handle);
    }
};

template <class T, auto Release> using kolt_handle = std::unique_ptr<T, kolt_releaser<Release>>;

// Move-only owner of a descriptor; -1 is none.
class unique_fd {
public:
    explicit unique_fd(int fd = -1) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    ~unique_fd() {
        reset();
    }

    [[nodiscard]] int get() const {
        return fd_;
    }
    explicit operator bool() const {
        return fd_ >= 0;
    }
    int release() {
        return std::exchange(fd_, -1);
    }
    void reset(int fd = -1) {
        if (fd_ >= 0)
            (void)close(fd_); // a failing close has released the descriptor all the same
        fd_ = fd;
    }

private:
    int fd_;
};
