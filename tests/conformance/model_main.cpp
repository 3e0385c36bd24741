// conformance-model FILE.in.jsonl: writes what the model says the journal leads to.
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

#include "tests/conformance/JournalText.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: conformance-model FILE.in.jsonl\n";
        return 2;
    }
    std::ifstream file(argv[1]);
    if (!file) {
        std::cerr << argv[1] << ": cannot be read; name a journal\n";
        return 2;
    }
    std::ostringstream text;
    text << file.rdbuf();

    std::vector<conformance::Line> lines;
    try {
        lines = conformance::parseJournal(text.str());
    } catch (const std::exception& error) {
        std::cerr << argv[1] << ": " << error.what() << '\n';
        return 2;
    }

    conformance::State state = conformance::initialState();
    for (const conformance::Line& line : lines) {
        conformance::advanceBefore(state, line.at);
        const std::string wrong = conformance::problem(state, line);
        if (!wrong.empty()) {
            std::cerr << argv[1] << ": " << conformance::textOf(line) << ": " << wrong << '\n';
            return 2;
        }
        conformance::feed(state, line);
        if (state.aborted || state.ended) break;
    }
    std::cout << conformance::outcomeOf(lines);
    if (state.aborted) {
        std::cerr << "assertion failed: " << *state.aborted << '\n';
        return 1;
    }
}
