#include "runtime/String.h"

#include <cstring>
#include <initializer_list>
#include <new>
#include <ostream>

namespace Orv {

String::Rep* String::allocate(std::size_t size) {
    Rep* const rep = new (::operator new(sizeof(Rep) + size + 1)) Rep;
    rep->size = size;
    const_cast<char*>(text(rep))[size] = '\0';
    return rep;
}

void String::destroy(Rep* rep) {
    rep->~Rep();
    ::operator delete(rep);
}

String::String(std::string_view from) {
    if (from.empty()) return;
    rep_ = allocate(from.size());
    std::memcpy(const_cast<char*>(text(rep_)), from.data(), from.size());
}

std::uint32_t String::computeHash(Rep* rep) {
    std::uint32_t hash = emptyHash;
    for (const char c : std::string_view(text(rep), rep->size))
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x01000193;
    if (hash == 0) hash = 1;
    rep->hash.store(hash, std::memory_order_relaxed);
    return hash;
}

String String::substr(std::size_t from, std::size_t count) const {
    if (from >= size()) return {};
    if (from == 0 && count >= size()) return *this;
    return view().substr(from, count);
}

String operator+(const String& a, const String& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    return concat({a.view(), b.view()});
}

String concat(std::initializer_list<std::string_view> parts) {
    std::size_t size = 0;
    for (const std::string_view part : parts) size += part.size();
    String joined;
    if (size == 0) return joined;
    joined.rep_ = String::allocate(size);
    char* to = const_cast<char*>(String::text(joined.rep_));
    for (const std::string_view part : parts) {
        if (!part.empty()) std::memcpy(to, part.data(), part.size());
        to += part.size();
    }
    return joined;
}

std::ostream& operator<<(std::ostream& out, const String& s) { return out << s.view(); }

}  // namespace Orv
