// Tells our own manager, if there is one, how the run fares: the sending side of the sd_notify
// protocol.
#pragma once

#include <string>

#include "host/session/Descriptor.h"

namespace Host {

class ServiceNotifier {
  public:
    // To the socket that NOTIFY_SOCKET names; to nobody when it names none.
    ServiceNotifier();

    // Never waits, and what cannot be said is not said.
    void say(const std::string& message) const;

  private:
    std::string path_;
    Descriptor socket_;
};

}  // namespace Host
