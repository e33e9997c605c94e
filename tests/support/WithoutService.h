#ifndef ZYN_TESTS_SUPPORT_WITHOUTSERVICE_H
#define ZYN_TESTS_SUPPORT_WITHOUTSERVICE_H

#include <gtest/gtest.h>

#include <memory>

#include "ZynService/ZynServiceMonitor.h"
#include "support/DiagnosticTrace.h"

// The connection to the service belongs to the process, so all tests of a program that call the
// client programming interface share one run directory, without a service, from before the first
// call until after the last thread has ended. Diagnostic mode is on.
//     const auto* const kEnvironment = testing::AddGlobalTestEnvironment(new WithoutService);
class WithoutService : public ::testing::Environment {
  public:
    void SetUp() override { run = std::make_unique<RunDirectory>(true); }
    void TearDown() override {
        ZynServiceMonitorProxy::Shutdown();
        run.reset();
    }
    static inline std::unique_ptr<RunDirectory> run;
};

#endif
