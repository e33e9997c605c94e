#include "ZynConfigFileReader/ConfiguredLog.h"

#include "Support/ConfigPath.h"
#include "Support/RuntimeInfo.h"
#include "ZynConfigFileReader/ConfigProcessors.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"

void ConfiguredLog::Read() {
    MyConfigProcessor processor;
    ZynConfigFileReader<MyConfigProcessor> reader(processor);
    reader.Read(ZynConfigPathPolicy());
    const std::string& configured = processor.Destination();
    path_ = CRuntimeInfo::FormatEnvironmentVariables(configured);
    failure_ = configured.empty() ? reader.Failure() : nullptr;
    const bool references = configured.find("$(") != std::string::npos;
    empty_ = path_.empty() || (references && path_.find_first_not_of('/') == std::string::npos);
}
