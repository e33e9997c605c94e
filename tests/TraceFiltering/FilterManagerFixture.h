#ifndef ZYN_TESTS_TRACEFILTERING_FILTERMANAGERFIXTURE_H
#define ZYN_TESTS_TRACEFILTERING_FILTERMANAGERFIXTURE_H

// A filter manager in which one label of one module is on.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "TraceFiltering/ZynFilterManager.h"
#include "fixtures/DiagnosticTrace.h"

inline constexpr std::uint32_t kNoClient = ZynFilterManager::kNoClient;

inline std::string Numbered(char kind, int number) {
    std::string name(1, kind);
    name += std::to_string(number);
    return name;
}

class FilterManager : public testing::Test {
  protected:
    FilterManager() {
        manager_.SetTraceEnabled(true);
        manager_.SetModuleStatus("m", Status::On);
        manager_.SetLabelStatus("", "", "l", Status::On);
        module_ = static_cast<int>(manager_.GetModuleKey("m"));
        label_ = static_cast<int>(manager_.GetLabelKey("l"));
    }
    bool Enabled(std::uint32_t client = kNoClient) {
        return manager_.IsEnabled(module_, client, label_);
    }

    RunDirectory run_;
    const std::unique_ptr<ZynFilterManager> owner_ = std::make_unique<ZynFilterManager>();
    ZynFilterManager& manager_ = *owner_;
    int module_ = -1;
    int label_ = -1;
};

#endif
