// Verifies logs: reads them with the readers of the export, writes nothing, and reports what an
// export would drop, stop at or leave in disorder.
#ifndef ZYN_ZYNVERIFY_LOGVERIFIER_H
#define ZYN_ZYNVERIFY_LOGVERIFIER_H

#include "zynverify/Findings.h"
#include "zynverify/LogOperands.h"

// Verifies one log. Damage within a block costs the rest of it, a damaged packet its record: it
// goes on with the next block, or record. Behind a damaged block header nothing can be found any
// more: it ends there, and says how many bytes are left. Memory: that of the export, some 100 KiB
// for the sequence numbers, a report per file, and a decoder while a file is uncompressed. Throws
// what VerifiedFiles and the listener throw; a file that cannot be read is a finding.
LogReport VerifyLog(const LogToVerify& log, VerifyListener& listener);

#endif
