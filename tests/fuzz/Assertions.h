// Failed assertions while bytes are tried out. An assertion means that one of us made a mistake;
// but three of them also fail when others write what they must not, and then the manager ends the
// process as it should. A fuzzer must not end with it, nor may it hide the same assertion where
// nobody wrote such a thing. So the programs here link `assertionFailed` by way of these:
// an assertion that an operation has excused throws AssertionFailed, which a callback's caller
// reports and the next notifiee outlives, as with any exception. Every other one aborts as ever.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "host/Journal.h"

namespace fuzz {

class AssertionFailed final : public std::exception {
  public:
    const char* what() const noexcept override { return "an assertion failed"; }
};

// Of one run: the latest made is in charge.
class Assertions {
  public:
    Assertions();
    ~Assertions();
    Assertions(const Assertions&) = delete;
    Assertions& operator=(const Assertions&) = delete;

    // From now on the assertions that this line, alone or with what comes after it, may fail are
    // excused: a request that bears another agent's name, and what stands in the place where a
    // requesting agent's registration is to be made.
    void excuse(const Host::Input& input);
    // Somebody writes inside of a callback. An event that loses a dependency right when it leaves
    // its stage can come about in no other way.
    void excuseInside();

    // The one that failed, after which a run proves nothing any more.
    const std::optional<std::string>& failed() const { return failed_; }
    // Returns when it is not excused.
    void onFailed(const char* expression);

  private:
    Assertions* outer_;
    std::vector<std::string> excused_;
    std::optional<std::string> failed_;
};

}  // namespace fuzz
