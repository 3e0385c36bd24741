#include "model/Types.h"

#include "model/AgentConfig.h"
#include "model/AgentStatus.h"
#include "model/AgentStatusLocal.h"
#include "model/CompletionStatusDir.h"
#include "model/Config.h"
#include "model/EnabledConfig.h"
#include "model/FatalError.h"
#include "model/Log.h"
#include "model/ProgressDir.h"
#include "model/StageGlobalConfig.h"
#include "model/Status.h"
#include "runtime/Dir.h"
#include "runtime/Error.h"
#include "tests/model/Told.h"

namespace {

using ModelTest::Lines;
using Orv::Attribute;
using Orv::make;
using Orv::Ptr;
using Orv::String;
using Orv::TypeInfo;
using Orv::TypeRegistry;
using Orv::Value;
using Orv::ValueFields;

const TypeInfo& type(const std::string& name) {
    Stage::registerModelTypes();
    const TypeInfo* const found = TypeRegistry::instance().type(name);
    if (found == nullptr) throw std::logic_error("no type " + name);
    return *found;
}

// "scalar stageClass", in the order of the rows; a detail in brackets.
Lines rows(const std::string& name) {
    Lines lines;
    for (const auto& row : type(name).attributes()) {
        const char* shape = "?";
        switch (row->shape()) {
            case Attribute::Shape::scalar: shape = "scalar"; break;
            case Attribute::Shape::collection: shape = "collection"; break;
            case Attribute::Shape::instantiating: shape = "instantiating"; break;
            case Attribute::Shape::child: shape = "child"; break;
            case Attribute::Shape::children: shape = "children"; break;
            case Attribute::Shape::queue: shape = "queue"; break;
        }
        const std::string line = std::string(shape) + " " + row->name();
        lines.push_back(row->detail() ? "(" + line + ")" : line);
    }
    return lines;
}

const Attribute& row(const Orv::Entity& entity, const std::string& name) {
    const Attribute* const found = entity.info().attribute(name);
    if (found == nullptr) throw std::logic_error("no attribute " + name);
    return *found;
}

Value reference(const Ptr<Orv::Entity>& entity) {
    return Value::Reference(static_cast<Orv::PtrInterface*>(entity.get()));
}

TEST(ModelTypes, AreRegisteredInOneOrderHoweverOften) {
    Stage::registerModelTypes();
    Stage::registerModelTypes();

    Lines names;
    for (const TypeInfo* info : TypeRegistry::instance().types()) names.push_back(info->name());

    EXPECT_EQ(names, Lines({"Orv::Dir", "Stage::Config", "Stage::EventConfig", "Stage::AgentConfig",
                            "Stage::AgentStatus", "Stage::AgentStatusLocal", "Stage::EnabledConfig",
                            "Stage::StageGlobalConfig", "Stage::Status", "Stage::StageStatus",
                            "Stage::InstanceStatus", "Stage::CompletionStatusDir",
                            "Stage::CompletionStatus", "Stage::ProgressDir", "Stage::Progress",
                            "Stage::Log", "Stage::InstanceLog", "Stage::FatalError"}));
}

TEST(ModelTypes, HaveOneRowPerAttribute) {
    EXPECT_EQ(rows("Stage::Config"),
              Lines({"scalar stageClass", "scalar application", "scalar agentDir",
                     "scalar stageTimeoutIsFatal", "scalar continueOnTimeout",
                     "scalar globalStageCompletionTimeout", "scalar resetMode",
                     "scalar reloadCauseDesc"}));
    EXPECT_EQ(rows("Stage::EventConfig"),
              Lines({"scalar name", "scalar stage", "scalar agent", "collection complete",
                     "collection error", "collection dependency", "scalar timeout",
                     "scalar critical", "scalar autoCompleteTimeout", "scalar enableAutoComplete",
                     "scalar completeNotRunnable"}));
    EXPECT_EQ(rows("Stage::AgentConfig"),
              Lines({"instantiating event", "scalar createdOnStageRequest"}));
    EXPECT_EQ(rows("Stage::AgentStatus"),
              Lines({"collection complete", "collection stageRequest"}));
    EXPECT_EQ(rows("Stage::AgentStatusLocal"), Lines({"collection complete"}));
    EXPECT_EQ(rows("Stage::EnabledConfig"), Lines({"collection enabled", "collection suspended"}));
    EXPECT_EQ(rows("Stage::StageGlobalConfig"), Lines({"collection doNotStartStage"}));
    EXPECT_EQ(rows("Stage::Status"),
              Lines({"instantiating stage", "instantiating instStatus", "(scalar sorted)"}));
    EXPECT_EQ(rows("Stage::StageStatus"), Lines({"collection event", "collection dependency",
                                                 "scalar timeout", "scalar critical"}));
    EXPECT_EQ(rows("Stage::InstanceStatus"), Lines({"collection activeStage", "scalar progress",
                                                    "scalar complete", "scalar suspended"}));
    EXPECT_EQ(rows("Stage::CompletionStatusDir"), Lines({"instantiating status"}));
    EXPECT_EQ(rows("Stage::CompletionStatus"), Lines({"scalar complete"}));
    EXPECT_EQ(rows("Stage::ProgressDir"), Lines({"instantiating progress"}));
    EXPECT_EQ(rows("Stage::Progress"), Lines({"collection stage"}));
    EXPECT_EQ(rows("Stage::Log"), Lines({"instantiating instanceLog"}));
    EXPECT_EQ(rows("Stage::InstanceLog"), Lines({"queue log"}));
    EXPECT_EQ(rows("Stage::FatalError"),
              Lines({"scalar requestReboot", "scalar rebootReason", "scalar reloadCauseDesc"}));
}

TEST(ModelTypes, ThoseOfDirectoryEntriesCanBeMadeByName) {
    Stage::registerModelTypes();
    Lines made;
    for (const TypeInfo* info : TypeRegistry::instance().types()) {
        if (info->maker() == nullptr) continue;
        const Ptr<Orv::Entity> entity = info->maker()("x");
        EXPECT_EQ(entity->key(), "x") << info->name();
        EXPECT_EQ(&entity->info(), info) << info->name();
        made.push_back(info->name());
    }

    EXPECT_EQ(made, Lines({"Orv::Dir", "Stage::Config", "Stage::AgentConfig", "Stage::AgentStatus",
                           "Stage::EnabledConfig", "Stage::StageGlobalConfig", "Stage::Status",
                           "Stage::CompletionStatusDir", "Stage::ProgressDir", "Stage::Log",
                           "Stage::FatalError"}));
}

// Every scalar of every type takes another value by its row, and gives it back.
TEST(ModelTypes, ScalarsAreReadAndWrittenByName) {
    Stage::registerModelTypes();
    const Ptr<Orv::Entity> progress = make<Stage::Progress>("main");
    const Ptr<Orv::Entity> dir = make<Orv::Dir>("agents");
    const std::vector<Ptr<Orv::Entity>> entities{
        make<Stage::Config>("c"),           make<Stage::EventConfig>("s", "a"),
        make<Stage::AgentConfig>("a"),      make<Stage::AgentStatus>("a"),
        make<Stage::AgentStatusLocal>(),    make<Stage::EnabledConfig>("e"),
        make<Stage::StageGlobalConfig>(),   make<Stage::Status>("s"),
        make<Stage::StageStatus>("s"),      make<Stage::InstanceStatus>("i"),
        make<Stage::CompletionStatus>("i"), make<Stage::FatalError>("f")};
    int count = 0;
    for (const Ptr<Orv::Entity>& entity : entities) {
        for (const auto& attribute : entity->info().attributes()) {
            if (attribute->shape() != Attribute::Shape::scalar) continue;
            const std::string name = attribute->name();
            SCOPED_TRACE(entity->info().name() + (" " + name));
            const Value before = attribute->value(*entity);
            const Value other = before.boolean()     ? Value(!*before.boolean())
                                : before.number()    ? Value(*before.number() + 1)
                                : name == "agentDir" ? reference(dir)
                                : name == "progress" ? reference(progress)
                                : name.starts_with("re") && before == Value("none")
                                    ? Value("powerCycle")
                                    : Value(String("other"));

            attribute->valueIs(*entity, other);

            EXPECT_EQ(attribute->value(*entity), other);
            EXPECT_FALSE(attribute->value(*entity) == before);
            ++count;
        }
    }
    EXPECT_EQ(count, 27);
}

TEST(ModelTypes, AnEventIsMadeByNameForItsAgent) {
    const Ptr<Stage::AgentConfig> agent = make<Stage::AgentConfig>("disk");

    row(*agent, "event").memberIs(*agent, "mount", Value());

    EXPECT_EQ(agent->event("mount")->name(), "mount:disk");
    EXPECT_EQ(row(*agent, "event").keys(*agent), std::vector<Value>{"mount"});
    row(*agent, "event").memberDel(*agent, "mount");
    EXPECT_TRUE(agent->event().empty());
}

TEST(ModelTypes, InstantiatingCollectionsMakeAndRemoveByName) {
    const std::vector<std::pair<Ptr<Orv::Entity>, std::string>> collections{
        {make<Stage::Status>(), "stage"},
        {make<Stage::Status>(), "instStatus"},
        {make<Stage::CompletionStatusDir>(), "status"},
        {make<Stage::ProgressDir>(), "progress"},
        {make<Stage::Log>(), "instanceLog"}};
    for (const auto& [entity, name] : collections) {
        SCOPED_TRACE(name);
        const Attribute& collection = row(*entity, name);

        collection.memberIs(*entity, "main", Value());

        const Value member = collection.member(*entity, "main");
        ASSERT_NE(member.reference(), nullptr);
        ASSERT_NE(*member.reference(), nullptr);
        EXPECT_EQ(dynamic_cast<Orv::Entity&>(**member.reference()).key(), "main");
        EXPECT_EQ(collection.keys(*entity), std::vector<Value>{"main"});

        collection.memberDel(*entity, "main");
        EXPECT_TRUE(collection.keys(*entity).empty());
        EXPECT_TRUE(collection.member(*entity, "main").absent());
    }
}

TEST(ModelTypes, CollectionsOfFlagsAreReadAndWrittenByName) {
    const std::vector<std::pair<Ptr<Orv::Entity>, std::string>> collections{
        {make<Stage::EventConfig>("s", "a"), "complete"},
        {make<Stage::EventConfig>("s", "a"), "error"},
        {make<Stage::EventConfig>("s", "a"), "dependency"},
        {make<Stage::EnabledConfig>("e"), "enabled"},
        {make<Stage::EnabledConfig>("e"), "suspended"},
        {make<Stage::StageStatus>("s"), "dependency"},
        {make<Stage::Progress>("i"), "stage"}};
    for (const auto& [entity, name] : collections) {
        SCOPED_TRACE(name);
        const Attribute& collection = row(*entity, name);
        EXPECT_FALSE(collection.compositeKeys());
        EXPECT_TRUE(collection.member(*entity, "x").absent());

        collection.memberIs(*entity, "x", true);
        EXPECT_EQ(collection.member(*entity, "x"), Value(true));
        collection.memberIs(*entity, "x", false);
        EXPECT_EQ(collection.member(*entity, "x"), Value(false));
        EXPECT_EQ(collection.keys(*entity), std::vector<Value>{"x"});

        collection.memberDel(*entity, "x");
        EXPECT_TRUE(collection.keys(*entity).empty());
    }
}

TEST(ModelTypes, CompositeKeysGoByTheirFields) {
    const Value report(ValueFields{{"agent", "disk"}, {"stage", "mount"}, {"instance", "main"}});
    const Value info(ValueFields{{"stageClass", "boot"}, {"stage", "mount"}});
    const Ptr<Stage::AgentStatus> agent = make<Stage::AgentStatus>("disk");
    const Ptr<Stage::AgentStatusLocal> record = make<Stage::AgentStatusLocal>();
    const Ptr<Stage::StageGlobalConfig> global = make<Stage::StageGlobalConfig>();

    row(*agent, "complete").memberIs(*agent, report, true);
    row(*record, "complete").memberIs(*record, report, true);
    row(*global, "doNotStartStage").memberIs(*global, info, true);

    EXPECT_TRUE(agent->complete({"disk", "mount", "main"}));
    EXPECT_TRUE(record->complete({"disk", "mount", "main"}));
    EXPECT_TRUE(global->doNotStartStage({"boot", "mount"}));
    EXPECT_EQ(row(*agent, "complete").keys(*agent), std::vector<Value>{report});
    EXPECT_EQ(row(*global, "doNotStartStage").member(*global, info), Value(true));
    EXPECT_TRUE(row(*agent, "complete").compositeKeys());
    EXPECT_TRUE(row(*record, "complete").compositeKeys());
    EXPECT_TRUE(row(*global, "doNotStartStage").compositeKeys());

    row(*agent, "complete").memberDel(*agent, report);
    row(*record, "complete").memberDel(*record, report);
    row(*global, "doNotStartStage").memberDel(*global, info);

    EXPECT_TRUE(agent->complete().empty());
    EXPECT_TRUE(record->complete().empty());
    EXPECT_TRUE(global->doNotStartStage().empty());
}

TEST(ModelTypes, AStageRequestGoesByItsFields) {
    const Ptr<Stage::AgentStatus> agent = make<Stage::AgentStatus>("disk");
    const Attribute& requests = row(*agent, "stageRequest");
    const Value request(ValueFields{{"agent", "disk"}, {"stage", "mount"}, {"timeout", 30.0}});

    requests.memberIs(*agent, "mount", request);

    EXPECT_EQ(agent->stageRequest("mount"), (Stage::StageRequest{"disk", "mount", 30}));
    EXPECT_EQ(requests.member(*agent, "mount"), request);
    requests.memberDel(*agent, "mount");
    EXPECT_TRUE(agent->stageRequest().empty());
}

TEST(ModelTypes, AnEventStandsInAStageOnlyUnderItsAgent) {
    const Ptr<Stage::StageStatus> stage = make<Stage::StageStatus>("mount");
    const Ptr<Stage::EventConfig> event = make<Stage::EventConfig>("mount", "disk");
    const Attribute& events = row(*stage, "event");

    EXPECT_THROW(events.memberIs(*stage, "fan", reference(event)), Orv::ReflectionError);
    EXPECT_THROW(events.memberIs(*stage, "disk", Value::Reference()), Orv::ReflectionError);
    EXPECT_THROW(events.memberIs(*stage, "disk", reference(stage)), Orv::ReflectionError);
    EXPECT_TRUE(stage->event().empty());

    events.memberIs(*stage, "disk", reference(event));
    EXPECT_EQ(stage->event("disk"), event);
    EXPECT_EQ(events.member(*stage, "disk"), reference(event));
    events.memberDel(*stage, "disk");
    EXPECT_TRUE(stage->event().empty());
}

TEST(ModelTypes, AStageIsActiveOnlyUnderItsName) {
    const Ptr<Stage::InstanceStatus> instance = make<Stage::InstanceStatus>("main");
    const Ptr<Stage::StageStatus> stage = make<Stage::StageStatus>("mount");
    const Attribute& active = row(*instance, "activeStage");

    EXPECT_THROW(active.memberIs(*instance, "probe", reference(stage)), Orv::ReflectionError);
    EXPECT_THROW(active.memberIs(*instance, "mount", Value::Reference()), Orv::ReflectionError);
    EXPECT_TRUE(instance->activeStage().empty());

    active.memberIs(*instance, "mount", reference(stage));
    EXPECT_EQ(instance->activeStage("mount"), stage);
    active.memberDel(*instance, "mount");
    EXPECT_TRUE(instance->activeStage().empty());
}

TEST(ModelTypes, ALogIsReadEntryByEntryAndNotWritten) {
    const Ptr<Stage::InstanceLog> log = make<Stage::InstanceLog>("main");
    log->logEnq({1.5, "line"});
    const Attribute& entries = row(*log, "log");

    EXPECT_EQ(entries.keys(*log),
              std::vector<Value>{Value(ValueFields{{"time", 1.5}, {"message", "line"}})});
    EXPECT_THROW(entries.value(*log), Orv::ReflectionError);
    EXPECT_THROW(entries.valueIs(*log, "x"), Orv::ReflectionError);
}

TEST(ModelTypes, ValuesOfAnotherKindAreRefused) {
    const Ptr<Stage::Config> config = make<Stage::Config>();

    EXPECT_THROW(row(*config, "application").valueIs(*config, true), Orv::ReflectionError);
    EXPECT_THROW(row(*config, "stageTimeoutIsFatal").valueIs(*config, "true"),
                 Orv::ReflectionError);
    EXPECT_THROW(row(*config, "globalStageCompletionTimeout").valueIs(*config, "30"),
                 Orv::ReflectionError);
    EXPECT_THROW(row(*config, "resetMode").valueIs(*config, "tepid"), Orv::ReflectionError);
    EXPECT_THROW(row(*config, "agentDir").valueIs(*config, reference(config)),
                 Orv::ReflectionError);
    EXPECT_EQ(config->application(), "");
    EXPECT_EQ(config->resetMode(), Stage::FatalError::ResetMode::none);
    EXPECT_EQ(config->agentDir(), nullptr);
}

}  // namespace
