#include "document/psd_document.h"

namespace tessary {

PsdReadResult OpenDocument(Owned<PsdDocument>&, IStream*, uint32_t) { return PsdReadResult::kNoStream; }

}  // namespace tessary
