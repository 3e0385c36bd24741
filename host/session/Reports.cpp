#include "host/session/Reports.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "host/Json.h"
#include "host/Utf8.h"

namespace Host {

namespace {

std::vector<std::string> words(std::string_view line) {
    std::vector<std::string> found;
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return found;
    if (line[first] != '[') {
        std::istringstream text{std::string(line)};
        for (std::string word; text >> word;) found.push_back(word);
        return found;
    }
    const Json list = parseJson(line);
    for (const Json& word : *list.array()) {
        if (word.string() == nullptr) throw std::invalid_argument("the array holds a non-text");
        found.push_back(*word.string());
    }
    return found;
}

}  // namespace

std::vector<Part> reportedParts(const Plan& plan, std::string_view line) {
    std::vector<std::string> named;
    try {
        named = words(line);
    } catch (const JsonError& e) {
        throw std::invalid_argument(e.what());
    }
    if (named.empty()) return {};
    if (named.size() != 2 && named.size() != 3)
        throw std::invalid_argument("a report is AGENT STAGE or AGENT STAGE INSTANCE");

    std::vector<Part> parts;
    bool takesPart = false;
    for (const PlanClass& stageClass : plan.classes) {
        const PlanStage* const stage = stageClass.stage(named[1]);
        if (stage == nullptr) continue;
        for (const PlanParticipant& participant : stage->participants) {
            if (participant.name != named[0]) continue;
            takesPart = true;
            if (participant.kind != PlanParticipant::Kind::external) continue;
            for (const PlanInstance& instance : stageClass.instances)
                if (named.size() == 2 || instance.name == named[2])
                    parts.push_back({&stageClass, stage, &participant, instance.name});
        }
    }
    if (!parts.empty()) return parts;
    if (!takesPart)
        throw std::invalid_argument(fmt::format("no agent {} takes part in a stage {}",
                                                inQuotes(named[0]), inQuotes(named[1])));
    if (named.size() == 3)
        throw std::invalid_argument(
            fmt::format("no external participant {} of stage {} has an "
                        "instance {}",
                        inQuotes(named[0]), inQuotes(named[1]), inQuotes(named[2])));
    throw std::invalid_argument(fmt::format("{} of stage {} is not external: it reports by itself",
                                            inQuotes(named[0]), inQuotes(named[1])));
}

Reports::Reports(const Plan& plan, Loop& loop, int descriptor,
                 std::function<void(const std::string&)> say)
    : plan_(plan), descriptor_(descriptor), say_(std::move(say)) {
    watch_ = loop.readable(descriptor, [this] { read(); });
    // Of a file all that it will ever hold is there.
    struct stat about {};
    if (::fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode))
        while (!watch_ && !ended_) read();
}

double Reports::next() const { return watch_ || ended_ ? Loop::never : 0.0; }

std::vector<Part> Reports::taken() {
    if (!watch_ && !ended_) read();
    return std::exchange(parts_, {});
}

void Reports::read() {
    std::array<char, 4096> buffer;
    const ssize_t length = ::read(descriptor_, buffer.data(), buffer.size());
    if (length < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (length < 0) say_(fmt::format("no reports can be read: {}", std::strerror(errno)));
    if (length <= 0) {
        if (!begun_.empty()) line(begun_);
        ended_ = true;
        watch_.reset();
        return;
    }
    std::string_view rest(buffer.data(), static_cast<std::size_t>(length));
    while (!rest.empty()) {
        const std::size_t newline = rest.find('\n');
        const bool whole = newline != std::string_view::npos;
        if (!skipping_) begun_ += rest.substr(0, newline);
        rest.remove_prefix(whole ? newline + 1 : rest.size());
        if (begun_.size() > longestLine && !std::exchange(skipping_, true)) {
            say_(fmt::format("a report of more than {} bytes is ignored", longestLine));
            begun_.clear();
        }
        if (!whole) continue;
        if (!std::exchange(skipping_, false)) line(begun_);
        begun_.clear();
    }
}

void Reports::line(std::string_view text) {
    try {
        for (Part& part : reportedParts(plan_, text)) parts_.push_back(std::move(part));
    } catch (const std::invalid_argument& e) {
        say_(fmt::format("the report {} is ignored: {}", inQuotes(text), printable(e.what())));
    }
}

}  // namespace Host
