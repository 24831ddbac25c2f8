# Keeping thumbnails current.
target_sources(keldothumbctl_lib PRIVATE
  watch/change_scheduler.cpp
  watch/directory_tree.cpp
  watch/inotify.cpp
  watch/thumb_runner.cpp
  watch/tree_events.cpp
  watch/watch_command.cpp
  watch/watch_loop.cpp
  watch/watch_report.cpp)

if(KELDO_BUILD_TESTS)
  keldo_unit_test(ctl_watch_test
    SOURCES
      watch/change_scheduler_test.cpp
      watch/directory_tree_test.cpp
      watch/tree_faults_test.cpp
      watch/tree_test_support.cpp
      watch/watch_command_test.cpp
      watch/watch_loop_test.cpp
      watch/watch_report_test.cpp
      watch/watch_test_support.cpp
    LIBS keldothumbctl_lib syslog_capture test_support)
endif()
