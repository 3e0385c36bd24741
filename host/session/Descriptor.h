// A file descriptor that is closed when its owner goes.
#pragma once

#include <unistd.h>

#include <utility>

namespace Host {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : held_(descriptor) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : held_(std::exchange(other.held_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(held_, other.held_);
        return *this;
    }

    // Below 0: none.
    int get() const { return held_; }
    explicit operator bool() const { return held_ >= 0; }
    void close() {
        if (held_ >= 0) ::close(std::exchange(held_, -1));
    }

  private:
    int held_ = -1;
};

}  // namespace Host
