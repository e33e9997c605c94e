// A plain model of the configuration reader: the elements of a document as a tree of its own,
// walked by the rules of the file.
#ifndef ZYN_FUZZ_MODEL_CONFIGMODEL_H
#define ZYN_FUZZ_MODEL_CONFIGMODEL_H

#include <tinyxml.h>

#include <string>
#include <vector>

#include "model/FilterModel.h"

// What the reading of a document comes to.
struct ModelReading {
    std::string logPath;
    std::string failure;                // the first one, empty for none
    std::vector<std::string> settings;  // one line for each call of the processor, in their order
    bool traceEnabled = false;
    FilterModel filter;
};

// root: null for a document without the root element.
[[nodiscard]] ModelReading ModelReadConfig(const TiXmlElement* root);

#endif
