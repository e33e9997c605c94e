// Reads the configuration file "ZynConfigLinux.xml" and hands each setting to a configuration
// processor. The tool's commands learn the log directory through it, the service client fills the
// filter manager.
#ifndef ZYN_ZYNCONFIGFILEREADER_ZYNCONFIGFILEREADER_H
#define ZYN_ZYNCONFIGFILEREADER_ZYNCONFIGFILEREADER_H

#include <concepts>

#include "ZynConfigFileReader/ConfigFileWalk.h"
#include "ZynConfigFileReader/ConfigProcessors.h"

template <typename Processor>
concept ConfigProcessor = std::derived_from<Processor, BaseConfigProcessor>;

// The walk for a processor of this type. One thread per object; the processor outlives it.
template <ConfigProcessor Processor>
class ZynConfigFileReader : public ConfigFileWalk {
  public:
    explicit ZynConfigFileReader(Processor& processor) noexcept : ConfigFileWalk(processor) {}
};

#endif
