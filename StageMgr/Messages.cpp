#include "StageMgr/Messages.h"

namespace Stage {

const Orv::LogHandle stageSlow{
    "STAGEMGR_STAGE_SLOW",
    4,
    "%s stage %s timed out",
    "A stage in progression is taking longer than expected. Stages that depend on this stage will "
    "begin after this stage is completed.",
    Orv::NoActionRequired,
    0.0,
    1.0,
    0};

const Orv::LogHandle stageCompleteAfterTimeout{
    "STAGEMGR_STAGE_COMPLETE_AFTER_TIMEOUT", 4,
    "%s resumed after stage %s completed after timeout.",
    // Two blanks between the sentences, on purpose: the text is catalogued so.
    "A stage that had been taking longer than expected to complete has now completed.  Stages that "
    "depend on this completion are able to proceed.",
    Orv::NoActionRequired, 0.0, 1.0, 0};

const Orv::LogHandle globalStageCompletionTimeout{
    "STAGEMGR_GLOBAL_STAGE_COMPLETION_TIMEOUT",
    3,
    "Global stage progression did not complete after %s secs.",
    "Stage progression took longer than the global timeout limit, rebooting system to proceed.",
    Orv::NoActionRequired,
    0.0,
    1.0,
    0};

}  // namespace Stage
