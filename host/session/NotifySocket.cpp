#include "host/session/NotifySocket.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Host {

namespace {

// The most descriptors that can come with one message.
constexpr std::size_t mostDescriptors = 253;

[[noreturn]] void fail(const std::string& doing) {
    throw std::system_error(errno, std::generic_category(), doing);
}

}  // namespace

NotifySocket::NotifySocket(std::string path) : path_(std::move(path)) {
    socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket_) fail("socket");
    // Before it is bound: nobody's message comes without its sender.
    const int on = 1;
    if (setsockopt(socket_.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) fail("socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        fail(path_);
    }
    path_.copy(address.sun_path, path_.size());
    if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail(path_);
}

NotifySocket::~NotifySocket() { unlink(path_.c_str()); }

std::optional<NotifySocket::Message> NotifySocket::next() {
    std::array<char, longestMessage> text;
    alignas(cmsghdr)
        std::array<char, CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(sizeof(int) * mostDescriptors)>
            control;
    iovec part{text.data(), text.size()};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    ssize_t length = 0;
    do {
        length = recvmsg(socket_.get(), &header, MSG_CMSG_CLOEXEC | MSG_TRUNC);
    } while (length < 0 && errno == EINTR);
    if (length < 0) return std::nullopt;

    Message message;
    for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr;
         item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level != SOL_SOCKET) continue;
        if (item->cmsg_type == SCM_CREDENTIALS) {
            ucred sender{};
            std::memcpy(&sender, CMSG_DATA(item), sizeof sender);
            message.sender = sender.pid;
        } else if (item->cmsg_type == SCM_RIGHTS) {
            const std::size_t count = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t i = 0; i < count; ++i) {
                int descriptor = -1;
                std::memcpy(&descriptor, CMSG_DATA(item) + i * sizeof(int), sizeof(int));
                ::close(descriptor);
            }
        }
    }
    message.cut = static_cast<std::size_t>(length) > text.size();
    if (!message.cut) message.text.assign(text.data(), static_cast<std::size_t>(length));
    return message;
}

Notification notification(std::string_view message) {
    Notification said;
    // Some senders count the zero byte that ends their text.
    if (message.ends_with('\0')) message.remove_suffix(1);
    while (!message.empty()) {
        const std::size_t newline = message.find('\n');
        const std::string_view line = message.substr(0, newline);
        message.remove_prefix(newline == std::string_view::npos ? message.size() : newline + 1);
        const auto value = [&](std::string_view name) -> std::optional<std::string_view> {
            if (!line.starts_with(name)) return std::nullopt;
            return line.substr(name.size());
        };
        if (line == "READY=1") said.ready = true;
        if (line == "STOPPING=1") said.stopping = true;
        if (const auto status = value("STATUS=")) said.status = std::string(*status);
        if (const auto error = value("ERRNO=")) {
            int number = 0;
            const auto [end, wrong] =
                std::from_chars(error->data(), error->data() + error->size(), number);
            if (wrong == std::errc() && end == error->data() + error->size() && number > 0)
                said.error = number;
        }
    }
    return said;
}

PrivateFolder::PrivateFolder() {
    // The name of a socket is short: a long name of a folder leaves no room for it.
    constexpr std::size_t longest = 60;
    const char* const named = std::getenv("TMPDIR");
    std::string pattern = "/tmp";
    if (named != nullptr && *named == '/' && std::strlen(named) <= longest) pattern = named;
    pattern += "/stagemgr-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) fail(pattern);
    path_ = pattern;
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace Host
