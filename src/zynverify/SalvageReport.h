// What a salvage kept, for people and for programs.
#ifndef ZYN_ZYNVERIFY_SALVAGEREPORT_H
#define ZYN_ZYNVERIFY_SALVAGEREPORT_H

#include <cstddef>
#include <iosfwd>
#include <string>

#include "zynverify/LogSalvage.h"

// log, directory: as the user named them.
// width: of the terminal, in characters.
void PutSalvageTable(std::ostream& out, const std::string& log, const std::string& directory,
                     const SalvageResult& result, std::size_t width);
// One JSON document; the manual page names its members.
void PutSalvageJson(std::ostream& out, const std::string& log, const std::string& directory,
                    const SalvageResult& result, int status);

#endif
