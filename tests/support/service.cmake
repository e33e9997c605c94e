# The stand-in for the tracing service, for tests that drive it in a thread or step by step. Uses
# nothing of src/.

zyn_add_library(zyn_service_standin
    SOURCES
        ServiceFiles.cpp
        ServiceProtocol.cpp
        StandInService.cpp
    USES Threads::Threads)
target_include_directories(zyn_service_standin PUBLIC ${PROJECT_SOURCE_DIR}/tests)

zyn_add_test(zyn_service_standin_test
    SOURCES
        ServiceProtocolTest.cpp
        StandInFaultsTest.cpp
        StandInServiceTest.cpp
    USES zyn_service_standin zyn_test_support)
