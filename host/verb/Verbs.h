// The program's verbs: each has a file of its own here, which says what options it takes and what
// it does.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/Console.h"
#include "host/plan/Plan.h"

namespace CLI {
class App;
}

namespace Host {

// The command line, or something that it names, cannot be taken. The text is whole.
class UsageError final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Verbs {
  public:
    // Both outlive the verbs. The console may change until a verb runs: colours are an option.
    Verbs(CLI::App& program, const Console& console) : program_(program), console_(console) {}

    // A new verb, to which options are added by its file. `run` is called after they are parsed,
    // and returns the exit status.
    CLI::App& add(const char* name, const char* description, std::function<int()> run);

    const Console& console() const { return console_; }
    CLI::App& program() const { return program_; }

    // The verb of that name, or null.
    struct Verb {
        CLI::App* command;
        std::function<int()> run;
    };
    const Verb* verb(std::string_view name) const;
    const std::vector<Verb>& all() const { return all_; }

  private:
    CLI::App& program_;
    const Console& console_;
    std::vector<Verb> all_;
};

// The verb of that name. Raises UsageError, with a suggestion.
const Verbs::Verb& wantedVerb(const Verbs& verbs, const std::string& name);

void addCheck(Verbs& verbs);
void addSimulate(Verbs& verbs);
void addRun(Verbs& verbs);
void addExplain(Verbs& verbs);
void addTime(Verbs& verbs);
void addBlame(Verbs& verbs);
void addCriticalChain(Verbs& verbs);
void addPlot(Verbs& verbs);
void addGraph(Verbs& verbs);
void addDiff(Verbs& verbs);
void addReplay(Verbs& verbs);
void addCompletion(Verbs& verbs);
void addHelp(Verbs& verbs);

// What several verbs do with what is named on the command line. Each raises UsageError.

// A file that is open for reading, or standard input for "-".
class InFile {
  public:
    InFile(const std::string& name, const Console& console);
    ~InFile();
    std::istream& stream() const { return *stream_; }

  private:
    std::unique_ptr<std::istream> file_;
    std::istream* stream_;
};
// A file that is open for writing, made anew, or standard output for "-".
class OutFile {
  public:
    OutFile(const std::string& name, const Console& console);
    ~OutFile();
    std::ostream& stream() const { return *stream_; }
    // Raises runtime_error when not everything could be written.
    void flush();

  private:
    std::unique_ptr<std::ostream> file_;
    std::ostream* stream_;
};

// Refuses a file for that option, "--out", that is the one which is read.
void keepApart(const char* option, const std::string& out, const std::string& in);

// What `text`, the value of that option, says: "--within". Whole numbers are written in decimal.
double durationOption(const char* option, const std::string& text);
std::uint64_t numberOption(const char* option, const std::string& text, std::uint64_t least,
                           std::uint64_t most);

// How people read the name of a file that is read: "<stdin>" for "-".
inline std::string inputName(const std::string& name) { return name == "-" ? "<stdin>" : name; }

// All that a file holds.
std::string wholeFile(const std::string& name, const Console& console);

// The plan in that file. Raises PlanRefused as well.
Plan planFile(const std::string& name, const Console& console);

// The plan with no other instances than these; all when there are none.
Plan withInstances(Plan plan, const std::vector<std::string>& instances);

}  // namespace Host
