#include <memory>

#include "host/history/TimeReport.h"
#include "host/verb/RunFile.h"

namespace Host {

void addTime(Verbs& verbs) {
    const auto run = std::make_shared<RunFile>();
    run->addTo(verbs.add("time", "Show how long each instance took, and where its time went",
                         [&verbs, run] {
                             const RunHistory history = run->history(verbs.console());
                             if (run->json)
                                 run->write(timeJson(history), verbs.console());
                             else
                                 run->write(timeReport(history), verbs.console());
                             return exitDone;
                         }));
}

}  // namespace Host
