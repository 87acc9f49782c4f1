// The stages of reading a document.
#pragma once

#include "document/psd_document.h"

namespace tessary {

enum ReadStage : uint32_t {
    kStageHeader = 0,
    kStageColorMode = 1,
    kStageResources = 2,
    kStageLayers = 3,
    kStageMerged = 4,
    kStageDone = 5,
};

// Runs the stages from document.stage on; the document's stream stands where that stage begins. The stage
// advances on success only. kShortRead for a stream without bytes, kUnknownStage beyond kStageDone, else the
// first code of a stage.
PsdReadResult RunReadStages(PsdDocument& document);

}  // namespace tessary
