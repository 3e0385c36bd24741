// Immutable counted strings, and the names of entities and members.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "runtime/Export.h"
#include "runtime/Ptr.h"

namespace Orv {

// Joins the parts without intermediate strings.
class String;
ORV_API String concat(std::initializer_list<std::string_view> parts);

// An immutable string of any bytes. Copies share the text; the hash is computed once, when it is
// first asked for. The empty string allocates nothing.
class ORV_API String {
  public:
    String() = default;
    String(const char* text) : String(std::string_view(text)) {}
    String(const std::string& text) : String(std::string_view(text)) {}
    String(std::string_view text);
    String(const String& other) : rep_(other.rep_) {
        if (rep_ != nullptr) rep_->count.add();
    }
    String(String&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}
    String& operator=(String other) noexcept {
        std::swap(rep_, other.rep_);
        return *this;
    }
    [[gnu::always_inline]] ~String() {
        if (rep_ != nullptr && rep_->count.remove() == 0) destroy(rep_);
    }

    std::string_view view() const {
        return rep_ == nullptr ? std::string_view() : std::string_view(text(rep_), rep_->size);
    }
    operator std::string_view() const { return view(); }
    std::string str() const { return std::string(view()); }
    // Ends with a zero byte.
    const char* c_str() const { return rep_ == nullptr ? "" : text(rep_); }
    std::size_t size() const { return rep_ == nullptr ? 0 : rep_->size; }
    bool empty() const { return rep_ == nullptr; }

    // The 32-bit FNV-1a of the bytes, with 1 for 0; the same on every machine.
    std::uint32_t hash() const {
        if (rep_ == nullptr) return emptyHash;
        const std::uint32_t known = rep_->hash.load(std::memory_order_relaxed);
        return known != 0 ? known : computeHash(rep_);
    }

    // The `count` bytes from `from`, or as many as there are.
    String substr(std::size_t from, std::size_t count = std::string_view::npos) const;

    friend bool operator==(const String& a, const String& b) {
        return a.rep_ == b.rep_ || a.view() == b.view();
    }
    friend auto operator<=>(const String& a, const String& b) {
        return a.view().compare(b.view()) <=> 0;
    }
    // With other texts, which need not become Strings first.
    template <class Text>
    requires(std::is_convertible_v<const Text&, std::string_view> &&
             !std::is_base_of_v<String, Text>) friend bool
    operator==(const String& a, const Text& b) {
        return a.view() == std::string_view(b);
    }
    friend ORV_API String operator+(const String& a, const String& b);
    friend ORV_API String concat(std::initializer_list<std::string_view> parts);
    friend ORV_API std::ostream& operator<<(std::ostream& out, const String& s);

  private:
    struct Rep {
        Count count{1};
        std::atomic<std::uint32_t> hash{0};  // 0: not computed yet
        std::size_t size;
    };
    static constexpr std::uint32_t emptyHash = 0x811c9dc5;

    static const char* text(const Rep* rep) { return reinterpret_cast<const char*>(rep + 1); }
    static Rep* allocate(std::size_t size);
    static void destroy(Rep* rep);
    static std::uint32_t computeHash(Rep* rep);

    Rep* rep_ = nullptr;
};

// A string used as the name of an entity or of a collection's member.
class Name final : public String {
  public:
    using String::String;
    Name(const String& text) : String(text) {}
    Name(String&& text) noexcept : String(std::move(text)) {}
};

// Mixes two hashes, as of the fields of a key.
inline std::uint32_t mixHash(std::uint32_t a, std::uint32_t b) {
    return (a ^ (b + 0x9e3779b9 + (a << 6) + (a >> 2))) * 0x01000193;
}

}  // namespace Orv

template <>
struct std::hash<Orv::String> {
    std::size_t operator()(const Orv::String& s) const noexcept { return s.hash(); }
};
template <>
struct std::hash<Orv::Name> : std::hash<Orv::String> {};
