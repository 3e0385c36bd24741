// Entities of the tests' own, with every shape of attribute.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/Dir.h"
#include "runtime/Entity.h"

namespace RuntimeTest {

// A member that its owner makes, with members of its own.
class Part final : public Orv::Notifier<Part> {
  public:
    class NotifieeConst : public Orv::NotifieeOf<Part> {
      public:
        virtual void onWeight() {}
        virtual void onPart(Orv::Name /*name*/) {}
    };

    explicit Part(Orv::Name name = {}) : Notifier(std::move(name)) { ++alive; }
    ~Part() override {
        --alive;
        orphan(part_);
    }
    static inline int alive = 0;

    double weight() const { return weight_; }
    void weightIs(double kilograms) {
        if (Orv::assign(weight_, kilograms)) changed("weight", [](auto& n) { n.onWeight(); });
    }

    using Parts = Orv::OrderedMap<Orv::Name, Orv::Ptr<Part>>;
    const Parts& part() const { return part_; }
    Orv::Ptr<Part> partIs(Orv::Name name) {
        return memberIs(
            part_, "part", name, [&] { return Orv::make<Part>(name); },
            [&](auto& n) { n.onPart(name); });
    }
    void partDel(Orv::Name name) {
        memberDel(part_, "part", name, [&](auto& n) { n.onPart(name); });
    }

    static const Orv::TypeInfo& type() {
        static const Orv::TypeInfo info =
            Orv::TypeBuilder<Part>("Test::Part")
                .scalar("weight", &Part::weight_, &Part::weightIs)
                .instantiating(
                    "part", [](const Part& p) -> const Parts& { return p.part_; }, &Part::partIs,
                    &Part::partDel)
                .done();
        return info;
    }

  private:
    void membersDel() override {
        part_.walk([this](Orv::Name name) { partDel(name); });
    }

    double weight_ = 0;
    Parts part_;
};

enum class Colour { red, green };

// A composite key.
struct Spot {
    Orv::String row;
    Orv::String column;

    friend bool operator==(const Spot&, const Spot&) = default;
    std::uint32_t hash() const { return Orv::mixHash(row.hash(), column.hash()); }
    static constexpr auto fields =
        std::tuple{Orv::Field{"row", &Spot::row}, Orv::Field{"column", &Spot::column}};
};

}  // namespace RuntimeTest

template <>
struct Orv::EnumNames<RuntimeTest::Colour> {
    static constexpr std::array<std::pair<RuntimeTest::Colour, const char*>, 2> names{
        {{RuntimeTest::Colour::red, "red"}, {RuntimeTest::Colour::green, "green"}}};
};

namespace RuntimeTest {

class Thing final : public Orv::Notifier<Thing> {
  public:
    class NotifieeConst : public Orv::NotifieeOf<Thing> {
      public:
        virtual void onSize() {}
        virtual void onOpen() {}
        virtual void onLabel() {}
        virtual void onColour() {}
        virtual void onNeighbour() {}
        virtual void onTag(Orv::String /*tag*/) {}
        virtual void onTag(Orv::Immediate) {}
        virtual void onReading(Spot /*spot*/) {}
        virtual void onUser(Orv::Name /*name*/) {}
        virtual void onPart(Orv::Name /*name*/) {}
        virtual void onPart(Orv::Immediate) {}
        virtual void onLine() {}
    };

    explicit Thing(Orv::Name name = {}) : Notifier(std::move(name)) { ++alive; }
    ~Thing() override {
        --alive;
        orphan(part_);
    }
    static inline int alive = 0;

    double size() const { return size_; }
    void sizeIs(double size) {
        if (Orv::assign(size_, size)) changed("size", [](auto& n) { n.onSize(); });
    }
    bool open() const { return open_; }
    void openIs(bool open) {
        if (Orv::assign(open_, open)) changed("open", [](auto& n) { n.onOpen(); });
    }
    const Orv::String& label() const { return label_; }
    void labelIs(Orv::String label) {
        if (Orv::assign(label_, std::move(label))) changed("label", [](auto& n) { n.onLabel(); });
    }
    Colour colour() const { return colour_; }
    void colourIs(Colour colour) {
        if (Orv::assign(colour_, colour)) changed("colour", [](auto& n) { n.onColour(); });
    }
    const Orv::Ptr<Part>& neighbour() const { return neighbour_; }
    void neighbourIs(Orv::Ptr<Part> neighbour) {
        if (Orv::assign(neighbour_, std::move(neighbour)))
            changed("neighbour", [](auto& n) { n.onNeighbour(); });
    }

    const Orv::OrderedMap<Orv::String, bool>& tag() const { return tag_.map(); }
    void tagIs(Orv::String tag, bool value) {
        if (tag_.set(tag, value)) changed("tag", tag, [&](auto& n) { n.onTag(tag); });
    }
    void tagDel(Orv::String tag) {
        if (tag_.del(tag)) changed("tag", tag, [&](auto& n) { n.onTag(tag); });
    }
    void tagDelAll() {
        tag().walk([this](Orv::String tag) { tagDel(tag); });
    }

    const Orv::OrderedMap<Spot, double>& reading() const { return reading_.map(); }
    void readingIs(Spot spot, double value) {
        if (reading_.set(spot, value))
            changed("reading", spot, [&](auto& n) { n.onReading(spot); });
    }
    void readingDel(Spot spot) {
        if (reading_.del(spot)) changed("reading", spot, [&](auto& n) { n.onReading(spot); });
    }

    const Orv::OrderedMap<Orv::Name, Orv::Ptr<Part>>& user() const { return user_.map(); }
    void userIs(Orv::Name name, Orv::Ptr<Part> part) {
        if (user_.set(name, std::move(part)))
            changed("user", name, [&](auto& n) { n.onUser(name); });
    }
    void userDel(Orv::Name name) {
        if (user_.del(name)) changed("user", name, [&](auto& n) { n.onUser(name); });
    }

    const Part::Parts& part() const { return part_; }
    Orv::Ptr<Part> partIs(Orv::Name name) {
        return memberIs(
            part_, "part", name, [&] { return Orv::make<Part>(name); },
            [&](auto& n) { n.onPart(name); });
    }
    void partDel(Orv::Name name) {
        memberDel(part_, "part", name, [&](auto& n) { n.onPart(name); });
    }
    void partDelAll() {
        part_.walk([this](Orv::Name name) { partDel(name); });
    }

    const std::vector<Orv::String>& line() const { return line_; }
    void lineEnq(Orv::String line) {
        line_.push_back(std::move(line));
        enqueued<Thing>("line", [](auto& n) { n.onLine(); });
    }

    static const Orv::TypeInfo& type() {
        using Tags = Orv::OrderedMap<Orv::String, bool>;
        using Readings = Orv::OrderedMap<Spot, double>;
        using Users = Orv::OrderedMap<Orv::Name, Orv::Ptr<Part>>;
        static const Orv::TypeInfo info =
            Orv::TypeBuilder<Thing>("Test::Thing")
                .entry([](const Orv::Name& name) -> Orv::Ptr<Orv::Entity> {
                    return Orv::make<Thing>(name);
                })
                .scalar("size", &Thing::size_, &Thing::sizeIs)
                .scalar("open", &Thing::open_, &Thing::openIs)
                .scalar("label", &Thing::label_, &Thing::labelIs)
                .scalar("colour", &Thing::colour_, &Thing::colourIs)
                .scalar("neighbour", &Thing::neighbour_, &Thing::neighbourIs)
                .scalar("alive", [](const Thing&) { return alive > 0; })
                .detail()
                .collection(
                    "tag", [](const Thing& t) -> const Tags& { return t.tag(); }, &Thing::tagIs,
                    &Thing::tagDel)
                .collection(
                    "reading", [](const Thing& t) -> const Readings& { return t.reading(); },
                    &Thing::readingIs, &Thing::readingDel)
                .collection(
                    "user", [](const Thing& t) -> const Users& { return t.user(); }, &Thing::userIs,
                    &Thing::userDel)
                .instantiating(
                    "part", [](const Thing& t) -> const Part::Parts& { return t.part_; },
                    &Thing::partIs, &Thing::partDel)
                .child("favourite", [](const Thing& t) { return t.part_.value("favourite"); })
                .children("made", [](const Thing& t) -> const Part::Parts& { return t.part_; })
                .queue("line", &Thing::line_)
                .done();
        return info;
    }

  private:
    void membersDel() override { partDelAll(); }

    double size_ = 0;
    bool open_ = false;
    Orv::String label_;
    Colour colour_ = Colour::red;
    Orv::Ptr<Part> neighbour_;
    Orv::Collection<Orv::String, bool> tag_;
    Orv::Collection<Spot, double> reading_;
    Orv::Collection<Orv::Name, Orv::Ptr<Part>> user_;
    Part::Parts part_;
    std::vector<Orv::String> line_;
};

// What a test wants to happen in a callback. It runs to its end even when the callback destroys it,
// and running it allocates nothing.
template <class... Args>
class Callback {
  public:
    Callback() = default;
    template <class Act>
    requires std::is_invocable_v<Act&, Args...> Callback(Act act)
        : act_(std::make_shared<std::function<void(Args...)>>(std::move(act))) {}

    void operator()(Args... args) const {
        const auto act = act_;
        if (act && *act) (*act)(std::move(args)...);
    }

  private:
    std::shared_ptr<std::function<void(Args...)>> act_;
};

class Listener : public Thing::NotifieeConst {
  public:
    Listener() = default;
    explicit Listener(const Orv::Ptr<Thing>& thing, Callback<> onSize = {})
        : size(std::move(onSize)) {
        notifierIs(thing);
    }

    Callback<> size;
    Callback<Orv::String> tag;
    Callback<Orv::Name> part;
    Callback<> other;  // every other attribute

    void onSize() override { size(); }
    void onTag(Orv::String key) override { tag(std::move(key)); }
    void onPart(Orv::Name name) override { part(std::move(name)); }
    void onOpen() override { other(); }
    void onLabel() override { other(); }
    void onColour() override { other(); }
    void onNeighbour() override { other(); }
    void onReading(Spot) override { other(); }
    void onUser(Orv::Name) override { other(); }
    void onLine() override { other(); }
};

}  // namespace RuntimeTest
