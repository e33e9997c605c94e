# The stand-in for the tracing service: a library for tests that drive it in a thread or as a child,
# and the program, which is not installed. Uses nothing of src/.

zyn_add_library(zyn_service_standin
    SOURCES
        ServiceFiles.cpp
        ServiceProtocol.cpp
        ServiceSimOptions.cpp
        ServiceSimProcess.cpp
        StandInService.cpp
    USES Threads::Threads)
target_include_directories(zyn_service_standin PUBLIC ${PROJECT_SOURCE_DIR}/tests)

add_executable(zynservice-sim zynservice_sim.cpp)
target_link_libraries(zynservice-sim PRIVATE zyn_options zyn_service_standin)

zyn_add_test(zyn_service_standin_test
    SOURCES
        ServiceProtocolTest.cpp
        ServiceSimOptionsTest.cpp
        ServiceSimTest.cpp
        StandInFaultsTest.cpp
        StandInServiceTest.cpp
    USES zyn_service_standin zyn_test_support)
add_dependencies(zyn_service_standin_test zynservice-sim)
target_compile_definitions(zyn_service_standin_test PRIVATE
    ZYN_SERVICE_SIM="$<TARGET_FILE:zynservice-sim>")
