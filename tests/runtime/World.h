// What the runtime's tests share: a thread's own manager in virtual time, and an environment that
// remembers what reached it.
#pragma once

#include <string>
#include <vector>

#include "runtime/ActivityManager.h"
#include "runtime/Environment.h"
#include "runtime/LogHandle.h"

namespace RuntimeTest {

using Lines = std::vector<std::string>;

class Recorder : public Orv::Environment {
  public:
    Lines exceptions;
    Lines messages;
    Lines asked;  // identifiers that okToLog was asked about
    bool messagesWanted = true;

    bool okToLog(const Orv::LogHandle& message) override {
        asked.push_back(message.identifier());
        return messagesWanted;
    }
    void operatorMessage(const Orv::LogHandle& message, const Orv::String& text) override {
        messages.push_back(std::string(message.identifier()) + "|" +
                           std::to_string(message.severity()) + "|" + text.str());
    }
    void notificationException(const char* what) noexcept override { exceptions.push_back(what); }
};

struct World {
    Orv::VirtualTime time;
    Recorder environment;
    Orv::ActivityManager manager{time, environment};
    Orv::ActivityScope scope{manager};
};

// Sets the switch for a test's duration.
class ThreadSafePtrs {
  public:
    explicit ThreadSafePtrs(bool on) : before_(Orv::threadSafePtrs()) { Orv::threadSafePtrsIs(on); }
    ~ThreadSafePtrs() { Orv::threadSafePtrsIs(before_); }
    ThreadSafePtrs(const ThreadSafePtrs&) = delete;
    ThreadSafePtrs& operator=(const ThreadSafePtrs&) = delete;

  private:
    bool before_;
};

}  // namespace RuntimeTest
