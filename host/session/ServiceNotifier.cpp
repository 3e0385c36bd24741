#include "host/session/ServiceNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>

namespace Host {

ServiceNotifier::ServiceNotifier() {
    const char* const named = std::getenv("NOTIFY_SOCKET");
    if (named == nullptr || (*named != '/' && *named != '@')) return;
    path_ = named;
    if (path_.size() >= sizeof sockaddr_un{}.sun_path) return;
    if (path_.front() == '@') path_.front() = '\0';
    socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

void ServiceNotifier::say(const std::string& message) const {
    if (!socket_) return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, path_.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path_.size());
    sendto(socket_.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), length);
}

}  // namespace Host
