#include "host/plan/Sarif.h"

#include <fmt/format.h>

#include <map>
#include <string>

#include "host/plan/Check.h"

namespace Host {

namespace {

Json::Object message(const std::string& text) { return {{"text", text}}; }

Json::Object physicalLocation(const std::string& file, Place place) {
    Json::Object location{{"artifactLocation", Json::Object{{"uri", fileUri(file)}}}};
    if (place.line > 0) {
        Json::Object region{{"startLine", static_cast<double>(place.line)}};
        if (place.column > 0) region.push_back({"startColumn", static_cast<double>(place.column)});
        location.push_back({"region", std::move(region)});
    }
    return location;
}

Json::Object result(const Diagnostic& diagnostic, std::size_t rule) {
    Json::Object made{
        {"ruleId", diagnostic.rule},
        {"ruleIndex", static_cast<double>(rule)},
        {"level", std::string(severityName(diagnostic.severity))},
        {"message", message(diagnostic.text)},
        {"locations",
         Json::Array{Json::Object{
             {"physicalLocation", physicalLocation(diagnostic.file, diagnostic.place)}}}}};
    Json::Array related;
    for (const Diagnostic::Related& other : diagnostic.related)
        related.push_back(
            Json::Object{{"id", static_cast<double>(related.size() + 1)},
                         {"physicalLocation", physicalLocation(diagnostic.file, other.place)},
                         {"message", message(other.text)}});
    if (!related.empty()) made.push_back({"relatedLocations", std::move(related)});
    return made;
}

}  // namespace

std::string fileUri(std::string_view name) {
    std::string uri = name.starts_with('/') ? "file://" : "";
    for (const char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') ||
                           std::string_view("-._~/").find(c) != std::string_view::npos;
        if (plain)
            uri += c;
        else
            uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return uri;
}

Json sarif(const std::vector<Diagnostic>& diagnostics) {
    Json::Array rules;
    std::map<std::string, std::size_t, std::less<>> indexes;
    for (const CheckRule& rule : checkRules()) {
        indexes.emplace(rule.name, rules.size());
        rules.push_back(
            Json::Object{{"id", std::string(rule.name)},
                         {"shortDescription", message(std::string(rule.summary))},
                         {"defaultConfiguration",
                          Json::Object{{"level", std::string(severityName(rule.severity))}}}});
    }
    Json::Array results;
    for (const Diagnostic& diagnostic : diagnostics) {
        // Those of the reader have no description of their own: each text says it all.
        const auto [at, added] = indexes.emplace(diagnostic.rule, rules.size());
        if (added) rules.push_back(Json::Object{{"id", diagnostic.rule}});
        results.push_back(result(diagnostic, at->second));
    }
    Json::Object driver{
        {"name", "stagemgr"}, {"version", STAGEMGR_VERSION}, {"rules", std::move(rules)}};
    Json::Object run{{"tool", Json::Object{{"driver", std::move(driver)}}},
                     {"columnKind", "unicodeCodePoints"},
                     {"results", std::move(results)}};
    return Json::Object{{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                        {"version", "2.1.0"},
                        {"runs", Json::Array{std::move(run)}}};
}

}  // namespace Host
