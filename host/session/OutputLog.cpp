#include "host/session/OutputLog.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "host/Utf8.h"

namespace Host {

namespace {

constexpr std::size_t longestShown = 200;

std::string shown(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    const bool cut = line.size() > longestShown;
    if (cut) {
        line = line.substr(0, longestShown);
        // Not in the midst of a character.
        const std::size_t fault = utf8Fault(line);
        if (fault != std::string_view::npos && fault + 4 > longestShown)
            line = line.substr(0, fault);
    }
    return printable(line) + (cut ? "..." : "");
}

}  // namespace

void OutputLog::writeTo(const std::string& path) {
    file_ = Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file_) throw std::system_error(errno, std::generic_category(), path);
}

void OutputLog::add(std::string_view bytes) {
    bytes_ += bytes.size();
    for (std::string_view rest = bytes; file_ && !rest.empty();) {
        const ssize_t written = write(file_.get(), rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            fileFailure_ = std::strerror(errno);
            file_.close();
        }
    }
    passOn(bytes);
    last_ += bytes.substr(bytes.size() - std::min(bytes.size(), kept));
    if (last_.size() > 2 * kept) last_.erase(0, last_.size() - kept);
}

void OutputLog::passOn(std::string_view bytes) {
    if (!line_) return;
    while (!bytes.empty()) {
        const std::size_t room = longestLine - begun_.size();
        const std::size_t newline = bytes.substr(0, room).find('\n');
        const bool whole = newline != std::string_view::npos;
        const std::size_t taken = whole ? newline : std::min(room, bytes.size());
        begun_ += bytes.substr(0, taken);
        bytes.remove_prefix(taken + (whole ? 1 : 0));
        if (whole || begun_.size() == longestLine) {
            if (whole && begun_.ends_with('\r')) begun_.pop_back();
            line_(printable(begun_));
            begun_.clear();
        }
    }
}

void OutputLog::end() {
    if (line_ && !begun_.empty()) line_(printable(begun_));
    begun_.clear();
    file_.close();
}

std::vector<std::string> OutputLog::lastLines(std::size_t most) const {
    std::vector<std::string> lines;
    std::string_view rest = last_;
    if (rest.ends_with('\n')) rest.remove_suffix(1);
    while (!rest.empty() && lines.size() < most) {
        const std::size_t newline = rest.rfind('\n');
        const std::size_t start = newline == std::string_view::npos ? 0 : newline + 1;
        lines.push_back(shown(rest.substr(start)));
        rest = rest.substr(0, start == 0 ? 0 : newline);
    }
    std::reverse(lines.begin(), lines.end());
    return lines;
}

std::string outputFileName(const std::vector<std::string>& names, std::size_t number) {
    constexpr std::size_t longest = 200;
    std::string name;
    for (const std::string& text : names) {
        if (!name.empty()) name += '.';
        for (const char c : text) {
            const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                               (c >= '0' && c <= '9') || c == '-' || c == '_';
            name +=
                plain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    if (name.size() > longest) name = fmt::format("{}~{}", name.substr(0, longest), number);
    return name + ".log";
}

}  // namespace Host
