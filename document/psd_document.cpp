#include "document/psd_document.h"

namespace tessary {

PsdReadResult CloseDocument(Owned<PsdDocument>& document) {
    if (!document) return PsdReadResult::kNoDocument;
    document.Reset();
    return PsdReadResult::kOk;
}

}  // namespace tessary
