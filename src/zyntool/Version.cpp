#include "zyntool/Version.h"

[[gnu::used]] const char* const VERSION_TAG_SUBSYSTEM = "QXcid 1000.0.0.84 DIAG ";

const char* ReturnVersion() { return VERSION_TAG_SUBSYSTEM; }
