#include "runtime/Trace.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>

namespace Orv {

TraceSink::~TraceSink() = default;

std::atomic<int> TraceHandle::enabledHandles{0};

TraceHandle& TraceHandle::named(const std::string& name) {
    static std::mutex mutex;
    static std::map<std::string, std::unique_ptr<TraceHandle>> handles;
    const std::lock_guard lock(mutex);
    std::unique_ptr<TraceHandle>& handle = handles[name];
    if (!handle) handle = std::make_unique<TraceHandle>();
    return *handle;
}

void TraceHandle::levelIs(int level) {
    level_ = level;
    gateIs(std::max(level, recordLevel_.load()));
}

void TraceHandle::recordLevelIs(int level) {
    recordLevel_ = level;
    gateIs(std::max(level_.load(), level));
}

void TraceHandle::gateIs(int gate) {
    const int before = gate_.exchange(gate);
    enabledHandles += (gate > off ? 1 : 0) - (before > off ? 1 : 0);
}

std::string TraceHandle::formatted(const TraceSite& site, const std::string& text) {
    return std::string(site.unit) + ":" + std::to_string(site.line) + " " + site.handler + ": " +
           site.signature + text;
}

void TraceHandle::write(const TraceSite& site, const std::string& text) {
    if (TraceSink* const sink = sink_.load(std::memory_order_acquire)) {
        sink->line(site, text);
    } else {
        const std::string line = formatted(site, text) + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
}

}  // namespace Orv
