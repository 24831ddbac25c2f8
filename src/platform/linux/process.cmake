# Processes, signals and the programs that are run.
target_sources(platform_linux PRIVATE
  child.cpp
  converter_names.cpp
  deadline.cpp
  isolated.cpp
  kill.cpp
  pid_file.cpp
  popen.cpp
  process_runner.cpp
  standard_descriptors.cpp
  stop_signals.cpp
  termination.cpp)

if(KELDO_BUILD_TESTS)
  # Kills by name, so the tests run it with a process table of its own.
  add_executable(kill_test_helper kill_test_helper.cpp)
  target_link_libraries(kill_test_helper PRIVATE platform_linux keldo_options GTest::gtest)
  set_target_properties(kill_test_helper PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)

  keldo_unit_test(platform_process_test
    SOURCES
      child_test.cpp
      converter_names_test.cpp
      deadline_test.cpp
      isolated_test.cpp
      kill_test.cpp
      pid_file_test.cpp
      popen_test.cpp
      process_runner_test.cpp
      standard_descriptors_test.cpp
      termination_test.cpp
    LIBS platform_linux syslog_capture test_pictures)
  target_compile_definitions(platform_process_test PRIVATE
    KELDO_KILL_TEST_HELPER="$<TARGET_FILE:kill_test_helper>")
  add_dependencies(platform_process_test kill_test_helper)
endif()
