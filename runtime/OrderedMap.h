// The hash map behind every collection: dense, insertion-ordered, and safe to change while walked.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "runtime/Error.h"

namespace Orv {

// Keys K (with hash() and ==) to values V. Members stand in the order in which they were added; one
// that is removed and added again goes to the end.
//
// Members are kept in an array, in order, beside an open-addressing index of positions (a small map
// has none and is searched). A removed member leaves a tombstone, so that positions stay while the
// map is walked; tombstones go when nobody walks and they outnumber the members.
template <class K, class V>
class OrderedMap {
    struct Entry {
        K key;
        V value;
        std::uint32_t hash;
        std::uint32_t died;  // 0 while the member is present, else the number of its removal
    };

  public:
    OrderedMap() = default;
    OrderedMap(const OrderedMap&) = delete;
    OrderedMap& operator=(const OrderedMap&) = delete;

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    bool contains(const K& key) const { return position(key) != absent; }

    // The value held under `key`, or null.
    const V* find(const K& key) const {
        const std::uint32_t at = position(key);
        return at == absent ? nullptr : &entries_[at].value;
    }
    V* find(const K& key) {
        return const_cast<V*>(static_cast<const OrderedMap*>(this)->find(key));
    }
    // The value held under `key`; a default V when there is none.
    V value(const K& key) const {
        const V* const held = find(key);
        return held != nullptr ? *held : V();
    }

    // Adds or overwrites. Returns whether the member is new. Nothing has changed if this throws.
    bool set(const K& key, V value) {
        const std::uint32_t hash = key.hash();
        const std::uint32_t at = position(key, hash);
        if (at != absent) {
            entries_[at].value = std::move(value);
            return false;
        }
        append(key, std::move(value), hash);
        return true;
    }

    // The value held under `key`, which is added with a default V when there is none. Valid until
    // the map changes; nothing has changed if this throws.
    V& member(const K& key) {
        const std::uint32_t hash = key.hash();
        std::uint32_t at = position(key, hash);
        if (at == absent) {
            append(key, V(), hash);
            at = static_cast<std::uint32_t>(entries_.size() - 1);
        }
        return entries_[at].value;
    }

    // Makes room for as many members as are known to come.
    void reserve(std::size_t members) {
        if (members <= entries_.capacity()) return;
        if (members > smallSize && slots_ * std::size_t{7} < members * 8) reindex(members);
        entries_.reserve(members);
    }

    // Removes the member, and returns its value in `removed` when that is not null. Returns whether
    // there was one.
    bool del(const K& key, V* removed = nullptr) {
        const std::uint32_t at = position(key);
        if (at == absent) return false;
        unindex(at);
        Entry& entry = entries_[at];
        entry.died = ++removals_;
        V gone = std::move(entry.value);
        entry.value = V();
        --size_;
        tidy();
        if (removed != nullptr) *removed = std::move(gone);
        return true;
    }

    // A walk over the keys present when it starts: each is found if it is present again when its
    // turn comes, just as if the keys had been copied first and each were looked up before its
    // step. Members may be added and removed meanwhile, the current one included.
    class Walk {
      public:
        explicit Walk(const OrderedMap& map)
            : map_(map), end_(map.entries_.size()), start_(map.removals_) {
            ++map_.walkers_;
        }
        ~Walk() {
            // A map that is const here has lost members only if it is not const to somebody else.
            if (--map_.walkers_ == 0 && map_.removals_ != 0) const_cast<OrderedMap&>(map_).tidy();
        }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;

        // The next key, or null at the end; it is valid until the map changes.
        const K* next() {
            while (at_ < end_) {
                const Entry& entry = map_.entries_[at_++];
                if (entry.died == 0 || (entry.died > start_ && map_.contains(entry.key)))
                    return &entry.key;
            }
            return nullptr;
        }

        // Goes on with the member at `place`, which stands behind what was visited.
        void goTo(std::size_t place) { at_ = place; }
        // Whether a member has been removed since the start.
        bool disturbed() const { return map_.removals_ != start_; }

        // For a range-based for over the keys themselves.
        class Iterator {
          public:
            Iterator(Walk* walk, const K* key) : walk_(walk), key_(key) {}
            K operator*() const { return *key_; }
            Iterator& operator++() {
                key_ = walk_->next();
                return *this;
            }
            bool operator==(const Iterator& other) const { return key_ == other.key_; }

          private:
            Walk* walk_;
            const K* key_;
        };
        Iterator begin() { return {this, next()}; }
        Iterator end() { return {this, nullptr}; }

      private:
        const OrderedMap& map_;
        std::size_t at_ = 0;
        const std::size_t end_;
        const std::uint32_t start_;
    };

    // for (K key : map.walked()): each key of a Walk.
    Walk walked() const& { return Walk(*this); }
    Walk walked() && = delete;  // the map has to outlive the walk
    // Calls visit(K key) for each key of a Walk.
    template <class Visit>
    void walk(Visit&& visit) const {
        Walk walk(*this);
        while (const K* const key = walk.next()) visit(K(*key));
    }

    // Where the member stands in the order, or `nowhere`. Places rise along the order; they stay
    // while the map is walked.
    static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
    std::size_t place(const K& key) const {
        const std::uint32_t at = position(key);
        return at == absent ? nowhere : at;
    }
    // A walk for whoever knows which members are worth a visit: those at `places`, in the
    // order of the map, as long as `known()` says that no other is and nothing is removed; from
    // then on, every one that is left.
    template <class Known, class Visit>
    void walkAt(std::vector<std::size_t> places, Known&& known, Visit&& visit) const {
        std::sort(places.begin(), places.end());
        Walk walk(*this);
        for (const std::size_t place : places) {
            walk.goTo(place);
            visit(K(*walk.next()));
            if (known() && !walk.disturbed()) continue;
            while (const K* const key = walk.next()) visit(K(*key));
            return;
        }
    }

    // Plain iteration, in order, over {key, value}; the map must not change meanwhile.
    class Iterator {
      public:
        using value_type = std::pair<const K&, const V&>;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::input_iterator_tag;
        using pointer = void;
        using reference = value_type;

        Iterator(const Entry* at, const Entry* end) : at_(at), end_(end) { skip(); }
        value_type operator*() const { return {at_->key, at_->value}; }
        Iterator& operator++() {
            ++at_;
            skip();
            return *this;
        }
        bool operator==(const Iterator& other) const { return at_ == other.at_; }

      private:
        void skip() {
            while (at_ != end_ && at_->died != 0) ++at_;
        }
        const Entry* at_;
        const Entry* end_;
    };
    Iterator begin() const { return {entries_.data(), entries_.data() + entries_.size()}; }
    Iterator end() const {
        const Entry* const last = entries_.data() + entries_.size();
        return {last, last};
    }

  private:
    static constexpr std::uint32_t absent = 0xffffffff;
    static constexpr std::size_t smallSize = 8;  // up to here, no index

    // The hash stands here as well, so that a search reads no member but the one that it finds.
    struct Slot {
        std::uint32_t at = absent;
        std::uint32_t hash = 0;
    };

    std::uint32_t position(const K& key) const {
        return size_ == 0 ? absent : position(key, key.hash());
    }
    std::uint32_t position(const K& key, std::uint32_t hash) const {
        if (!index_) {
            for (std::size_t i = 0; i < entries_.size(); ++i) {
                const Entry& entry = entries_[i];
                if (entry.hash == hash && entry.died == 0 && entry.key == key)
                    return static_cast<std::uint32_t>(i);
            }
            return absent;
        }
        const std::size_t mask = slots_ - 1;
        for (std::size_t place = home(hash, mask);; place = (place + 1) & mask) {
            const Slot& slot = index_[place];
            if (slot.at == absent) return absent;
            if (slot.hash == hash && entries_[slot.at].key == key) return slot.at;
        }
    }

    // Fibonacci hashing spreads what the low bits of the hash do not.
    static std::size_t home(std::uint32_t hash, std::size_t mask) {
        return static_cast<std::size_t>((hash * 0x9e3779b97f4a7c15ull) >> 32) & mask;
    }

    void append(const K& key, V&& value, std::uint32_t hash) {
        // Makes room from tombstones only when there are many, or a full map in which members come
        // and go would be moved as a whole each time.
        if (entries_.size() == entries_.capacity() && walkers_ == 0 &&
            (entries_.size() - size_) * 4 > entries_.size())
            compact();
        assertThat(entries_.size() < absent, "a collection holds fewer than 2^32 - 1 members");
        if (entries_.size() == entries_.capacity())
            entries_.reserve(std::max<std::size_t>(1, entries_.size() * 2));
        if (!index_ ? entries_.size() >= smallSize : (size() + 1) * 8 > slots_ * std::size_t{7})
            reindex(size() + 1);
        // Nothing throws from here on but the copy of the key, which comes first.
        entries_.push_back(Entry{key, std::move(value), hash, 0});
        if (index_) enter(static_cast<std::uint32_t>(entries_.size() - 1));
        ++size_;
    }

    void enter(std::uint32_t at) {
        const std::size_t mask = slots_ - 1;
        const std::uint32_t hash = entries_[at].hash;
        std::size_t slot = home(hash, mask);
        while (index_[slot].at != absent) slot = (slot + 1) & mask;
        index_[slot] = {at, hash};
    }

    static std::size_t slotsFor(std::size_t members) {
        std::size_t slots = 32;
        while (slots < members * 2) slots *= 2;
        return slots;
    }

    void reindex(std::size_t members) {
        const std::size_t slots = slotsFor(members);
        index_ = std::make_unique<Slot[]>(slots);
        slots_ = static_cast<std::uint32_t>(slots);
        for (std::size_t i = 0; i < entries_.size(); ++i)
            if (entries_[i].died == 0) enter(static_cast<std::uint32_t>(i));
    }

    // Linear probing without deletion marks: what stands behind the hole moves into it if it may
    // (Knuth, The Art of Computer Programming, vol. 3, 6.4, algorithm R).
    void unindex(std::uint32_t at) {
        if (!index_) return;
        const std::size_t mask = slots_ - 1;
        std::size_t hole = home(entries_[at].hash, mask);
        while (index_[hole].at != at) hole = (hole + 1) & mask;
        for (std::size_t slot = (hole + 1) & mask; index_[slot].at != absent;
             slot = (slot + 1) & mask) {
            const std::size_t wanted = home(index_[slot].hash, mask);
            if (((slot - wanted) & mask) >= ((slot - hole) & mask)) {
                index_[hole] = index_[slot];
                hole = slot;
            }
        }
        index_[hole] = Slot{};
    }

    // Drops the tombstones when they outnumber the members. Allocates nothing.
    void tidy() {
        if (walkers_ != 0) return;
        if (size_ == 0)
            clearAll();
        else if (entries_.size() - size_ > size_ + smallSize)
            compact();
    }

    void clearAll() {
        entries_ = std::vector<Entry>();
        index_ = nullptr;
        slots_ = 0;
        removals_ = 0;
    }

    void compact() {
        std::erase_if(entries_, [](const Entry& entry) { return entry.died != 0; });
        removals_ = 0;
        if (!index_) return;
        // A part of it is enough when few are left.
        if (const std::size_t slots = slotsFor(size() + 1); slots * 4 <= slots_)
            slots_ = static_cast<std::uint32_t>(slots);
        std::fill_n(index_.get(), slots_, Slot{});
        for (std::size_t i = 0; i < entries_.size(); ++i) enter(static_cast<std::uint32_t>(i));
    }

    std::vector<Entry> entries_;
    std::unique_ptr<Slot[]> index_;  // null while the map is small
    std::uint32_t slots_ = 0;        // of the index: a power of two
    std::uint32_t size_ = 0;
    std::uint32_t removals_ = 0;
    mutable std::uint32_t walkers_ = 0;
};

}  // namespace Orv
