#include "runtime/Type.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "runtime/Dir.h"
#include "tests/runtime/Entities.h"
#include "tests/runtime/World.h"

namespace {

using Orv::Attribute;
using Orv::make;
using Orv::Ptr;
using Orv::ReflectionError;
using Orv::String;
using Orv::Value;
using Orv::ValueFields;
using Orv::ValueTraits;
using RuntimeTest::Colour;
using RuntimeTest::Lines;
using RuntimeTest::Listener;
using RuntimeTest::Part;
using RuntimeTest::Spot;
using RuntimeTest::Thing;
using Shape = Orv::Attribute::Shape;

std::string errorOf(const std::function<void()>& act) {
    try {
        act();
    } catch (const ReflectionError& e) {
        return e.what();
    }
    return "no error";
}

Value spot(const char* row, const char* column) {
    return ValueFields{{"row", row}, {"column", column}};
}

Value reference(const Ptr<Orv::PtrInterface>& object) { return Value(object); }

class Reflection : public ::testing::Test {
  protected:
    const Attribute& at(const char* name) const {
        const Attribute* const row = Thing::type().attribute(name);
        if (row == nullptr) throw std::runtime_error(std::string("no attribute ") + name);
        return *row;
    }
    Ptr<Thing> thing = make<Thing>("thing");
};

// Values.

TEST(Value, HoldsOneKindAtATime) {
    const Value absent;
    EXPECT_TRUE(absent.absent());
    EXPECT_FALSE(absent.boolean() || absent.number() || absent.string() || absent.reference() ||
                 absent.fields());

    EXPECT_EQ(*Value(true).boolean(), true);
    EXPECT_FALSE(Value(true).number());
    EXPECT_EQ(*Value(1.5).number(), 1.5);
    EXPECT_FALSE(Value(1.5).boolean());
    EXPECT_EQ(*Value("text").string(), "text");
    EXPECT_FALSE(Value("text").boolean());  // a pointer is no bool
    EXPECT_EQ(*Value(String("text")).string(), "text");
    EXPECT_FALSE(*reference(nullptr).reference());
    EXPECT_EQ(spot("a", "b").fields()->size(), 2u);
    EXPECT_FALSE(Value(false).absent());
}

TEST(Value, ComparesByKindAndContentReferencesByIdentity) {
    const Ptr<Part> a = make<Part>("same");
    const Ptr<Part> b = make<Part>("same");

    EXPECT_EQ(Value(), Value());
    EXPECT_EQ(Value(1.0), Value(1.0));
    EXPECT_FALSE(Value(std::nan("")) == Value(std::nan("")));
    EXPECT_FALSE(Value(true) == Value(1.0));
    EXPECT_FALSE(Value(false) == Value());
    EXPECT_EQ(spot("a", "b"), spot("a", "b"));
    EXPECT_FALSE(spot("a", "b") == spot("b", "a"));
    EXPECT_EQ(reference(a), reference(a));
    EXPECT_FALSE(reference(a) == reference(b));
}

TEST(ValueTraits, EnumerationsGoByName) {
    EXPECT_EQ(*ValueTraits<Colour>::of(Colour::green).string(), "green");
    EXPECT_EQ(*ValueTraits<Colour>::of(static_cast<Colour>(99)).string(), "?");
    Colour colour = Colour::red;
    EXPECT_TRUE(ValueTraits<Colour>::read("green", colour));
    EXPECT_EQ(colour, Colour::green);
    EXPECT_FALSE(ValueTraits<Colour>::read("blue", colour));
    EXPECT_FALSE(ValueTraits<Colour>::read(1.0, colour));
    EXPECT_EQ(colour, Colour::green);
    EXPECT_EQ(ValueTraits<Colour>::expected(), "one of \"red\", \"green\"");
}

TEST(ValueTraits, CompositesGoByTheirFieldsInAnyOrder) {
    EXPECT_EQ(ValueTraits<Spot>::of({"r", "c"}), spot("r", "c"));
    Spot read;
    EXPECT_TRUE(ValueTraits<Spot>::read(ValueFields{{"column", "c"}, {"row", "r"}}, read));
    EXPECT_EQ(read, (Spot{"r", "c"}));
    EXPECT_EQ(ValueTraits<Spot>::expected(), "an object of row, column");
}

TEST(ValueTraits, CompositesNeedEveryFieldAndNoOther) {
    Spot read;
    EXPECT_FALSE(ValueTraits<Spot>::read(ValueFields{}, read));
    EXPECT_FALSE(ValueTraits<Spot>::read(ValueFields{{"row", "r"}}, read));
    EXPECT_FALSE(ValueTraits<Spot>::read(ValueFields{{"row", "r"}, {"row", "r"}}, read));
    EXPECT_FALSE(ValueTraits<Spot>::read(ValueFields{{"row", "r"}, {"other", "c"}}, read));
    EXPECT_FALSE(
        ValueTraits<Spot>::read(ValueFields{{"row", "r"}, {"column", "c"}, {"more", "m"}}, read));
    EXPECT_FALSE(ValueTraits<Spot>::read(ValueFields{{"row", "r"}, {"column", 1.0}}, read));
    EXPECT_FALSE(ValueTraits<Spot>::read(ValueFields{{"row", 1.0}, {"column", "c"}}, read));
    EXPECT_FALSE(ValueTraits<Spot>::read("r", read));
}

struct Place {
    String street;
    double number = 0;
    bool known = false;
    static constexpr auto fields =
        std::tuple{Orv::Field{"street", &Place::street}, Orv::Field{"number", &Place::number},
                   Orv::Field{"known", &Place::known}};
};

TEST(ValueTraits, EveryFieldOfACompositeHasToFit) {
    const auto place = [](Value street, Value number, Value known) {
        return Value(ValueFields{{"street", std::move(street)},
                                 {"number", std::move(number)},
                                 {"known", std::move(known)}});
    };
    Place read;

    EXPECT_FALSE(ValueTraits<Place>::read(place(1.0, 7.0, true), read));
    EXPECT_FALSE(ValueTraits<Place>::read(place("Elm", "7", true), read));
    EXPECT_FALSE(ValueTraits<Place>::read(place("Elm", 7.0, 1.0), read));
    EXPECT_TRUE(ValueTraits<Place>::read(place("Elm", 7.0, true), read));
    EXPECT_EQ(read.street, "Elm");
    EXPECT_EQ(read.number, 7);
    EXPECT_TRUE(read.known);
}

struct Proof {
    bool proof = false;
    double size = 0;
    static constexpr auto fields =
        std::tuple{Orv::Field{"proof", &Proof::proof}, Orv::Field{"size", &Proof::size}};
};

TEST(ValueTraits, ExpectedFieldsAreListedWhateverTheirNames) {
    EXPECT_EQ(ValueTraits<Proof>::expected(), "an object of proof, size");
}

TEST(ValueTraits, ReferencesAreReadOnlyToTheirType) {
    const Ptr<Part> part = make<Part>("part");
    const Ptr<Thing> thing = make<Thing>("thing");
    Ptr<Part> read;

    EXPECT_TRUE(ValueTraits<Ptr<Part>>::read(reference(part), read));
    EXPECT_EQ(read, part);
    EXPECT_FALSE(ValueTraits<Ptr<Part>>::read(reference(thing), read));
    EXPECT_FALSE(ValueTraits<Ptr<Part>>::read("/part", read));
    EXPECT_EQ(read, part);
    EXPECT_TRUE(ValueTraits<Ptr<Part>>::read(reference(nullptr), read));
    EXPECT_FALSE(read);
    Ptr<const Part> reader;
    EXPECT_TRUE(ValueTraits<Ptr<const Part>>::read(reference(part), reader));
    EXPECT_EQ(reader, part);
    EXPECT_EQ(ValueTraits<Ptr<const Part>>::of(reader), reference(part));
}

// Reading.

TEST_F(Reflection, ListsTheAttributesInTheirOrder) {
    Lines names;
    for (const auto& attribute : Thing::type().attributes()) names.push_back(attribute->name());

    EXPECT_EQ(names, (Lines{"size", "open", "label", "colour", "neighbour", "alive", "tag",
                            "reading", "user", "part", "favourite", "made", "line"}));
    EXPECT_EQ(Thing::type().attribute("Size"), nullptr);
    EXPECT_EQ(Thing::type().attribute(""), nullptr);
}

TEST_F(Reflection, KnowsEachAttributesShape) {
    EXPECT_EQ(at("size").shape(), Shape::scalar);
    EXPECT_EQ(at("tag").shape(), Shape::collection);
    EXPECT_EQ(at("part").shape(), Shape::instantiating);
    EXPECT_EQ(at("favourite").shape(), Shape::child);
    EXPECT_EQ(at("made").shape(), Shape::children);
    EXPECT_EQ(at("line").shape(), Shape::queue);
    for (const char* name : {"tag", "reading", "part", "made"}) EXPECT_TRUE(at(name).keyed());
    for (const char* name : {"size", "favourite", "line"}) EXPECT_FALSE(at(name).keyed());
    EXPECT_TRUE(at("reading").compositeKeys());
    for (const char* name : {"size", "tag", "part", "line"}) EXPECT_FALSE(at(name).compositeKeys());
}

TEST_F(Reflection, MarksDetails) {
    for (const auto& attribute : Thing::type().attributes())
        EXPECT_EQ(attribute->detail(), attribute->name() == std::string("alive"));
}

TEST_F(Reflection, ReadsEveryShape) {
    thing->sizeIs(2.5);
    thing->openIs(true);
    thing->labelIs("label");
    thing->colourIs(Colour::green);
    thing->tagIs("b", true);
    thing->tagIs("a", false);
    thing->readingIs({"r", "c"}, 7);
    const auto favourite = thing->partIs("favourite");
    thing->neighbourIs(favourite);
    thing->userIs("user", nullptr);
    thing->lineEnq("one");
    thing->lineEnq("two");

    EXPECT_EQ(at("size").value(*thing), Value(2.5));
    EXPECT_EQ(at("open").value(*thing), Value(true));
    EXPECT_EQ(at("label").value(*thing), Value("label"));
    EXPECT_EQ(at("colour").value(*thing), Value("green"));
    EXPECT_EQ(at("neighbour").value(*thing), reference(favourite));
    EXPECT_EQ(at("alive").value(*thing), Value(true));
    EXPECT_EQ(at("tag").keys(*thing), (std::vector<Value>{"b", "a"}));
    EXPECT_EQ(at("tag").member(*thing, "b"), Value(true));
    EXPECT_EQ(at("tag").member(*thing, "a"), Value(false));
    EXPECT_EQ(at("tag").member(*thing, "absent"), Value());
    EXPECT_EQ(at("reading").keys(*thing), (std::vector<Value>{spot("r", "c")}));
    EXPECT_EQ(at("reading").member(*thing, spot("r", "c")), Value(7.0));
    EXPECT_EQ(at("user").member(*thing, "user"), reference(nullptr));
    EXPECT_EQ(at("part").keys(*thing), (std::vector<Value>{"favourite"}));
    EXPECT_EQ(at("part").member(*thing, "favourite"), reference(favourite));
    EXPECT_EQ(at("favourite").value(*thing), reference(favourite));
    EXPECT_EQ(at("made").keys(*thing), (std::vector<Value>{"favourite"}));
    EXPECT_EQ(at("made").member(*thing, "favourite"), reference(favourite));
    EXPECT_EQ(at("line").keys(*thing), (std::vector<Value>{"one", "two"}));
}

TEST_F(Reflection, ReadsAnAbsentChildAsNull) {
    EXPECT_EQ(at("favourite").value(*thing), reference(nullptr));
    EXPECT_EQ(at("neighbour").value(*thing), reference(nullptr));
}

TEST_F(Reflection, KnowsTheKindsOfKeysAndValues) {
    EXPECT_TRUE(at("size").valueKind().number());
    EXPECT_TRUE(at("open").valueKind().boolean());
    EXPECT_TRUE(at("colour").valueKind().string());
    EXPECT_TRUE(at("neighbour").valueKind().reference());
    EXPECT_TRUE(at("tag").keyKind().string());
    EXPECT_TRUE(at("tag").valueKind().boolean());
    EXPECT_TRUE(at("reading").keyKind().fields());
    EXPECT_TRUE(at("reading").valueKind().number());
    EXPECT_TRUE(at("user").valueKind().reference());
    EXPECT_TRUE(at("part").keyKind().string());
    EXPECT_TRUE(at("part").valueKind().absent());
    EXPECT_TRUE(at("size").keyKind().absent());
    EXPECT_TRUE(at("line").keyKind().absent());
    EXPECT_TRUE(at("line").valueKind().absent());
}

// Writing.

TEST_F(Reflection, WritesThroughTheTypesOwnMutatorsWhichTell) {
    Lines log;
    Listener listener(thing, [&] { log.push_back("size"); });
    listener.tag = [&](String tag) { log.push_back("tag " + tag.str()); };
    listener.part = [&](Orv::Name name) { log.push_back("part " + name.str()); };
    listener.other = [&] { log.push_back("other"); };
    const Ptr<Part> part = make<Part>("elsewhere");

    at("size").valueIs(*thing, 4.0);
    at("size").valueIs(*thing, 4.0);
    at("open").valueIs(*thing, true);
    at("label").valueIs(*thing, "label");
    at("colour").valueIs(*thing, "green");
    at("neighbour").valueIs(*thing, reference(part));
    at("tag").memberIs(*thing, "a", true);
    at("tag").memberIs(*thing, "a", true);
    at("reading").memberIs(*thing, spot("r", "c"), 7.0);
    at("user").memberIs(*thing, "user", reference(part));
    at("part").memberIs(*thing, "wheel", Value());
    at("part").memberIs(*thing, "wheel", Value());

    EXPECT_EQ(log, (Lines{"size", "other", "other", "other", "other", "tag a", "other", "other",
                          "part wheel"}));
    EXPECT_EQ(thing->size(), 4);
    EXPECT_TRUE(thing->open());
    EXPECT_EQ(thing->label(), "label");
    EXPECT_EQ(thing->colour(), Colour::green);
    EXPECT_EQ(thing->neighbour(), part);
    EXPECT_TRUE(thing->tag().value("a"));
    EXPECT_EQ(thing->reading().value({"r", "c"}), 7);
    EXPECT_EQ(thing->user().value("user"), part);
    EXPECT_TRUE(thing->part().contains("wheel"));

    log.clear();
    at("tag").memberDel(*thing, "a");
    at("tag").memberDel(*thing, "a");
    at("reading").memberDel(*thing, spot("r", "c"));
    at("user").memberDel(*thing, "user");
    at("part").memberDel(*thing, "wheel");
    at("neighbour").valueIs(*thing, reference(nullptr));

    EXPECT_EQ(log, (Lines{"tag a", "other", "other", "part wheel", "other"}));
    EXPECT_TRUE(thing->tag().empty() && thing->reading().empty() && thing->user().empty() &&
                thing->part().empty());
    EXPECT_FALSE(thing->neighbour());
}

TEST_F(Reflection, RefusesAValueOfTheWrongKindAndChangesNothing) {
    const Ptr<Thing> other = make<Thing>("other");

    EXPECT_EQ(errorOf([&] { at("size").valueIs(*thing, "4"); }),
              "attribute \"size\": the value must be a number");
    EXPECT_EQ(errorOf([&] { at("open").valueIs(*thing, 1.0); }),
              "attribute \"open\": the value must be true or false");
    EXPECT_EQ(errorOf([&] { at("label").valueIs(*thing, true); }),
              "attribute \"label\": the value must be a string");
    EXPECT_EQ(errorOf([&] { at("label").valueIs(*thing, Value()); }),
              "attribute \"label\": the value must be a string");
    EXPECT_EQ(errorOf([&] { at("colour").valueIs(*thing, "blue"); }),
              "attribute \"colour\": the value must be one of \"red\", \"green\"");
    EXPECT_EQ(errorOf([&] { at("neighbour").valueIs(*thing, reference(other)); }),
              "attribute \"neighbour\": the value must be the path of a Test::Part, or null");
    EXPECT_EQ(errorOf([&] { at("tag").memberIs(*thing, "a", Value()); }),
              "attribute \"tag\": the value must be true or false");
    EXPECT_EQ(errorOf([&] { at("tag").memberIs(*thing, spot("r", "c"), true); }),
              "attribute \"tag\": the key must be a string");
    EXPECT_EQ(errorOf([&] { at("reading").memberIs(*thing, "r", 7.0); }),
              "attribute \"reading\": the key must be an object of row, column");
    EXPECT_EQ(errorOf([&] { at("reading").memberIs(*thing, spot("r", "c"), "7"); }),
              "attribute \"reading\": the value must be a number");
    EXPECT_EQ(errorOf([&] {
                  at("reading").memberDel(*thing, ValueFields{{"row", "r"}});
              }),
              "attribute \"reading\": the key must be an object of row, column");
    EXPECT_EQ(errorOf([&] { at("reading").member(*thing, "r"); }),
              "attribute \"reading\": the key must be an object of row, column");
    EXPECT_EQ(errorOf([&] { at("part").memberIs(*thing, "wheel", true); }),
              "attribute \"part\": the value must be no value: its owner makes its members");

    EXPECT_EQ(thing->size(), 0);
    EXPECT_FALSE(thing->neighbour());
    EXPECT_TRUE(thing->tag().empty() && thing->reading().empty() && thing->part().empty());
}

TEST_F(Reflection, RefusesWhatDoesNotFitTheShape) {
    EXPECT_EQ(errorOf([&] { at("tag").value(*thing); }),
              "attribute \"tag\" cannot be read as one value");
    EXPECT_EQ(errorOf([&] { at("tag").valueIs(*thing, true); }),
              "attribute \"tag\" cannot be set without a key");
    EXPECT_EQ(errorOf([&] { at("part").valueIs(*thing, true); }),
              "attribute \"part\" cannot be set without a key");
    EXPECT_EQ(errorOf([&] { at("line").valueIs(*thing, true); }),
              "attribute \"line\" cannot be set");
    EXPECT_EQ(errorOf([&] { at("line").value(*thing); }),
              "attribute \"line\" cannot be read as one value");
    EXPECT_EQ(errorOf([&] { at("size").keys(*thing); }), "attribute \"size\" cannot have keys");
    EXPECT_EQ(errorOf([&] { at("size").member(*thing, "a"); }),
              "attribute \"size\" cannot have members");
    EXPECT_EQ(errorOf([&] { at("size").memberIs(*thing, "a", 1.0); }),
              "attribute \"size\" cannot be set with a key");
    EXPECT_EQ(errorOf([&] { at("size").memberDel(*thing, "a"); }),
              "attribute \"size\" cannot lose members");
    EXPECT_EQ(errorOf([&] { at("line").memberIs(*thing, "a", 1.0); }),
              "attribute \"line\" cannot be set with a key");
}

TEST_F(Reflection, RefusesToWriteWhatIsReadOnly) {
    EXPECT_EQ(errorOf([&] { at("alive").valueIs(*thing, false); }),
              "attribute \"alive\" cannot be set");
    EXPECT_EQ(errorOf([&] { at("favourite").valueIs(*thing, reference(nullptr)); }),
              "attribute \"favourite\" cannot be set");
    EXPECT_EQ(errorOf([&] { at("made").memberIs(*thing, "a", Value()); }),
              "attribute \"made\" cannot be set");
    EXPECT_EQ(errorOf([&] { at("made").memberDel(*thing, "a"); }),
              "attribute \"made\" cannot lose members");
}

// The registry.

TEST(TypeRegistry, KeepsTheOrderOfRegistrationAndRegistersOnce) {
    Orv::TypeRegistry registry;
    registry.typeIs(Thing::type());
    registry.typeIs(Part::type());
    registry.typeIs(Orv::Dir::type());
    registry.typeIs(Thing::type());

    EXPECT_EQ(registry.types(), (std::vector<const Orv::TypeInfo*>{&Thing::type(), &Part::type(),
                                                                   &Orv::Dir::type()}));
    EXPECT_EQ(registry.type("Test::Part"), &Part::type());
    EXPECT_EQ(registry.type("Part"), nullptr);
    EXPECT_EQ(registry.type(""), nullptr);
}

TEST(TypeRegistry, TheFirstTypeOfANameStays) {
    static const Orv::TypeInfo impostor = Orv::TypeBuilder<Part>("Test::Thing").done();
    Orv::TypeRegistry registry;
    registry.typeIs(Thing::type());

    registry.typeIs(impostor);

    EXPECT_EQ(registry.type("Test::Thing"), &Thing::type());
    EXPECT_EQ(registry.types().size(), 1u);
}

TEST(TypeRegistry, IsOneForTheProcess) {
    EXPECT_EQ(&Orv::TypeRegistry::instance(), &Orv::TypeRegistry::instance());
}

TEST(TypeInfo, OnlyEntriesCanBeMadeByName) {
    ASSERT_NE(Thing::type().maker(), nullptr);
    EXPECT_EQ(Thing::type().maker()("made")->key(), "made");
    EXPECT_EQ(Part::type().maker(), nullptr);
    EXPECT_NE(Orv::Dir::type().maker(), nullptr);
}

}  // namespace
