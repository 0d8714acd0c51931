// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

namespace vdk {

class Descriptor {
public:
    explicit Descriptor(int value = -1) : value(value) {}
    Descriptor(Descriptor&& other) noexcept : value(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Descriptor() { reset(-1); }

    int get() const { return value; }
    explicit operator bool() const { return value >= 0; }
    int release() {
        int released = value;
        value = -1;
        return released;
    }

private:
    void reset(int other) {
        if (value >= 0) {
            close(value);
        }
        value = other;
    }

    int value;
};

} // namespace vdk
