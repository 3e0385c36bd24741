#include "host/verb/Verbs.h"

#include <fmt/format.h>

#include <CLI/App.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/Suggest.h"
#include "host/Utf8.h"
#include "host/plan/Duration.h"

namespace Host {

CLI::App& Verbs::add(const char* name, const char* description, std::function<int()> run) {
    CLI::App* const command = program_.add_subcommand(name, description)->group("Verbs");
    all_.push_back({command, std::move(run)});
    return *command;
}

const Verbs::Verb* Verbs::verb(std::string_view name) const {
    const auto found = std::find_if(all_.begin(), all_.end(), [&](const Verb& verb) {
        return verb.command->get_name() == name;
    });
    return found == all_.end() ? nullptr : &*found;
}

const Verbs::Verb& wantedVerb(const Verbs& verbs, const std::string& name) {
    if (const Verbs::Verb* const verb = verbs.verb(name)) return *verb;
    std::vector<std::string> names;
    for (const Verbs::Verb& verb : verbs.all()) names.push_back(verb.command->get_name());
    const std::string nearest = suggestion(name, {names.begin(), names.end()});
    throw UsageError(fmt::format(
        "stagemgr: no verb {}{}", inQuotes(name),
        nearest.empty() ? fmt::format("; there are {}", fmt::join(names, ", ")) : nearest));
}

namespace {

template <class File>
std::unique_ptr<File> opened(const std::string& name, const char* doing) {
    errno = 0;
    auto file = std::make_unique<File>(name, std::ios::binary);
    const int error = errno;
    const bool folder = std::filesystem::is_directory(name);
    if (folder || !*file)
        throw UsageError(fmt::format("stagemgr: cannot {} {}: {}", doing, printable(name),
                                     std::strerror(folder ? EISDIR : error)));
    return file;
}

}  // namespace

InFile::InFile(const std::string& name, const Console& console) : stream_(&console.in) {
    if (name == "-") return;
    file_ = opened<std::ifstream>(name, "read");
    stream_ = file_.get();
}

InFile::~InFile() = default;

OutFile::OutFile(const std::string& name, const Console& console) : stream_(&console.out) {
    if (name == "-") return;
    file_ = opened<std::ofstream>(name, "write");
    stream_ = file_.get();
}

OutFile::~OutFile() = default;

void keepApart(const char* option, const std::string& out, const std::string& in) {
    std::error_code none;  // what does not exist is no file of both
    if (out != "-" && in != "-" && std::filesystem::equivalent(out, in, none))
        throw UsageError(fmt::format("stagemgr: {} would overwrite {}; name another file", option,
                                     printable(in)));
}

void OutFile::flush() {
    if (!stream_->flush()) throw std::runtime_error("the output could not be written");
}

double durationOption(const char* option, const std::string& text) {
    try {
        return parseDuration(text);
    } catch (const DurationError& e) {
        throw UsageError(fmt::format("stagemgr: {}: {}", option, e.what()));
    }
}

std::uint64_t numberOption(const char* option, const std::string& text, std::uint64_t least,
                           std::uint64_t most) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most)
        throw UsageError(fmt::format("stagemgr: {} {}: write a whole number from {} to {}", option,
                                     inQuotes(text), least, most));
    return number;
}

std::string wholeFile(const std::string& name, const Console& console) {
    const InFile file(name, console);
    return {std::istreambuf_iterator<char>(file.stream()), {}};
}

}  // namespace Host
