// A report, the change that agents write most, beside a hash map with the same key: both look the
// key up, store a bool, and tell one observer.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/AgentStatus.h"

namespace Bench {

struct PlainKey {
    std::string agent;
    std::string stage;
    std::string instance;
    friend bool operator==(const PlainKey&, const PlainKey&) = default;
};

// Whoever else may be one stands elsewhere: the compiler cannot guess who is called.
class KeyObserver {
  public:
    virtual ~KeyObserver() = default;
    virtual void onComplete(const PlainKey&) {}
};

}  // namespace Bench

namespace {

// The same texts for all, none too long for a std::string without an allocation. Keys are made from
// names that the caller holds, as a program does that knows its stages: where copies share a text,
// keys of the same stage do.
template <class Key, class Name>
std::vector<Key> keys(std::int64_t count) {
    std::vector<Name> stages;
    for (int i = 0; i < 97; ++i) stages.emplace_back("stage" + std::to_string(i));
    const Name instance("instance");
    std::vector<Key> keys;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
        keys.push_back(Key{"agent" + std::to_string(i), stages[i % stages.size()], instance});
    return keys;
}

// Each key once, in an order that no prefetching foresees.
std::vector<std::uint32_t> scattered(std::int64_t count) {
    std::vector<std::uint32_t> order(static_cast<std::size_t>(count));
    for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    return order;
}

// A Record tells its one observer of each change. Every report is one, since whatever was reported
// last is reported otherwise in the next round.
template <class Record>
void keyedChange(benchmark::State& state) {
    const auto all = keys<typename Record::Key, typename Record::Name>(state.range(0));
    const auto order = scattered(state.range(0));
    Record record;
    for (const auto& key : all) record.completeIs(key, false);
    const std::int64_t before = record.told();

    bool value = true;
    auto next = order.begin();
    for (auto _ : state) {
        record.completeIs(all[*next], value);
        if (++next == order.end()) {
            next = order.begin();
            value = !value;
        }
    }
    if (record.told() - before != state.iterations())
        state.SkipWithError("not every change was told");
    state.SetItemsProcessed(state.iterations());
}

// NameInKeys: how the caller holds the names that it makes keys from.
template <class NameInKeys>
class Ours {
  public:
    using Key = Stage::AgentStatusKey;
    using Name = NameInKeys;

    Ours() { notifiee_.notifierIs(entity_); }
    void completeIs(const Key& key, bool complete) { entity_->completeIs(key, complete); }
    std::int64_t told() const { return notifiee_.told; }

  private:
    struct Notifiee final : Stage::AgentStatus::NotifieeConst {
        void onComplete(Stage::AgentStatusKey) override { benchmark::DoNotOptimize(++told); }
        std::int64_t told = 0;
    };

    const Orv::Ptr<Stage::AgentStatus> entity_ = Orv::make<Stage::AgentStatus>("agent");
    Notifiee notifiee_;
};
BENCHMARK(keyedChange<Ours<Orv::String>>)->Name("keyed/ours")->Arg(1000)->Arg(100000);
// No two keys share a text, as if each had come in by itself.
BENCHMARK(keyedChange<Ours<std::string>>)->Name("keyed/ours-unshared")->Arg(1000)->Arg(100000);

struct PlainHash {
    // Not noexcept, so that the map keeps the hashes of what it holds, which makes it faster.
    std::size_t operator()(const Bench::PlainKey& key) const {
        const std::hash<std::string> hash;
        std::size_t mixed = hash(key.agent);
        mixed = mixed * 31 + hash(key.stage);
        return mixed * 31 + hash(key.instance);
    }
};

struct Counting final : Bench::KeyObserver {
    void onComplete(const Bench::PlainKey&) override { benchmark::DoNotOptimize(++told); }
    std::int64_t told = 0;
};

class UnorderedMap {
  public:
    using Key = Bench::PlainKey;
    using Name = std::string;

    void completeIs(const Key& key, bool complete) {
        const auto [at, isNew] = complete_.try_emplace(key, complete);
        if (!isNew) {
            if (at->second == complete) return;
            at->second = complete;
        }
        for (Bench::KeyObserver* const observer : observers_) observer->onComplete(key);
    }
    std::int64_t told() const { return observer_.told; }

  private:
    std::unordered_map<Bench::PlainKey, bool, PlainHash> complete_;
    Counting observer_;
    std::vector<Bench::KeyObserver*> observers_{&observer_};
};
BENCHMARK(keyedChange<UnorderedMap>)->Name("keyed/unordered_map")->Arg(1000)->Arg(100000);

}  // namespace
