// Where a participant says that it is ready: the receiving side of the sd_notify protocol.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "host/session/Descriptor.h"

namespace Host {

// One socket, for one participant.
class NotifySocket {
  public:
    // A longer message is not taken.
    static constexpr std::size_t longestMessage = 4096;

    // Bound there from now on. Raises system_error.
    explicit NotifySocket(std::string path);
    ~NotifySocket();
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    struct Message {
        pid_t sender = 0;  // as the kernel says; 0: it does not
        std::string text{};
        bool cut = false;  // it was longer than it may be
    };
    // The next message that has come; absent: none. Descriptors that came with it are closed.
    std::optional<Message> next();

    int descriptor() const { return socket_.get(); }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    Descriptor socket_;
};

// What a message says, as far as it matters here. The protocol's other words are not for us.
struct Notification {
    bool ready = false;
    bool stopping = false;
    std::optional<std::string> status;  // for people, as it came
    std::optional<int> error;           // an errno
};

Notification notification(std::string_view message);

// A folder that only we can enter, and that is removed with all that is in it.
class PrivateFolder {
  public:
    // Raises system_error.
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace Host
