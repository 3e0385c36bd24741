// Bytes as operations: what agents, operators and others may do to a manager and its entities. The
// names come from small pools, so that operations meet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/Journal.h"
#include "host/Tree.h"

namespace fuzz {

// Taken one by one; 0 beyond the end.
class Bytes {
  public:
    Bytes(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

    bool done() const { return at_ == end_; }
    unsigned take() { return done() ? 0 : *at_++; }
    unsigned below(std::size_t bound) { return take() % static_cast<unsigned>(bound); }
    template <class Pool>
    const auto& of(const Pool& pool) {
        return pool[below(pool.size())];
    }

  private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

struct Operation {
    enum class Kind {
        inputs,   // writes into the tree, one after another
        pass,     // seconds pass
        passDue,  // the time of the next timer comes, or the time midway (seconds: 0.5), or later
        settle,   // what is due now happens
        restart,  // the manager is dropped if there is one, and made if there is none
        inside,   // the operation after this is done inside of a callback: the `count`-th from now
    };
    // What is called back for.
    enum class Change { any, scalar, member, entry, line, outside };

    Kind kind = Kind::inputs;
    std::vector<Host::Input> inputs{};
    double seconds = 0;
    unsigned count = 0;
    Change change = Change::any;
};

// Everything that a class needs, its configuration, and an agent for each of its stages.
Operation setUp(Bytes& bytes);

// The next operation, which may go by what is in the tree.
Operation next(Bytes& bytes, const Host::Tree& tree);
// The same where it is done inside of a callback: more often something is taken away there.
Operation nextInside(Bytes& bytes, const Host::Tree& tree);

}  // namespace fuzz
