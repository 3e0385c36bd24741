// Tracing: text lines on a handle with a level, and a cheap ring buffer of the same facts.
#pragma once

#include <atomic>
#include <sstream>
#include <string>

#include "runtime/Export.h"
#include "runtime/Pellum.h"

namespace Orv {

// Where a trace block stands. One per block, made on first use.
struct TraceSite {
    const char* unit;       // the source unit's name
    const char* handler;    // the function's name
    const char* signature;  // the function's full signature
    int line;
    int level;
};

// Takes the text lines of a handle.
class ORV_API TraceSink {
  public:
    TraceSink() = default;
    virtual ~TraceSink();
    TraceSink(const TraceSink&) = delete;
    TraceSink& operator=(const TraceSink&) = delete;
    // `text` is what the block adds to its site.
    virtual void line(const TraceSite& site, const std::string& text) = 0;
};

// A named trace facility. Handles with the same name share one state.
class ORV_API TraceHandle {
  public:
    static constexpr int off = -1;

    static TraceHandle& named(const std::string& name);

    // Blocks of this level and below are traced. `off` at start.
    int level() const { return level_.load(std::memory_order_relaxed); }
    void levelIs(int level);
    // Null (the start value) writes to standard error. Not owned.
    void sinkIs(TraceSink* sink) { sink_.store(sink, std::memory_order_release); }
    // The ring buffer's own level. `off` at start.
    void recordLevelIs(int level);

    // The one branch that a disabled block costs.
    bool enabled(int level) const { return level <= gate_.load(std::memory_order_relaxed); }
    // Whether any handle is on at any level.
    static bool someEnabled() { return enabledHandles.load(std::memory_order_relaxed) != 0; }
    // Whether text is wanted; the observable result of a handler may not depend on it.
    bool traces(int level) const { return level <= this->level(); }

    template <class... Args>
    void trace(const TraceSite& site, Pellum::Descriptor& descriptor, const Args&... args) {
        if (site.level <= recordLevel_.load(std::memory_order_relaxed))
            Pellum::ring().record(descriptor);
        if (!traces(site.level)) return;
        std::ostringstream text;
        text.imbue(std::locale::classic());
        (void)(text << ... << args);
        write(site, text.str());
    }

    // "unit:line handler: signature text", as the default sink writes it.
    static std::string formatted(const TraceSite& site, const std::string& text);

  private:
    void gateIs(int gate);
    void write(const TraceSite& site, const std::string& text);

    static std::atomic<int> enabledHandles;
    std::atomic<int> gate_{off};
    std::atomic<int> level_{off};
    std::atomic<int> recordLevel_{off};
    std::atomic<TraceSink*> sink_{nullptr};
};

// A source unit's own view of a handle.
struct TraceUnit {
    const char* name;
    TraceHandle& handle;
};

}  // namespace Orv

// The trace block. The source unit's `traceUnit()`, which must be in scope, says where it goes. The
// arguments are evaluated only when the handle is on at the level, and must have no side effects.
#define TRACE(levelOfBlock, ...)                                                                  \
    do {                                                                                          \
        const Orv::TraceUnit& orvUnit = traceUnit();                                              \
        if (orvUnit.handle.enabled(levelOfBlock)) [[unlikely]] {                                  \
            static const Orv::TraceSite orvSite{orvUnit.name, __func__, __PRETTY_FUNCTION__,      \
                                                __LINE__, levelOfBlock};                          \
            static Pellum::Descriptor orvDescriptor{orvSite.unit, orvSite.handler, orvSite.line}; \
            orvUnit.handle.trace(orvSite, orvDescriptor __VA_OPT__(, ) __VA_ARGS__);              \
        }                                                                                         \
    } while (false)
